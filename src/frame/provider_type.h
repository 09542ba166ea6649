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

// Reads PP_PROVTYPE of a context; false with the last error set if the provider does not say.
inline bool ReadProviderType(HCRYPTPROV hCryptProv, DWORD* type) {
  DWORD size = sizeof *type;
  return CryptGetProvParam(hCryptProv, PP_PROVTYPE, reinterpret_cast<BYTE*>(type), &size, 0) !=
         FALSE;
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_PROVIDER_TYPE_H_
