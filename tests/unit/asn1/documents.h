// Shorthand of the codec's tests: octets as text, and a document's encoding.
#ifndef ZAREXT_TESTS_UNIT_ASN1_DOCUMENTS_H_
#define ZAREXT_TESTS_UNIT_ASN1_DOCUMENTS_H_

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "asn1/tasn1.h"

namespace zarext {

using Octets = std::vector<std::uint8_t>;

// "30 03 02 01 05"; spaces are optional.
inline Octets Hex(std::string_view text) {
  Octets octets;
  int high = -1;
  for (const char c : text) {
    if (c == ' ' || c == '\n') continue;
    const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    if (digit < 0 || digit > 15) throw std::invalid_argument("not hexadecimal");
    if (high < 0) {
      high = digit;
    } else {
      octets.push_back(static_cast<std::uint8_t>(high << 4 | digit));
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("half an octet");
  return octets;
}

inline Octets operator+(Octets left, const Octets& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Octets Repeat(const Octets& octets, std::size_t times) {
  Octets all;
  all.reserve(octets.size() * times);
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), octets.begin(), octets.end());
  return all;
}

// The content in this many SEQUENCEs, each with the shortest length.
inline Octets Nested(std::size_t levels, const Octets& content) {
  Octets reversed(content.rbegin(), content.rend());
  for (; levels > 0; --levels) {
    const std::size_t size = reversed.size();
    std::uint8_t digits = 0;
    for (std::size_t rest = size; size >= 0x80 && rest > 0; rest >>= 8, ++digits) {
      reversed.push_back(static_cast<std::uint8_t>(rest));
    }
    reversed.push_back(static_cast<std::uint8_t>(size < 0x80 ? size : 0x80U | digits));
    reversed.push_back(0x30);
  }
  return {reversed.rbegin(), reversed.rend()};
}

// An exact heap copy, so that the sanitizer sees every read outside the image.
class Image {
 public:
  explicit Image(const Octets& octets)
      : size_(static_cast<std::uint32_t>(octets.size())), octets_(new std::uint8_t[size_]) {
    std::copy(octets.begin(), octets.end(), octets_.get());
  }
  const std::uint8_t* Data() const { return octets_.get(); }
  std::uint8_t* Writable() { return octets_.get(); }
  std::uint32_t Size() const { return size_; }

 private:
  std::uint32_t size_;
  std::unique_ptr<std::uint8_t[]> octets_;
};

inline std::int32_t LoadOf(TASN1& document, const Octets& octets) {
  const Image image(octets);
  return document.Load(image.Data(), image.Size());
}

// Load and Parse into path (), as callers do it; the result of Parse.
inline std::int32_t ParseOf(TASN1& document, const Octets& octets) {
  const Image image(octets);
  document.Load(image.Data(), image.Size());
  return document.Parse(image.Data(), 0xFFFFFF);
}

template <typename... Path>
std::uint32_t SizeOf(TASN1& document, Path... path) {
  std::uint32_t size = 0;
  EXPECT_EQ(document.GetEncodedSize(&size, path..., 0xFFFFFF), 0);
  return size;
}

template <typename... Path>
Octets EncodingOf(TASN1& document, Path... path) {
  // The octets behind the stated size must stay as they are.
  Octets octets(SizeOf(document, path...) + 4, 0xEE);
  EXPECT_EQ(document.Encode(octets.data(), path..., 0xFFFFFF), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(octets.back(), 0xEE);
    octets.pop_back();
  }
  return octets;
}

// What GetNode gives; the value copied out, absent when the pointer is null.
struct NodeSeen {
  std::int32_t result = -1;
  std::uint8_t tag = 0;
  std::uint32_t count = 0xFFFF;
  std::uint32_t length = 0xFFFF;
  bool hasValue = false;
  Octets value;

  std::string Text() const { return {value.begin(), value.end()}; }
};

template <typename... Path>
NodeSeen Seen(TASN1& document, Path... path) {
  NodeSeen seen;
  const std::uint8_t* value = nullptr;
  seen.result = document.GetNode(&seen.tag, &seen.count, &seen.length, &value, path..., 0xFFFFFF);
  seen.hasValue = value != nullptr;
  if (seen.hasValue) seen.value.assign(value, value + seen.length);
  return seen;
}

// A document that was parsed from octets that Load accepts.
class Parsed : public TASN1 {
 public:
  explicit Parsed(const Octets& octets) : TASN1(0x30) {
    EXPECT_EQ(LoadOf(*this, octets), 0);
    EXPECT_EQ(ParseOf(*this, octets), 0);
  }
  explicit Parsed(std::string_view hex) : Parsed(Hex(hex)) {}
  const AsnNode& Top() const { return Root(); }
};

}  // namespace zarext

#endif  // ZAREXT_TESTS_UNIT_ASN1_DOCUMENTS_H_
