#include "bench/asn1_floors.h"

#include <cstdlib>
#include <cstring>

namespace zarext::bench {
namespace {

constexpr std::size_t kRecord = 80;
constexpr std::size_t kPointer = sizeof(void*);

std::unique_ptr<FloorNode> TakeElement(const std::uint8_t** at) {
  auto node = std::make_unique<FloorNode>();
  const std::uint8_t* start = *at;
  std::uint32_t length = start[1];
  node->headerSize = 2;
  if (length >= 0x80) {
    const std::uint32_t octets = length - 0x80;
    length = 0;
    for (std::uint32_t i = 0; i < octets; ++i) {
      length = length << 8 | start[2 + i];
    }
    node->headerSize += octets;
  }
  std::memcpy(node->header, start, node->headerSize);
  *at += node->headerSize;
  const std::uint8_t* end = *at + length;
  if ((start[0] & 0x20) != 0) {
    while (*at < end) {
      node->children.push_back(TakeElement(at));
    }
  } else {
    node->length = length;
    node->content = std::make_unique<std::uint8_t[]>(length);
    std::memcpy(node->content.get(), *at, length);
    *at = end;
  }
  return node;
}

void ListAllocations(const FloorNode& node, std::vector<Allocation>* list) {
  std::int32_t array = -1;
  std::size_t capacity = 4;
  for (std::size_t i = 0; i < node.children.size(); ++i) {
    const FloorNode& child = *node.children[i];
    list->push_back({kRecord, -1});
    if (child.length >= 38) {
      list->push_back({child.length + 1, -1});
    }
    if (i + 1 == capacity) {
      const std::int32_t grown = array;
      array = static_cast<std::int32_t>(list->size());
      list->push_back({(capacity * 2 + 2) * kPointer, grown});
      capacity *= 2;
    }
    ListAllocations(child, list);
  }
}

}  // namespace

std::unique_ptr<FloorNode> MakeFloorTree(const Octets& image) {
  const std::uint8_t* at = image.data();
  return TakeElement(&at);
}

std::vector<Allocation> AllocationsFor(const FloorNode& tree) {
  std::vector<Allocation> list;
  ListAllocations(tree, &list);
  return list;
}

void AllocateAndFree(const std::vector<Allocation>& allocations, void** blocks) {
  std::size_t count = 0;
  for (const Allocation& allocation : allocations) {
    if (allocation.grows < 0) {
      blocks[count++] = std::calloc(1, allocation.size);
    } else {
      blocks[count++] = std::realloc(blocks[allocation.grows], allocation.size);
      blocks[allocation.grows] = nullptr;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    std::free(blocks[i]);
  }
}

std::uint8_t* WalkAndCopy(const FloorNode& node, std::uint8_t* out) {
  std::memcpy(out, node.header, node.headerSize);
  out += node.headerSize;
  if (node.length > 0) {
    std::memcpy(out, node.content.get(), node.length);
    return out + node.length;
  }
  for (const auto& child : node.children) {
    out = WalkAndCopy(*child, out);
  }
  return out;
}

}  // namespace zarext::bench
