// The provider that serves a certificate's key, as the key-provider property names it.
#ifndef ZAREXT_STORE_KEY_PROVIDER_H_
#define ZAREXT_STORE_KEY_PROVIDER_H_

#include <windows.h>

#include <wincrypt.h>

#include "store/key_address.h"

namespace zarext {

// The provider of RSA keys, of type PROV_RSA_FULL; the other one is in frame/provider_binding.h.
inline constexpr char kRsaProviderName[] = "Zarvel CSP RSA";

// Converts from the ANSI code page. False if the text is null or does not fit with its terminator.
template <std::size_t size>
bool ToWide(const char* text, wchar_t (&wide)[size]) {
  return text != nullptr &&
         MultiByteToWideChar(CP_ACP, 0, text, -1, wide, static_cast<int>(size)) != 0;
}

// Name and type of the provider for one key.
class KeyProvider {
 public:
  // By the object identifier of the public key, which may be null. Outside the own families and
  // RSA there is no name and the type is 0.
  explicit KeyProvider(const char* publicKeyOid);

  // False if the name could not be converted; the object is then of no use.
  [[nodiscard]] bool IsValid() const noexcept { return valid_; }
  // The property for a key in this container. The texts are the caller's and the object's.
  [[nodiscard]] CRYPT_KEY_PROV_INFO Info(wchar_t* container, DWORD keySpec) noexcept;

 private:
  wchar_t name_[256] = {};
  DWORD type_ = 0;
  bool valid_ = true;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_PROVIDER_H_
