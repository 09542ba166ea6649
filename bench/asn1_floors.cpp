#include "bench/asn1_floors.h"

#include <cstdlib>
#include <cstring>

namespace zarext::bench {
namespace {

constexpr std::size_t kRecord = 80;
constexpr std::size_t kPointer = sizeof(void*);

struct Header {
  std::uint32_t size;
  std::uint32_t length;
};

Header HeaderAt(const std::uint8_t* at) {
  if (at[1] < 0x80) {
    return {2, at[1]};
  }
  Header header{2U + (at[1] & 0x7FU), 0};
  for (std::uint32_t i = 2; i < header.size; ++i) {
    header.length = header.length << 8 | at[i];
  }
  return header;
}

std::unique_ptr<FloorNode> TakeElement(const std::uint8_t** at) {
  auto node = std::make_unique<FloorNode>();
  const std::uint8_t* start = *at;
  const Header header = HeaderAt(start);
  node->headerSize = header.size;
  std::memcpy(node->header, start, header.size);
  *at += header.size;
  const std::uint8_t* end = *at + header.length;
  if ((start[0] & 0x20) != 0) {
    while (*at < end) {
      node->children.push_back(TakeElement(at));
    }
  } else {
    node->length = header.length;
    node->content = std::make_unique<std::uint8_t[]>(header.length);
    std::memcpy(node->content.get(), *at, header.length);
    *at = end;
  }
  return node;
}

}  // namespace

std::unique_ptr<FloorNode> MakeFloorTree(const Octets& image) {
  const std::uint8_t* at = image.data();
  return TakeElement(&at);
}

std::vector<Allocation> AllocationsFor(const Octets& image) {
  struct Open {
    const std::uint8_t* end;
    std::size_t children;
    std::size_t capacity;
    std::int32_t array;
  };
  std::vector<Allocation> list;
  std::vector<Open> open;
  const std::uint8_t* at = image.data();
  do {
    const Header header = HeaderAt(at);
    const bool constructed = (*at & 0x20) != 0;
    at += header.size;
    if (!open.empty()) {
      Open& parent = open.back();
      list.push_back({kRecord, -1});
      if (!constructed && header.length >= 38) {
        list.push_back({header.length + std::size_t{1}, -1});
      }
      if (++parent.children == parent.capacity) {
        const std::int32_t grown = parent.array;
        parent.array = static_cast<std::int32_t>(list.size());
        list.push_back({(parent.capacity * 2 + 2) * kPointer, grown});
        parent.capacity *= 2;
      }
    }
    if (constructed) {
      open.push_back({at + header.length, 0, 4, -1});
    } else {
      at += header.length;
    }
    while (!open.empty() && at >= open.back().end) {
      open.pop_back();
    }
  } while (!open.empty());
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
