// The provider that serves a certificate's key, as the key-provider property names it.
#ifndef ZAREXT_STORE_KEY_PROVIDER_H_
#define ZAREXT_STORE_KEY_PROVIDER_H_

#include <windows.h>
#include <wincrypt.h>

#include <array>
#include <cstddef>
#include <optional>

#include "store/key_address.h"

namespace zarext {

// The provider of RSA keys, of type PROV_RSA_FULL; the other one is in frame/provider_binding.h.
inline constexpr char kRsaProviderName[] = "Zarvel CSP RSA";

template <std::size_t size>
using WideText = std::array<wchar_t, size>;

// Converts from the ANSI code page. None if the text is null or does not fit with its terminator.
template <std::size_t size>
std::optional<WideText<size>> ToWide(const char* text) {
  WideText<size> wide = {};
  const bool fits = text != nullptr && MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(),
                                                           static_cast<int>(size)) != 0;
  return fits ? std::optional(wide) : std::nullopt;
}

// Name and type of the provider for one key.
class KeyProvider {
 public:
  // By the object identifier of the public key, which may be null. Outside the own families and
  // RSA there is no name and the type is 0.
  explicit KeyProvider(const char* publicKeyOid);

  // False if the name could not be converted; the object is then of no use.
  [[nodiscard]] bool IsValid() const noexcept { return name_.has_value(); }
  // The property for a key in this container. The texts are the caller's and the object's.
  [[nodiscard]] CRYPT_KEY_PROV_INFO Info(wchar_t* container, DWORD keySpec) noexcept;

 private:
  std::optional<WideText<256>> name_ = WideText<256>();
  DWORD type_ = 0;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_PROVIDER_H_
