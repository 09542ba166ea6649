// Key documents in hexadecimal, and what is read of them.
#ifndef ZAREXT_TESTS_UNIT_KEYINFO_PKCS8_READING_H_
#define ZAREXT_TESTS_UNIT_KEYINFO_PKCS8_READING_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {

inline std::string Text(OctetSpan octets) { return HexText(octets.data(), octets.size()); }

inline std::int32_t ReadCode(std::uint32_t kind, std::string_view text) {
  const Octets octets = Hex(text);
  TPKCS8 document;
  const std::int32_t code = document.Read(kind, octets);
  if (code != 0) {
    EXPECT_EQ(-1, document.EncodedSize());
    EXPECT_EQ(0u, document.Kind());
    EXPECT_EQ(nullptr, document.Decoded());
  } else {
    EXPECT_EQ(static_cast<std::int64_t>(octets.size()), document.EncodedSize());
    EXPECT_EQ(kind, document.Kind());
  }
  return code;
}

struct CodeCase {
  std::int32_t code;
  const char* text;
};

// An element with its length; children may be joined.
inline std::string Element(const char* tag, const std::string& content) {
  const std::size_t size = Hex(content).size();
  char length[16] = {};
  snprintf(length, sizeof length, size < 0x80 ? "%02zx" : "82%04zx", size);
  return std::string(tag) + length + content;
}

// Reads and gives the record, or fails the test.
template <typename Record>
const Record& Decode(TPKCS8& document, std::uint32_t kind, std::span<const std::uint8_t> octets) {
  EXPECT_EQ(0, document.Read(kind, octets));
  static const Record kNone;
  const auto* record =
      document.Decoded() == nullptr ? nullptr : std::get_if<Record>(document.Decoded());
  EXPECT_NE(nullptr, record);
  return record == nullptr ? kNone : *record;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_KEYINFO_PKCS8_READING_H_
