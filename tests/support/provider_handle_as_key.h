// advapi32 refuses a provider handle given as a key (seen on Wine; not tried on Windows). Behind
// this patch of the module's import the provider gets it, as its own context handle; everything
// else goes to advapi32.
#ifndef ZAREXT_TESTS_SUPPORT_PROVIDER_HANDLE_AS_KEY_H_
#define ZAREXT_TESTS_SUPPORT_PROVIDER_HANDLE_AS_KEY_H_

#include <windows.h>

#include <wincrypt.h>

#include "support/import_patch.h"
#include "support/module_under_test.h"
#include "support/scripted_provider.h"

namespace zarext::test {

class ProviderHandleAsKey {
 private:
  static BOOL WINAPI ExportKey(HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD type, DWORD flags,
                               BYTE* data, DWORD* size) {
    constexpr DWORD kProviderMagic = 0xA39E741F;
    if (key == 0 || *reinterpret_cast<const DWORD*>(key) != kProviderMagic) {
      return CryptExportKey(key, exchangeKey, type, flags, data, size);
    }
    const auto* words = reinterpret_cast<const ULONG_PTR*>(key);
    using CPExportKey = BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*);
    const FARPROC function = GetProcAddress(reinterpret_cast<HMODULE>(words[1]), "CPExportKey");
    return reinterpret_cast<CPExportKey*>(reinterpret_cast<void*>(function))(
        words[3], words[3], OwnKey(exchangeKey), type, flags, data, size);
  }

  ImportPatch patch_{Module(), "ADVAPI32.dll", "CryptExportKey", &ExportKey};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_PROVIDER_HANDLE_AS_KEY_H_
