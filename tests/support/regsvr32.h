// The user's own registration tool.
#ifndef ZAREXT_TESTS_SUPPORT_REGSVR32_H_
#define ZAREXT_TESTS_SUPPORT_REGSVR32_H_

#include <windows.h>

#include <string>

namespace zarext::test {

// The exit code of regsvr32 /s with these arguments; 259 if it does not end.
DWORD Regsvr32(const std::string& arguments);

// Path of a file beside the test program, in quotes.
std::string QuotedInProgramFolder(const char* file);

// "patches.dll ZAREXT.dll" with their paths, or the module alone where nothing needs patching.
std::string PatchedModule();
// The first half of it: empty, or the patches and a blank.
std::string Patches();

// regsvr32's exit code where the module reports a failure.
inline constexpr DWORD kRegistrationFailed = 5;

// Registers the module with what the platform needs; throws where that fails, PlatformRefuses where
// it is known to.
void RegisterPatchedModule();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_REGSVR32_H_
