// The provider's side of the fake platform.
#ifndef ZAREXT_TESTS_UNIT_FAKE_PROVIDER_H_
#define ZAREXT_TESTS_UNIT_FAKE_PROVIDER_H_

#include <windows.h>
#include <wincrypt.h>

#include <cstdint>
#include <span>

namespace zarext::test {

// What the provider's pointers lead to; behind its end nothing is readable.
std::span<std::uint8_t> ProviderMemory();

// The acquisition of the functions that the module's binding hands out.
BOOL WINAPI AcquireContext(HCRYPTPROV* context, LPSTR container, DWORD flags, PVOID table);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_FAKE_PROVIDER_H_
