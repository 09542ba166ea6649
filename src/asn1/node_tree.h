// What the nodes of a document own, all of it in the document's memory: records, contents, texts
// and child arrays. No function here changes a header, except that a content is placed with its
// length.
#ifndef ZAREXT_ASN1_NODE_TREE_H_
#define ZAREXT_ASN1_NODE_TREE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "asn1/asn_node.h"
#include "asn1/document_memory.h"

namespace zarext {

// Behind a content outside the record there are so many octets of zero: one that ends it, and room
// for the number that is read of an INTEGER, whatever the tag was when the content was placed.
inline constexpr std::uint32_t kSpareOctets = 5;
// An array has so many slots more than its capacity; they are never used.
inline constexpr std::size_t kSlackSlots = 2;

constexpr std::size_t ContentSize(std::uint32_t length) {
  return std::size_t{length} + kSpareOctets;
}
constexpr std::size_t ArraySize(std::uint32_t capacity) {
  return (std::size_t{capacity} + kSlackSlots) * sizeof(void*);
}

// What a node and its content take from the document's memory. Child arrays, those that were grown
// out of too, take about four slots for each child.
constexpr std::size_t NodeNeed(std::uint32_t contentLength) {
  return DocumentMemory::Need(sizeof(AsnNode)) + 4 * sizeof(void*) +
         (contentLength < kInlineOctets ? 0 : DocumentMemory::Need(ContentSize(contentLength)));
}

// A zero-filled node with this tag, content length 0 and this parent, not yet among the parent's
// children. Throws std::bad_alloc.
inline AsnNode* NewNode(DocumentMemory& memory, AsnNode* parent, std::uint8_t tag) {
  auto* node = static_cast<AsnNode*>(std::memset(memory.Take(sizeof(AsnNode)), 0, sizeof(AsnNode)));
  node->parent = parent;
  node->octets[0] = tag;
  return node;
}

// Whether the node owns nothing; its inline area is then zero.
inline bool OwnsNothing(const AsnNode& node) {
  return node.content == nullptr && node.text == nullptr && node.children == nullptr;
}

void ReleaseOwned(DocumentMemory& memory, AsnNode* node) noexcept;

// Ends everything that the node owns: its subtree, child array, content and text. The header stays.
// Flat: takes no stack for any depth of the tree.
inline void ReleaseContents(DocumentMemory& memory, AsnNode* node) noexcept {
  if (!OwnsNothing(*node)) {
    ReleaseOwned(memory, node);
  }
}

// A place for a content outside the record, followed by kSpareOctets octets of zero. Throws
// std::bad_alloc.
std::uint8_t* TakeContent(DocumentMemory& memory, std::uint32_t length);

// Gives a primitive node without content a place for a content of this length, the header
// included, and returns that place (null for length 0). Throws std::bad_alloc and leaves the node
// as it was.
inline std::uint8_t* PlaceContent(DocumentMemory& memory, AsnNode* node, std::uint32_t length) {
  if (length >= kInlineOctets) {
    node->content = TakeContent(memory, length);
  } else {
    node->content = length == 0 ? nullptr : InlineContent(node);
  }
  WriteHeader(node, TagOf(*node), length);
  return node->content;
}

// The same with a copy of these octets.
inline void FillContent(DocumentMemory& memory, AsnNode* node, const std::uint8_t* octets,
                        std::uint32_t length) {
  std::uint8_t* content = PlaceContent(memory, node, length);
  if (length > 0) {
    std::memcpy(content, octets, length);
  }
}

// Keeps a copy of the text in the node, which has none. Throws std::bad_alloc.
void KeepText(DocumentMemory& memory, AsnNode* node, std::string_view text);
void DropText(DocumentMemory& memory, AsnNode* node) noexcept;

// Gives the node a longer child array.
void GrowChildArray(DocumentMemory& memory, AsnNode* parent);

// Makes room for one more child. The array grows when the slot to be filled is its last one: from
// the four inline slots to 10 with a capacity of 8, then to 18 with 16, and so on. Throws
// std::bad_alloc and changes nothing.
inline void ReserveSlot(DocumentMemory& memory, AsnNode* parent) {
  if (parent->children == nullptr) {
    parent->children = parent->branch.slots;
    parent->capacity = kInlineSlots;
  } else if (static_cast<std::uint32_t>(parent->count) + 1 >= parent->capacity) {
    GrowChildArray(memory, parent);
  }
}

// Puts a node into the slot at index, which is at most the count; later ones move up. Room must
// have been reserved.
void InsertNode(AsnNode* parent, std::int32_t index, AsnNode* node) noexcept;

// Takes the child at index out of its parent; later ones move down.
AsnNode* TakeNode(AsnNode* parent, std::int32_t index) noexcept;

// Moves a node with all that it owns to another place, which owns nothing and keeps its own parent.
// Nothing is left behind.
void MoveNode(AsnNode* from, AsnNode* to) noexcept;

}  // namespace zarext

#endif  // ZAREXT_ASN1_NODE_TREE_H_
