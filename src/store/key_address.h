// How a certificate of a container tells applications where its key is: address, key specification
// and whose algorithm it is.
#ifndef ZAREXT_STORE_KEY_ADDRESS_H_
#define ZAREXT_STORE_KEY_ADDRESS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace zarext {

// A text of at most size - 1 characters and a terminator, on the stack: what is built while a lock
// is held must not fail for want of memory.
template <std::size_t size>
class FixedText {
 public:
  // Adds as much of the text as there is room for.
  void Append(std::string_view text) noexcept {
    length_ += text.copy(text_ + length_, std::min(text.size(), Room()));
  }
  [[nodiscard]] std::size_t Room() const noexcept { return size - 1 - length_; }
  [[nodiscard]] char* Text() noexcept { return text_; }
  [[nodiscard]] const char* Text() const noexcept { return text_; }
  [[nodiscard]] std::string_view View() const noexcept { return {text_, length_}; }

 private:
  char text_[size] = {};
  std::size_t length_ = 0;
};

// Octets of an address and its terminator, of a key and of a container that is listed.
inline constexpr std::size_t kKeyUrlSize = 520;

// "profile://%s": the address of a container, cut to what fits.
template <std::size_t size>
FixedText<size> ContainerUrl(std::string_view container) noexcept {
  FixedText<size> url;
  url.Append("profile://");
  url.Append(container);
  return url;
}

// "profile://%s/?sn=%s": the address of the key whose certificate has this serial number, in
// upper-case hexadecimal, octets in the order given. At most 519 characters: of a longer serial
// number the first octets that fit.
FixedText<kKeyUrlSize> KeyUrl(std::string_view container,
                              std::span<const std::uint8_t> serial) noexcept;

// AT_SIGNATURE (2) for no algorithm, AT_KEYEXCHANGE (1) where the bits 0x1E00 of the ALG_ID are
// clear, AT_SIGNATURE otherwise.
std::uint32_t KeySpecOf(std::uint32_t algId) noexcept;

// Whose algorithm the object identifier of a public key names.
enum class KeyFamily { kOwn, kRsa, kOther };

// The own families are tried first. RSA's identifier counts anywhere in the text. Null is kOther.
KeyFamily KeyFamilyOf(const char* publicKeyOid) noexcept;

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_ADDRESS_H_
