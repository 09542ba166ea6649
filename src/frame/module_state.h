// What the module creates when it is loaded: the objects that guard the shared container cache,
// and where it runs. Nothing here touches the provider.
#ifndef ZAREXT_FRAME_MODULE_STATE_H_
#define ZAREXT_FRAME_MODULE_STATE_H_

#include <windows.h>

#include "frame/handles.h"

namespace zarext {

inline constexpr char kStoreMutexName[] = "$zarvel_csp_store_mutex_name";
inline constexpr char kStoreMappingName[] = "$zarvel_csp_store_map_name";
// Size of the shared section in octets.
inline constexpr DWORD kStoreMappingSize = 0x40000;

// The mutex, the section and the store-open critical section, created in this order when the module
// is loaded. A handle that could not be made is null; whoever uses it tests it. The module's exit
// routine closes the mutex and deletes the critical section. The section's handle stays open until
// the process ends, so that the cached listing outlives the module: a compatibility fact. The
// object itself is never destroyed: older DLLs of the host call the module until the process ends.
class StoreObjects {
 public:
  // The one instance. A static object that uses it in its constructor is destroyed before the exit
  // routine.
  static StoreObjects& Instance() noexcept;

  StoreObjects(const StoreObjects&) = delete;
  StoreObjects& operator=(const StoreObjects&) = delete;

  // Null behind the exit routine.
  [[nodiscard]] HANDLE Mutex() const noexcept { return mutex_.Get(); }
  [[nodiscard]] HANDLE Mapping() const noexcept { return mapping_; }
  // The critical section serialises store opens within the process; it is taken before the mutex.
  // Behind the exit routine, where no other thread is left, these do nothing.
  void EnterOpenSection() noexcept;
  void LeaveOpenSection() noexcept;

 private:
  StoreObjects() noexcept;
  static void Exit();

  UniqueKernelObject mutex_;
  HANDLE mapping_;
  CRITICAL_SECTION openSection_;
  bool exited_ = false;
};

// The module's own instance handle, as given at attach.
HINSTANCE ModuleInstance() noexcept;

// The path of the host process's executable, as the system gave it at attach (at most 259 octets).
const char* HostPath() noexcept;

}  // namespace zarext

#endif  // ZAREXT_FRAME_MODULE_STATE_H_
