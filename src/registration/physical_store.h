// The physical store under which the user's "MY" shows the certificates of the provider.
#ifndef ZAREXT_REGISTRATION_PHYSICAL_STORE_H_
#define ZAREXT_REGISTRATION_PHYSICAL_STORE_H_

#include <windows.h>

#include <wincrypt.h>

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

}  // namespace zarext::physical_store

#endif  // ZAREXT_REGISTRATION_PHYSICAL_STORE_H_
