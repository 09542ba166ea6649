// Which providers the module serves, by the platform's provider type.
#ifndef ZAREXT_FRAME_PROVIDER_TYPE_H_
#define ZAREXT_FRAME_PROVIDER_TYPE_H_

#include <windows.h>
#include <wincrypt.h>

namespace zarext {

// Type of "Zarvel CSP"; its RSA companion has PROV_RSA_FULL.
inline constexpr DWORD kProviderType = 25;

inline bool IsServedProviderType(DWORD type) noexcept {
  return type == kProviderType || type == PROV_RSA_FULL;
}

// PP_PROVTYPE of a context. If the provider does not say, calls fail(code), which throws.
template <typename Fail>
DWORD ReadProviderType(HCRYPTPROV hCryptProv, Fail fail) {
  DWORD type = 0;
  DWORD size = sizeof type;
  if (!CryptGetProvParam(hCryptProv, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0)) {
    fail(GetLastError());
  }
  return type;
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_PROVIDER_TYPE_H_
