// Where the tests run.
#ifndef ZAREXT_TESTS_SUPPORT_PLATFORM_H_
#define ZAREXT_TESTS_SUPPORT_PLATFORM_H_

#include <windows.h>

#include <stdexcept>

namespace zarext::test {

// True under Wine, which needs some measures that Windows does not.
inline bool IsWine() {
  return GetProcAddress(GetModuleHandleA("ntdll"), "wine_get_version") != nullptr;
}

// Whether the platform's gaps are to be filled: under Wine, unless ZAREXT_WITHOUT_PATCHES is set,
// with which its refusals are seen as they are.
inline bool PatchesWanted() {
  return IsWine() && GetEnvironmentVariableA("ZAREXT_WITHOUT_PATCHES", nullptr, 0) == 0;
}

// Thrown by what prepares the tests of a program, where the platform refuses what the tests need,
// and is known to.
class PlatformRefuses : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
// The exit code of a program that ran no test for that reason.
inline constexpr unsigned kRefusedExitCode = 77;

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_PLATFORM_H_
