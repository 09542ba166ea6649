#include "asn1/asn_node.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/wipe.h"

namespace zarext {
namespace {

// The array is always this much longer than twice the capacity that it had.
constexpr std::uint32_t kSlackSlots = 2;
constexpr std::size_t kSlotSize = sizeof(void*);

// Whether there is more to give back than the record.
bool OwnsValue(const AsnNode& node) {
  const bool onHeap = node.content != nullptr && node.content != node.octets + kShortHeader;
  return onHeap || node.text != nullptr;
}

void ReleaseValue(AsnNode* node, Release release) noexcept {
  if (node->content != nullptr && node->content != InlineContent(node)) {
    if (release == Release::kWiped) {
      WipeOctets(node->content, ContentLength(*node));
    }
    FreeBlock(node->content);
  }
  if (release == Release::kWiped) {
    // All of it: behind the content of an INTEGER is the number that was read of it.
    WipeOctets(InlineContent(node), kInlineOctets);
  }
  node->content = nullptr;
  DropText(node);
}

void ReleaseArray(AsnNode* node) noexcept {
  if (node->children == nullptr) {
    return;
  }
  if (node->children != node->branch.slots) {
    FreeBlock(node->children);
  }
  // Also those whose pointers went into a longer array.
  std::memset(node->branch.slots, 0, sizeof(node->branch.slots));
  node->children = nullptr;
  node->capacity = 0;
}

}  // namespace

void ThrowNoMemory() { throw std::bad_alloc(); }

void NodeRelease::operator()(AsnNode* node) const noexcept {
  ReleaseContents(node);
  FreeBlock(node);
}

OwnedOctets AllocateZeroedOctets(std::size_t size) {
  void* block = std::calloc(1, size);  // NOLINT(cppcoreguidelines-no-malloc)
  if (block == nullptr) {
    ThrowNoMemory();
  }
  return OwnedOctets(static_cast<std::uint8_t*>(block));
}

void WriteLongLength(AsnNode* node, std::uint32_t contentLength) {
  const auto lengthOctets = static_cast<std::uint32_t>(std::bit_width(contentLength) + 7) / 8;
  node->octets[1] = static_cast<std::uint8_t>(0x80U | lengthOctets);
  for (std::uint32_t i = 0; i < lengthOctets; ++i) {
    node->octets[kShortHeader + i] =
        static_cast<std::uint8_t>(contentLength >> (8U * (lengthOctets - 1 - i)));
  }
}

std::uint8_t* PlaceLongContent(AsnNode* node, std::uint32_t length, std::uint32_t spare) {
  node->content = static_cast<std::uint8_t*>(AllocateBlock(std::size_t{length} + spare));
  std::memset(node->content + length, 0, spare);
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
  if (node->text != nullptr) {
    FreeBlock(node->text);
  }
  node->text = nullptr;
}

void GrowChildArray(AsnNode* parent) {
  if (parent->children == nullptr) {
    parent->children = parent->branch.slots;
    parent->capacity = kInlineSlots;
    return;
  }
  const std::size_t slots = std::size_t{parent->capacity} * 2 + kSlackSlots;
  const std::size_t size = slots * kSlotSize;
  if (parent->children == parent->branch.slots) {
    auto* grown = static_cast<AsnNode**>(AllocateBlock(size));
    std::memcpy(grown, parent->branch.slots, sizeof(parent->branch.slots));
    parent->children = grown;
  } else {
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc)
    void* grown = std::realloc(parent->children, size);
    if (grown == nullptr) {
      ThrowNoMemory();
    }
    parent->children = static_cast<AsnNode**>(grown);
  }
  const auto count = static_cast<std::size_t>(parent->count);
  std::memset(parent->children + count, 0, size - count * kSlotSize);
  parent->capacity *= 2;
}

AsnNode* InsertNode(AsnNode* parent, std::int32_t index, OwnedNode node) noexcept {
  AsnNode** slot = parent->children + index;
  std::memmove(slot + 1, slot, static_cast<std::size_t>(parent->count - index) * kSlotSize);
  *slot = node.release();
  ++parent->count;
  return *slot;
}

OwnedNode TakeNode(AsnNode* parent, std::int32_t index) noexcept {
  AsnNode** slot = parent->children + index;
  OwnedNode taken(*slot);
  --parent->count;
  std::memmove(slot, slot + 1, static_cast<std::size_t>(parent->count - index) * kSlotSize);
  parent->children[parent->count] = nullptr;
  return taken;
}

void ReleaseContents(AsnNode* node, Release release) noexcept {
  AsnNode* current = node;
  for (;;) {
    while (current->count > 0) {
      AsnNode* child = current->children[--current->count];
      if (child->children == nullptr) {
        if (OwnsValue(*child) || release == Release::kWiped) {
          ReleaseValue(child, release);
        }
        FreeBlock(child);
      } else {
        // The way back up: a subtree under construction still names its future parent.
        child->parent = current;
        current = child;
      }
    }
    ReleaseArray(current);
    if (current == node) {
      break;
    }
    AsnNode* parent = current->parent;
    FreeBlock(current);
    current = parent;
  }
  ReleaseValue(node, release);
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
  WipeOctets(InlineContent(from), kInlineOctets);
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
  for (; node != nullptr && change != 0; node = node->parent) {
    change = AdjustLength(node, change);
  }
}

}  // namespace zarext
