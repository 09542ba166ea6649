#include "frame/module_state.h"

#include <cstdlib>
#include <new>

#include "frame/trace.h"

namespace zarext {
namespace {

constexpr DWORD kHostPathSize = 260;

HINSTANCE moduleInstance = nullptr;
char hostPath[kHostPathSize];

// Makes the objects at load, before the attach notification.
[[maybe_unused]] const StoreObjects& atLoad = StoreObjects::Instance();

}  // namespace

StoreObjects& StoreObjects::Instance() noexcept {
  alignas(StoreObjects) static unsigned char storage[sizeof(StoreObjects)];
  static StoreObjects& instance = *new (storage) StoreObjects;
  return instance;
}

StoreObjects::StoreObjects() noexcept
    : mutex_(CreateMutexA(nullptr, FALSE, kStoreMutexName)),
      mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                  kStoreMappingSize, kStoreMappingName)) {
  InitializeCriticalSection(&openSection_);
  std::atexit(&Exit);
}

void StoreObjects::Exit() {
  StoreObjects& objects = Instance();
  objects.mutex_.Reset();
  DeleteCriticalSection(&objects.openSection_);
  objects.exited_ = true;
}

void StoreObjects::EnterOpenSection() noexcept {
  if (!exited_) {
    EnterCriticalSection(&openSection_);
  }
}

void StoreObjects::LeaveOpenSection() noexcept {
  if (!exited_) {
    LeaveCriticalSection(&openSection_);
  }
}

HINSTANCE ModuleInstance() noexcept { return moduleInstance; }

const char* HostPath() noexcept { return hostPath; }

}  // namespace zarext

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  using namespace zarext;
  if (reason != DLL_PROCESS_ATTACH) {
    return TRUE;
  }
  moduleInstance = instance;
  GetModuleFileNameA(GetModuleHandleA(nullptr), hostPath, kHostPathSize);
  // A longer path arrives cut, on older systems without a terminator.
  hostPath[kHostPathSize - 1] = '\0';
  Trace("EXT : DLL_PROCESS_ATTACH : FilePath=%s (id=%x).", hostPath, Hex(GetCurrentThreadId()));
  return TRUE;
}
