#include "unit/asn1/oracle_image.h"

namespace zarext::oracle {
namespace {

std::uint64_t ScanForEnd(const Octets& image, std::size_t position) {
  const std::int64_t left = 65535 - static_cast<std::int64_t>(position);
  const auto limit = static_cast<std::uint64_t>(left < 1 ? 15 : left);
  std::uint64_t offset = 0;
  int depth = 0;
  do {
    const std::uint64_t at = position + offset;
    if (at + 2 > image.size()) {
      return limit;
    }
    if (image[at + 1] == 0x80) {
      depth++;
      offset += 2;
    } else if (image[at] == 0 && image[at + 1] == 0) {
      if (depth == 1) {
        return offset;
      }
      depth--;
      offset += 2;
    } else {
      const ElementHeader header = ReadHeader(image, at);
      if (header.size == 0) {
        return limit;
      }
      offset += header.size;
      if ((header.tag & 0x20) == 0) {
        offset += header.length;
      }
    }
  } while (offset < limit);
  return limit;
}

}  // namespace

ElementHeader ReadHeader(const Octets& image, std::size_t position) {
  ElementHeader header;
  header.beyond = true;
  if (position + 2 > image.size()) {
    return header;
  }
  header.tag = image[position];
  const std::uint8_t first = image[position + 1];
  if (first < 0x80) {
    header.size = 2;
    header.length = first;
  } else if (first == 0x80) {
    header.size = 2;
    header.length = ScanForEnd(image, position);
  } else if (first >= 0x85) {
    header.beyond = false;
  } else if (position + 2 + (first - 0x80) <= image.size()) {
    header.size = 2 + (first - 0x80U);
    for (std::size_t i = 2; i < header.size; ++i) {
      header.length = header.length * 256 + image[position + i];
    }
  }
  return header;
}

std::int32_t Validate(const Octets& image, std::uint64_t* position) {
  const ElementHeader header = ReadHeader(image, *position);
  if (header.size == 0) {
    return header.beyond ? 2 : 1;
  }
  *position += header.size;
  if ((header.tag & 0x20) == 0) {
    *position += header.length;
    return 0;
  }
  const std::uint64_t end = *position + header.length;
  while (*position < end) {
    if (const std::int32_t code = Validate(image, position); code != 0) {
      return code;
    }
  }
  return *position == end ? 0 : 4;
}

Octets OutermostElement(const Octets& image) {
  const ElementHeader header = ReadHeader(image, 0);
  if (header.size == 0) {
    return {};
  }
  const std::uint64_t size = header.size + header.length;
  Octets element = image;
  if (size < element.size()) {
    element.resize(size);
  }
  return element;
}

}  // namespace zarext::oracle
