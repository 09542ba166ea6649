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

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_REGSVR32_H_
