// The lazy binding of the provider module, whose entry points the store code calls directly.
#ifndef ZAREXT_FRAME_PROVIDER_BINDING_H_
#define ZAREXT_FRAME_PROVIDER_BINDING_H_

#include <windows.h>
#include <wincrypt.h>

namespace zarext {

inline constexpr char kProviderName[] = "Zarvel CSP";
// The file of a provider whose key names none.
inline constexpr char kDefaultProviderFile[] = "cpzarvel.dll";

// The provider's service-provider functions, with the signatures that the platform publishes for
// them, in the order in which they are looked up.
struct ProviderFunctions {
  BOOL(WINAPI* CPAcquireContext)(HCRYPTPROV*, LPSTR, DWORD, PVOID);
  BOOL(WINAPI* CPReleaseContext)(HCRYPTPROV, DWORD);
  BOOL(WINAPI* CPGetProvParam)(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD);
  BOOL(WINAPI* CPGetKeyParam)(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD);
  BOOL(WINAPI* CPSetKeyParam)(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD);
  BOOL(WINAPI* CPGetUserKey)(HCRYPTPROV, DWORD, HCRYPTKEY*);  // null if the provider has none
};

// Binds the provider module unless it is bound: the file named by the registered provider's
// "Image Path", or "cpzarvel.dll". Throws the last error as an ErrorCode if the file cannot be
// loaded. A module without one of the first five functions is freed again, no error is thrown, and
// the next call tries again; one that only lacks CPGetUserKey stays bound.
// Once bound the module is never freed. Threads may bind at once.
void BindProvider();

// The bound module, or null.
HMODULE ProviderModule() noexcept;

// The functions of the bound module; only to be used while ProviderModule() is not null.
const ProviderFunctions& Provider() noexcept;

}  // namespace zarext

#endif  // ZAREXT_FRAME_PROVIDER_BINDING_H_
