// patches.dll brings the framework patches into regsvr32: named before another DLL on the same
// command line, it patches the process that then registers that DLL.
#include <windows.h>

#include "support/framework_patches/framework_patches.h"

extern "C" {

HRESULT WINAPI DllRegisterServer() { return S_OK; }
HRESULT WINAPI DllUnregisterServer() { return S_OK; }

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason != DLL_PROCESS_ATTACH) {
    return TRUE;
  }
  // The patched functions jump into this module, so it stays.
  HMODULE pinned = nullptr;
  return GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            reinterpret_cast<LPCSTR>(instance), &pinned) != FALSE &&
         zarext::test::ApplyFrameworkPatches();
}

}  // extern "C"
