// Where this DLL lies, as the framework is told.
#ifndef ZAREXT_REGISTRATION_MODULE_PATH_H_
#define ZAREXT_REGISTRATION_MODULE_PATH_H_

#include <windows.h>

#include <array>

namespace zarext {

// Characters of a path with its terminating zero; a longer path is cut.
inline constexpr DWORD kModulePathSize = 260;
using WideModulePath = std::array<wchar_t, kModulePathSize>;

// The module's full path, read in the ANSI code page and then widened: a folder whose name that
// code page cannot spell is registered with replacement characters, and the framework does not find
// it. Throws the last error of the call that fails, std::bad_alloc without memory.
WideModulePath ReadModulePath();

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_MODULE_PATH_H_
