// Octets as the key tests write and read them.
#ifndef ZAREXT_TESTS_UNIT_KEYINFO_OCTETS_H_
#define ZAREXT_TESTS_UNIT_KEYINFO_OCTETS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zarext::test {

using Octets = std::vector<std::uint8_t>;

// From hexadecimal text; blanks are left out.
inline Octets Hex(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (c != ' ') {
      digits += c;
    }
  }
  Octets octets;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    octets.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return octets;
}

inline std::string HexText(const std::uint8_t* octets, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += {kDigits[octets[i] >> 4], kDigits[octets[i] & 15]};
  }
  return text;
}

inline std::string HexText(const Octets& octets) { return HexText(octets.data(), octets.size()); }

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_KEYINFO_OCTETS_H_
