// The physical store under which the user's "MY" shows the certificates of the provider.
#ifndef ZAREXT_REGISTRATION_PHYSICAL_STORE_H_
#define ZAREXT_REGISTRATION_PHYSICAL_STORE_H_

#include <windows.h>
#include <wincrypt.h>

#include <cstddef>
#include <cstring>

#include "frame/encoding_type.h"
#include "registration/function_bindings.h"

namespace zarext::physical_store {

// Its name, the provider that opens it and its parameters are the store provider's name.
inline constexpr wchar_t kSystemStore[] = L"MY";
inline constexpr DWORD kLocation = CERT_SYSTEM_STORE_CURRENT_USER;
inline constexpr DWORD kOpenEncodingType = kBothEncodings;
// The location bits of a service's store, although the store is the current user's: whatever lists
// physical stores shows them.
inline constexpr DWORD kOpenFlags = CERT_SYSTEM_STORE_SERVICES;
// The parameters are narrow characters, without the zero.
inline constexpr DWORD kParametersSize = sizeof kStoreProvider - 1;
inline constexpr DWORD kFlags = CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG;
inline constexpr DWORD kPriority = 1;

static_assert(sizeof(CERT_PHYSICAL_STORE_INFO) == 48);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, pszOpenStoreProvider) == 8);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwOpenEncodingType) == 16);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwOpenFlags) == 20);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, OpenParameters) == 24);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwFlags) == 40);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwPriority) == 44);

// Registers it for the user who runs, by the framework's function: the module looks that up at run
// time, the tool links to it. FALSE with the function's last error.
inline BOOL Register(decltype(CertRegisterPhysicalStore)* registerPhysicalStore) {
  char provider[sizeof kStoreProvider];
  std::memcpy(provider, kStoreProvider, sizeof provider);
  CERT_PHYSICAL_STORE_INFO info = {};
  info.cbSize = sizeof info;
  info.pszOpenStoreProvider = provider;
  info.dwOpenEncodingType = kOpenEncodingType;
  info.dwOpenFlags = kOpenFlags;
  info.OpenParameters = {kParametersSize, reinterpret_cast<BYTE*>(provider)};
  info.dwFlags = kFlags;
  info.dwPriority = kPriority;
  return registerPhysicalStore(kSystemStore, kLocation, kStoreProviderWide, &info, nullptr);
}

}  // namespace zarext::physical_store

#endif  // ZAREXT_REGISTRATION_PHYSICAL_STORE_H_
