#include "asn1/asn_node.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "frame/wipe.h"

namespace zarext {
namespace {

// The array is always this much longer than twice the capacity that it had.
constexpr std::uint32_t kSlackSlots = 2;

// The codec's heap is the C heap, because a growing child array is a reallocated one.
// NOLINTBEGIN(cppcoreguidelines-no-malloc)
void* Checked(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* AllocateBlock(std::size_t size) { return Checked(std::malloc(size)); }
void* AllocateZeroed(std::size_t size) { return Checked(std::calloc(1, size)); }
void* GrowBlock(void* block, std::size_t size) { return Checked(std::realloc(block, size)); }
void FreeBlock(void* block) noexcept { std::free(block); }
// NOLINTEND(cppcoreguidelines-no-malloc)

std::uint8_t* InlineContent(AsnNode* node) { return node->octets + kShortHeader; }

void ReleaseValue(AsnNode* node, Release release) noexcept {
  if (release == Release::kWiped && node->content != nullptr) {
    WipeOctets(node->content, ContentLength(*node));
  }
  if (node->content != nullptr && node->content != InlineContent(node)) FreeBlock(node->content);
  node->content = nullptr;
  DropText(node);
}

void ReleaseArray(AsnNode* node) noexcept {
  if (node->children != nullptr && node->children != node->branch.slots) FreeBlock(node->children);
  node->children = nullptr;
  node->capacity = 0;
}

}  // namespace

void NodeRelease::operator()(AsnNode* node) const noexcept {
  ReleaseContents(node);
  FreeBlock(node);
}

void BlockRelease::operator()(void* block) const noexcept { FreeBlock(block); }

OwnedOctets AllocateOctets(std::size_t size) {
  return OwnedOctets(static_cast<std::uint8_t*>(AllocateBlock(size)));
}

OwnedOctets AllocateZeroedOctets(std::size_t size) {
  return OwnedOctets(static_cast<std::uint8_t*>(AllocateZeroed(size)));
}

std::uint32_t CheckedLength(std::uint64_t contentLength) {
  if (contentLength > std::numeric_limits<std::uint32_t>::max() - kLongestHeader) {
    throw std::bad_alloc();
  }
  return static_cast<std::uint32_t>(contentLength);
}

void WriteHeader(AsnNode* node, std::uint8_t tag, std::uint32_t contentLength) {
  node->octets[0] = tag;
  if (contentLength < 0x80) {
    node->octets[1] = static_cast<std::uint8_t>(contentLength);
    return;
  }
  const std::uint32_t lengthOctets = HeaderSizeFor(contentLength) - kShortHeader;
  node->octets[1] = static_cast<std::uint8_t>(0x80U | lengthOctets);
  for (std::uint32_t i = 0; i < lengthOctets; ++i) {
    node->octets[kShortHeader + i] =
        static_cast<std::uint8_t>(contentLength >> (8U * (lengthOctets - 1 - i)));
  }
}

OwnedNode NewNode(AsnNode* parent, std::uint8_t tag) {
  OwnedNode node(static_cast<AsnNode*>(AllocateZeroed(sizeof(AsnNode))));
  node->parent = parent;
  node->octets[0] = tag;
  return node;
}

std::uint8_t* PlaceContent(AsnNode* node, std::uint32_t length, std::uint32_t spare) {
  if (length == 0) return nullptr;
  if (length < kInlineOctets) {
    node->content = InlineContent(node);
  } else {
    node->content = AllocateOctets(std::size_t{length} + spare).release();
    std::memset(node->content + length, 0, spare);
  }
  WriteHeader(node, TagOf(*node), length);
  return node->content;
}

void KeepText(AsnNode* node, std::string_view text) {
  auto* copy = static_cast<char*>(AllocateBlock(text.size() + 1));
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  DropText(node);
  node->text = copy;
}

void DropText(AsnNode* node) noexcept {
  if (node->text != nullptr) FreeBlock(node->text);
  node->text = nullptr;
}

void ReserveSlot(AsnNode* parent) {
  if (parent->children == nullptr) {
    parent->children = parent->branch.slots;
    parent->capacity = kInlineSlots;
  }
  const auto count = static_cast<std::uint32_t>(parent->count);
  if (count + 1 != parent->capacity) return;
  const std::size_t slots = std::size_t{parent->capacity} * 2 + kSlackSlots;
  AsnNode** grown = nullptr;
  if (parent->children == parent->branch.slots) {
    grown = static_cast<AsnNode**>(AllocateZeroed(slots * sizeof(AsnNode*)));
    std::memcpy(grown, parent->branch.slots, sizeof(parent->branch.slots));
  } else {
    const std::size_t had = std::size_t{parent->capacity} + kSlackSlots;
    grown = static_cast<AsnNode**>(GrowBlock(parent->children, slots * sizeof(AsnNode*)));
    std::memset(grown + had, 0, (slots - had) * sizeof(AsnNode*));
  }
  parent->children = grown;
  parent->capacity *= 2;
}

AsnNode* InsertNode(AsnNode* parent, std::int32_t index, OwnedNode node) noexcept {
  AsnNode** slot = parent->children + index;
  std::memmove(slot + 1, slot, static_cast<std::size_t>(parent->count - index) * sizeof(AsnNode*));
  *slot = node.release();
  ++parent->count;
  return *slot;
}

OwnedNode TakeNode(AsnNode* parent, std::int32_t index) noexcept {
  AsnNode** slot = parent->children + index;
  OwnedNode taken(*slot);
  --parent->count;
  std::memmove(slot, slot + 1, static_cast<std::size_t>(parent->count - index) * sizeof(AsnNode*));
  parent->children[parent->count] = nullptr;
  return taken;
}

void ReleaseContents(AsnNode* node, Release release) noexcept {
  AsnNode* current = node;
  for (;;) {
    if (current->count > 0) {
      AsnNode* child = current->children[--current->count];
      // The way back up: a subtree under construction still names its future parent.
      child->parent = current;
      current = child;
      continue;
    }
    ReleaseArray(current);
    ReleaseValue(current, release);
    if (current == node) return;
    AsnNode* parent = current->parent;
    FreeBlock(current);
    current = parent;
  }
}

void MoveContents(AsnNode* from, AsnNode* to) noexcept {
  const bool inlineContent = from->content == InlineContent(from);
  const bool inlineSlots = from->children == from->branch.slots;
  std::memcpy(to->octets + kShortHeader, from->octets + kShortHeader, kInlineOctets);
  to->content = inlineContent ? InlineContent(to) : from->content;
  to->text = from->text;
  to->children = inlineSlots ? to->branch.slots : from->children;
  to->capacity = from->capacity;
  to->count = from->count;
  from->content = nullptr;
  from->text = nullptr;
  from->children = nullptr;
  from->capacity = 0;
  from->count = 0;
}

std::int64_t AdjustLength(AsnNode* node, std::int64_t change) noexcept {
  const std::uint32_t before = HeaderSize(*node);
  const auto length = static_cast<std::uint32_t>(ContentLength(*node) + change);
  WriteHeader(node, TagOf(*node), length);
  return change + static_cast<std::int64_t>(HeaderSize(*node)) - before;
}

void AdjustLengths(AsnNode* node, std::int64_t change) noexcept {
  for (; node != nullptr && change != 0; node = node->parent) change = AdjustLength(node, change);
}

}  // namespace zarext
