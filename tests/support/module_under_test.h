// ZAREXT.dll as a caller has it.
#ifndef ZAREXT_TESTS_SUPPORT_MODULE_UNDER_TEST_H_
#define ZAREXT_TESTS_SUPPORT_MODULE_UNDER_TEST_H_

#include <windows.h>

#include <stdexcept>
#include <string>

namespace zarext::test {

// The DLL from the test program's folder, loaded on first use and kept: the framework loads and
// frees it around every call, and its static state would go with the last reference.
inline HMODULE Module() {
  static const HMODULE module = [] {
    const HMODULE loaded = LoadLibraryA("ZAREXT.dll");
    if (loaded == nullptr) {
      throw std::runtime_error("ZAREXT.dll cannot be loaded: " + std::to_string(GetLastError()));
    }
    return loaded;
  }();
  return module;
}

// An export by name: Export<BOOL WINAPI(DWORD)>("ZarName"); also of another copy of the DLL.
template <typename Function>
Function* Export(HMODULE module, const char* name) {
  const FARPROC function = GetProcAddress(module, name);
  if (function == nullptr) {
    throw std::runtime_error(std::string("no export ") + name);
  }
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
}
template <typename Function>
Function* Export(const char* name) {
  return Export<Function>(Module(), name);
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_MODULE_UNDER_TEST_H_
