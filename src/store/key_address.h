// How a certificate of a container tells applications where its key is: address, key specification
// and whose algorithm it is.
#ifndef ZAREXT_STORE_KEY_ADDRESS_H_
#define ZAREXT_STORE_KEY_ADDRESS_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zarext {

// Lengths of an address text with and without its terminator.
inline constexpr std::size_t kKeyUrlSize = 520;

// "profile://%s": the address of a container.
std::string ContainerUrl(std::string_view container);

// "profile://%s/?sn=%s": the address of the key whose certificate has this serial number, in
// upper-case hexadecimal, octets in the order given. At most 519 characters: of a longer serial
// number the first octets that fit.
std::string KeyUrl(std::string_view container, std::span<const std::uint8_t> serial);

// AT_SIGNATURE (2) for no algorithm, AT_KEYEXCHANGE (1) where the bits 0x1E00 of the ALG_ID are
// clear, AT_SIGNATURE otherwise.
std::uint32_t KeySpecOf(std::uint32_t algId) noexcept;

// Whose algorithm the object identifier of a public key names.
enum class KeyFamily { kOwn, kRsa, kOther };

// The own families are tried first. RSA's identifier counts anywhere in the text. Null is kOther.
KeyFamily KeyFamilyOf(const char* publicKeyOid) noexcept;

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_ADDRESS_H_
