// Identifier octets (X.690, 8.1.2) of the elements that the module reads and writes. An identifier
// is one octet here: the high-tag-number form does not occur.
#ifndef ZAREXT_ASN1_TAGS_H_
#define ZAREXT_ASN1_TAGS_H_

#include <cstdint>

namespace zarext {

inline constexpr std::uint8_t kConstructedBit = 0x20;

inline constexpr std::uint8_t kTagInteger = 0x02;
inline constexpr std::uint8_t kTagBitString = 0x03;
inline constexpr std::uint8_t kTagOctetString = 0x04;
inline constexpr std::uint8_t kTagNull = 0x05;
inline constexpr std::uint8_t kTagObjectIdentifier = 0x06;
inline constexpr std::uint8_t kTagBmpString = 0x1E;
inline constexpr std::uint8_t kTagSequence = 0x30;
inline constexpr std::uint8_t kTagSet = 0x31;
inline constexpr std::uint8_t kTagContext0 = 0xA0;  // constructed

}  // namespace zarext

#endif  // ZAREXT_ASN1_TAGS_H_
