// Where the tests run.
#ifndef ZAREXT_TESTS_SUPPORT_PLATFORM_H_
#define ZAREXT_TESTS_SUPPORT_PLATFORM_H_

#include <windows.h>

namespace zarext::test {

// True under Wine, which needs some measures that Windows does not.
inline bool IsWine() {
  return GetProcAddress(GetModuleHandleA("ntdll"), "wine_get_version") != nullptr;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_PLATFORM_H_
