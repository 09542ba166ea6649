// Octets from text, hexadecimal text and thrown codes, for the tests of the development provider.
#ifndef ZAREXT_TESTS_UNIT_PROVIDER_HEX_H_
#define ZAREXT_TESTS_UNIT_PROVIDER_HEX_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "provider/bytes.h"
#include "provider/hash.h"

namespace zarext::test {

inline provider::Bytes Hex(std::string_view text) {
  provider::Bytes out;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    out.push_back(
        static_cast<std::uint8_t>(std::stoul(std::string(text.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

inline std::string ToHex(provider::View octets) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const std::uint8_t octet : octets) out += {kDigits[octet >> 4], kDigits[octet & 15]};
  return out;
}

inline provider::Bytes Ascii(std::string_view text) {
  return provider::ToBytes(provider::AsView(text));
}

inline std::string HashHex(std::uint32_t algId, provider::View data) {
  return ToHex(provider::HashOf(*provider::FindHashAlgorithm(algId), data));
}

// The code that `call` throws; 0 if it returns.
template <typename Call>
std::uint32_t CodeOf(Call call) {
  try {
    call();
  } catch (const provider::Error& error) {
    return error.Code();
  }
  return 0;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_PROVIDER_HEX_H_
