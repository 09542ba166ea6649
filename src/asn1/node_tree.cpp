#include "asn1/node_tree.h"

#include "frame/wipe.h"

namespace zarext {
namespace {

constexpr std::size_t kSlotSize = sizeof(void*);

void ReleaseValue(DocumentMemory& memory, AsnNode* node) noexcept {
  if (node->content != nullptr && node->content != InlineContent(node)) {
    memory.GiveBack(node->content, ContentSize(ContentLength(*node)));
  }
  node->content = nullptr;
  DropText(memory, node);
}

void ReleaseArray(DocumentMemory& memory, AsnNode* node) noexcept {
  if (node->children != nullptr && node->children != node->branch.slots) {
    memory.GiveBack(node->children, ArraySize(node->capacity));
  }
  node->children = nullptr;
  node->capacity = 0;
}

}  // namespace

std::uint8_t* TakeContent(DocumentMemory& memory, std::uint32_t length) {
  auto* content = static_cast<std::uint8_t*>(memory.Take(ContentSize(length)));
  std::memset(content + length, 0, kSpareOctets);
  return content;
}

void KeepText(DocumentMemory& memory, AsnNode* node, std::string_view text) {
  node->text = static_cast<char*>(memory.Take(text.size() + 1));
  std::memcpy(node->text, text.data(), text.size());
  node->text[text.size()] = '\0';
}

void DropText(DocumentMemory& memory, AsnNode* node) noexcept {
  if (node->text != nullptr) {
    memory.GiveBack(node->text, std::strlen(node->text) + 1);
  }
  node->text = nullptr;
}

void GrowChildArray(DocumentMemory& memory, AsnNode* parent) {
  const std::uint32_t capacity = parent->capacity * 2;
  const std::size_t used = static_cast<std::size_t>(parent->count) * kSlotSize;
  auto* grown = static_cast<std::uint8_t*>(memory.Take(ArraySize(capacity)));
  std::memcpy(grown, parent->children, used);
  std::memset(grown + used, 0, ArraySize(capacity) - used);
  ReleaseArray(memory, parent);
  parent->children = reinterpret_cast<AsnNode**>(grown);
  parent->capacity = capacity;
}

void InsertNode(AsnNode* parent, std::int32_t index, AsnNode* node) noexcept {
  AsnNode** slot = parent->children + index;
  std::memmove(slot + 1, slot, static_cast<std::size_t>(parent->count - index) * kSlotSize);
  *slot = node;
  ++parent->count;
}

AsnNode* TakeNode(AsnNode* parent, std::int32_t index) noexcept {
  AsnNode** slot = parent->children + index;
  AsnNode* taken = *slot;
  --parent->count;
  std::memmove(slot, slot + 1, static_cast<std::size_t>(parent->count - index) * kSlotSize);
  parent->children[parent->count] = nullptr;
  return taken;
}

void ReleaseOwned(DocumentMemory& memory, AsnNode* node) noexcept {
  AsnNode* current = node;
  for (;;) {
    while (current->count > 0) {
      AsnNode* child = current->children[--current->count];
      if (child->children == nullptr) {
        ReleaseValue(memory, child);
        memory.GiveBack(child, sizeof(AsnNode));
      } else {
        // The way back up: a subtree under construction still names its future parent.
        child->parent = current;
        current = child;
      }
    }
    ReleaseArray(memory, current);
    if (current == node) {
      break;
    }
    AsnNode* parent = current->parent;
    memory.GiveBack(current, sizeof(AsnNode));
    current = parent;
  }
  ReleaseValue(memory, node);
  // No slot names a child that is gone, and no content stays, nor a number that was read of it.
  const std::uint32_t header = HeaderSize(*node);
  WipeOctets(node->octets + header, sizeof(node->octets) - header);
}

void MoveNode(AsnNode* from, AsnNode* to) noexcept {
  AsnNode* parent = to->parent;
  *to = *from;
  to->parent = parent;
  if (from->content == InlineContent(from)) {
    to->content = InlineContent(to);
  }
  if (from->children == from->branch.slots) {
    to->children = to->branch.slots;
  }
  WipeOctets(from, sizeof(*from));
}

}  // namespace zarext
