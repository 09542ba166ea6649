#include "frame/module_state.h"

#include "frame/trace.h"

namespace zarext {
namespace {

constexpr DWORD kHostPathSize = 260;

HINSTANCE moduleInstance = nullptr;
char hostPath[kHostPathSize];

}  // namespace

HINSTANCE ModuleInstance() noexcept { return moduleInstance; }

const char* HostPath() noexcept { return hostPath; }

}  // namespace zarext

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  using namespace zarext;
  if (reason == DLL_PROCESS_ATTACH) {
    moduleInstance = instance;
    GetModuleFileNameA(GetModuleHandleA(nullptr), hostPath, kHostPathSize);
    // A longer path arrives cut, on older systems without a terminator.
    hostPath[kHostPathSize - 1] = '\0';
    Trace("EXT : DLL_PROCESS_ATTACH : FilePath=%s (id=%x).", hostPath, Hex(GetCurrentThreadId()));
  }
  return TRUE;
}
