// The record of one element of a DER document. Short values and the first children live inside it,
// so that a typical key structure needs nothing but records.
#ifndef ZAREXT_ASN1_ASN_NODE_H_
#define ZAREXT_ASN1_ASN_NODE_H_

#include <bit>
#include <cstdint>
#include <limits>

#include "asn1/document_memory.h"
#include "asn1/tags.h"

namespace zarext {

inline constexpr std::uint32_t kShortHeader = 2;
inline constexpr std::uint32_t kLongestHeader = 6;
inline constexpr std::uint32_t kInlineOctets = 38;
inline constexpr std::uint32_t kInlineSlots = 4;

struct AsnNode;

// The same octets in a constructed node: its header in the longest form, then its first children.
struct NodeBranch {
  std::uint8_t header[8];
  AsnNode* slots[kInlineSlots];
};

struct AsnNode {
  AsnNode* parent;  // null for the root of a document
  union {
    // The identifier and the length exactly as they will be encoded. They are the only place where
    // tag and content length are kept. A content below kInlineOctets follows the header, which
    // then has kShortHeader octets.
    std::uint8_t octets[kShortHeader + kInlineOctets];
    NodeBranch branch;
  };
  std::uint8_t* content;   // into octets, or a piece of the document's memory; null without content
  char* text;              // the value as dotted text, a piece too, or null
  AsnNode** children;      // branch.slots, or a longer array; null until the first child
  std::uint32_t capacity;  // slots of children that are used before it grows
  std::int32_t count;
};
static_assert(sizeof(void*) != 8 || sizeof(AsnNode) == 80);

inline bool IsConstructed(std::uint8_t tag) { return (tag & kConstructedBit) != 0; }

// Constructed BIT STRING or OCTET STRING: the two identifiers that parsing turns primitive.
inline bool IsSegmentedString(std::uint8_t tag) {
  return tag == (kTagBitString | kConstructedBit) || tag == (kTagOctetString | kConstructedBit);
}

inline std::uint8_t* InlineContent(AsnNode* node) { return node->octets + kShortHeader; }

inline std::uint8_t TagOf(const AsnNode& node) { return node.octets[0]; }

inline std::uint32_t HeaderSize(const AsnNode& node) {
  return node.octets[1] < 0x80 ? kShortHeader : kShortHeader + (node.octets[1] & 0x7FU);
}

inline std::uint32_t ContentLength(const AsnNode& node) {
  if (node.octets[1] < 0x80) {
    return node.octets[1];
  }
  std::uint32_t length = 0;
  for (std::uint32_t i = kShortHeader; i < HeaderSize(node); ++i) {
    length = length << 8U | node.octets[i];
  }
  return length;
}

inline std::uint32_t EncodedSize(const AsnNode& node) {
  return HeaderSize(node) + ContentLength(node);
}

// Throws std::bad_alloc for a length that leaves no 32-bit encoded size: no such document can be
// held. Returns it otherwise.
inline std::uint32_t CheckedLength(std::uint64_t contentLength) {
  if (contentLength > std::numeric_limits<std::uint32_t>::max() - kLongestHeader) {
    ThrowNoMemory();
  }
  return static_cast<std::uint32_t>(contentLength);
}

// Writes the node's header in definite form with the fewest octets. Returns its size.
inline std::uint32_t WriteHeader(AsnNode* node, std::uint8_t tag, std::uint32_t contentLength) {
  node->octets[0] = tag;
  if (contentLength < 0x80) {
    node->octets[1] = static_cast<std::uint8_t>(contentLength);
    return kShortHeader;
  }
  const auto lengthOctets = (static_cast<std::uint32_t>(std::bit_width(contentLength)) + 7) / 8;
  node->octets[1] = static_cast<std::uint8_t>(0x80U | lengthOctets);
  for (std::uint32_t i = lengthOctets; i-- > 0; contentLength >>= 8U) {
    node->octets[kShortHeader + i] = static_cast<std::uint8_t>(contentLength);
  }
  return kShortHeader + lengthOctets;
}

// Changes one content length; returns the change of the encoded size.
inline std::int64_t AdjustLength(AsnNode* node, std::int64_t change) noexcept {
  const std::uint32_t before = HeaderSize(*node);
  const auto length = static_cast<std::uint32_t>(ContentLength(*node) + change);
  return change + std::int64_t{WriteHeader(node, TagOf(*node), length)} - before;
}

// Changes the content length of the node, if there is one, by change octets, and corrects every
// ancestor by the resulting change of its child's encoded size.
inline void AdjustLengths(AsnNode* node, std::int64_t change) noexcept {
  for (; node != nullptr && change != 0; node = node->parent) {
    change = AdjustLength(node, change);
  }
}

}  // namespace zarext

#endif  // ZAREXT_ASN1_ASN_NODE_H_
