// New keys, damaged octets and the codes that refuse them, for the development provider's tests.
#ifndef ZAREXT_TESTS_UNIT_PROVIDER_KEYS_H_
#define ZAREXT_TESTS_UNIT_PROVIDER_KEYS_H_

#include <cstddef>
#include <cstdint>

#include "provider/key.h"

namespace zarext::provider {

inline constexpr std::uint32_t kBadKey = 0x80090003;
inline constexpr std::uint32_t kBadLen = 0x80090004;
inline constexpr std::uint32_t kBadData = 0x80090005;
inline constexpr std::uint32_t kBadVer = 0x80090007;
inline constexpr std::uint32_t kBadAlgId = 0x80090008;
inline constexpr std::uint32_t kBadType = 0x8009000A;
inline constexpr std::uint32_t kNoKey = 0x8009000D;
inline constexpr std::uint32_t kBadPublicKey = 0x80090015;
inline constexpr std::uint32_t kBadKeysetParam = 0x8009001F;

inline PrivateKey NewKey(std::uint32_t algId, unsigned rsaBits = 0) {
  return GenerateKey(*FindKeyAlgorithm(algId), rsaBits);
}

inline Bytes Changed(Bytes octets, std::size_t at, std::uint8_t mask = 1) {
  octets[at] ^= mask;
  return octets;
}

}  // namespace zarext::provider

#endif  // ZAREXT_TESTS_UNIT_PROVIDER_KEYS_H_
