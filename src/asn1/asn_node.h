// The record of one element of a DER document, and what the document does to single records.
// Short values and the first children live inside the record, so that a typical key structure
// costs one allocation for each node.
#ifndef ZAREXT_ASN1_ASN_NODE_H_
#define ZAREXT_ASN1_ASN_NODE_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

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
  std::uint8_t* content;   // into octets, or a heap block; null without content
  char* text;              // heap copy of the value as dotted text, or null
  AsnNode** children;      // branch.slots, or a heap array; null until the first child
  std::uint32_t capacity;  // slots of children that are used before it grows
  std::int32_t count;
};
static_assert(sizeof(void*) != 8 || sizeof(AsnNode) == 80);

// Throws std::bad_alloc.
[[noreturn]] void ThrowNoMemory();

// The codec's heap is the C heap, because a growing child array is a reallocated one.
// Throws std::bad_alloc.
inline void* AllocateBlock(std::size_t size) {
  void* block = std::malloc(size);  // NOLINT(cppcoreguidelines-no-malloc)
  if (block == nullptr) {
    ThrowNoMemory();
  }
  return block;
}
inline void FreeBlock(void* block) noexcept {
  std::free(block);  // NOLINT(cppcoreguidelines-no-malloc)
}

// What happens to contents that are given back: documents with private keys have them wiped.
enum class Release : bool { kPlain, kWiped };

// Ends a node that is not in a tree, with all that it owns.
struct NodeRelease {
  void operator()(AsnNode* node) const noexcept;
};
using OwnedNode = std::unique_ptr<AsnNode, NodeRelease>;

struct BlockRelease {
  void operator()(void* block) const noexcept { FreeBlock(block); }
};
using OwnedOctets = std::unique_ptr<std::uint8_t[], BlockRelease>;

// Zero-filled. Throws std::bad_alloc.
OwnedOctets AllocateZeroedOctets(std::size_t size);

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

// Writes the length octets for a content of 128 octets or more.
void WriteLongLength(AsnNode* node, std::uint32_t contentLength);

// Writes the node's header in definite form with the fewest octets.
inline void WriteHeader(AsnNode* node, std::uint8_t tag, std::uint32_t contentLength) {
  node->octets[0] = tag;
  if (contentLength < 0x80) {
    node->octets[1] = static_cast<std::uint8_t>(contentLength);
  } else {
    WriteLongLength(node, contentLength);
  }
}

// A zero-filled node with this tag, content length 0 and this parent, not yet among the parent's
// children. Throws std::bad_alloc.
inline OwnedNode NewNode(AsnNode* parent, std::uint8_t tag) {
  // Not calloc: cleared in place it is quicker than what the C library does for so small a block.
  void* block = AllocateBlock(sizeof(AsnNode));
  OwnedNode node(static_cast<AsnNode*>(std::memset(block, 0, sizeof(AsnNode))));
  node->parent = parent;
  node->octets[0] = tag;
  return node;
}

// Copies fewer octets than a record's inline area and header have, in a few moves that overlap.
inline void CopyShort(std::uint8_t* to, const std::uint8_t* from, std::uint32_t count) {
  static_assert(kShortHeader + kInlineOctets <= 48);
  if (count >= 16) {
    std::memcpy(to, from, 16);
    if (count > 32) {
      std::memcpy(to + 16, from + 16, 16);
    }
    std::memcpy(to + count - 16, from + count - 16, 16);
  } else if (count >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + count - 8, from + count - 8, 8);
  } else if (count >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + count - 4, from + count - 4, 4);
  } else if (count > 0) {
    to[0] = from[0];
    to[count / 2] = from[count / 2];
    to[count - 1] = from[count - 1];
  }
}

// Copies a content or an encoding of any length.
inline void CopyOctets(std::uint8_t* to, const std::uint8_t* from, std::uint32_t count) {
  if (count < kInlineOctets) {
    CopyShort(to, from, count);
  } else {
    std::memcpy(to, from, count);
  }
}

// The place of a content that is too long for the inline area, followed by spare octets of zero.
std::uint8_t* PlaceLongContent(AsnNode* node, std::uint32_t length, std::uint32_t spare);

// Gives a primitive node without content a place for a content of this length, the header
// included, and returns that place (null for length 0). On the heap it is followed by spare octets
// of zero. Throws std::bad_alloc and leaves the node as it was.
inline std::uint8_t* PlaceContent(AsnNode* node, std::uint32_t length, std::uint32_t spare) {
  if (length == 0) {
    return nullptr;
  }
  if (length >= kInlineOctets) {
    return PlaceLongContent(node, length, spare);
  }
  node->octets[1] = static_cast<std::uint8_t>(length);
  node->content = InlineContent(node);
  return node->content;
}

// Keeps a copy of the text in the node, in place of an earlier one. Throws std::bad_alloc.
void KeepText(AsnNode* node, std::string_view text);
void DropText(AsnNode* node) noexcept;

// Gives the node its first, inline child array or a longer one on the heap.
void GrowChildArray(AsnNode* parent);

// Makes room for one more child. The array grows when the slot to be filled is its last one: from
// the four inline slots to 10 with a capacity of 8, then to 18 with 16, and so on. Throws
// std::bad_alloc and changes nothing.
inline void ReserveSlot(AsnNode* parent) {
  if (static_cast<std::uint32_t>(parent->count) + 1 >= parent->capacity) {
    GrowChildArray(parent);
  }
}

// Puts a node behind the other children. Room must have been reserved. No header changes.
inline AsnNode* AppendNode(AsnNode* parent, OwnedNode node) noexcept {
  AsnNode*& slot = parent->children[parent->count++];
  slot = node.release();
  return slot;
}

// Puts a node into the slot at index, which is at most the count; later ones move up. Room must
// have been reserved. No header changes.
AsnNode* InsertNode(AsnNode* parent, std::int32_t index, OwnedNode node) noexcept;

// Takes the child at index out of its parent; later ones move down. No header changes.
OwnedNode TakeNode(AsnNode* parent, std::int32_t index) noexcept;

// Releases everything that the node owns: its subtree, child array, content and text. The header
// stays. Flat: takes no stack for any depth of the tree.
void ReleaseContents(AsnNode* node, Release release = Release::kPlain) noexcept;

// Moves everything that `from` owns to `to`, which owns nothing, except the header. No content is
// left behind in `from`.
void MoveContents(AsnNode* from, AsnNode* to) noexcept;

// Changes the content length of the node, if there is one, by change octets, and corrects every
// ancestor by the resulting change of its child's encoded size.
void AdjustLengths(AsnNode* node, std::int64_t change) noexcept;

// Changes one content length; returns the change of the encoded size.
std::int64_t AdjustLength(AsnNode* node, std::int64_t change) noexcept;

}  // namespace zarext

#endif  // ZAREXT_ASN1_ASN_NODE_H_
