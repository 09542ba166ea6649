// cpzarvel.dll, the development provider, behind the real advapi32.
#ifndef ZAREXT_TESTS_SUPPORT_DEV_PROVIDER_H_
#define ZAREXT_TESTS_SUPPORT_DEV_PROVIDER_H_

#include <windows.h>

#include <stdexcept>
#include <string>

namespace zarext::test {

// Path of cpzarvel.dll, which lies beside the test program.
std::string DevProviderPath();

// Registers the DLL as "Zarvel CSP" (type 25, and the default of that type) and "Zarvel CSP RSA"
// (type 1) in the prefix of the test, loads it and keeps it: its last context would unload it.
HMODULE UseDevProvider();

// An entry point of the DLL, called as the module calls it, without advapi32 in between:
// DevProviderEntry<BOOL WINAPI(HCRYPTPROV, DWORD)>("CPReleaseContext").
template <typename Function>
Function* DevProviderEntry(const char* name) {
  const FARPROC function = GetProcAddress(UseDevProvider(), name);
  if (function == nullptr) throw std::runtime_error(std::string("no entry point ") + name);
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
}

// A container folder of its own for the provider, as ZARVEL_DEV_HOME; emptied and removed with the
// object, when the variable gets its old value. Child processes inherit it.
class DevHome {
 public:
  DevHome();
  ~DevHome();
  DevHome(const DevHome&) = delete;
  DevHome& operator=(const DevHome&) = delete;
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::string old_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_DEV_PROVIDER_H_
