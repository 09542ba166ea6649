#include "frame/provider_binding.h"

#include <atomic>
#include <cstring>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/text.h"

namespace zarext {
namespace {

constexpr std::size_t kImagePathSize = 256;

struct Binding {
  HMODULE module = nullptr;
  ProviderFunctions functions = {};
};

// Plain storage that nothing destroys: DLLs of the host that are older than this one call the store
// callbacks until the process ends, behind the module's exit routine. The provider's module stays
// for the same reason. Complete once `bound` says so, and never changed from then on.
constinit Binding binding;
constinit std::atomic<bool> bound = false;
constinit SRWLOCK bindingLock = SRWLOCK_INIT;

// Of threads that bind at once the first is heard; the others found the same.
void Bind(const Binding& found) noexcept {
  AcquireSRWLockExclusive(&bindingLock);
  if (!bound.load(std::memory_order_relaxed)) {
    binding = found;
    bound.store(true, std::memory_order_release);
  }
  ReleaseSRWLockExclusive(&bindingLock);
}

bool IsBound() noexcept { return bound.load(std::memory_order_acquire); }

// Reads "Image Path" as it stands: its type is not checked and nothing is expanded, compatibility
// facts for whoever wrote it. False if there is none, or if it fills the buffer without a
// terminator.
bool ReadImagePath(HKEY key, char (&path)[kImagePathSize]) {
  DWORD size = kImagePathSize;
  return RegQueryValueExA(key, "Image Path", nullptr, nullptr, reinterpret_cast<BYTE*>(path),
                          &size) == ERROR_SUCCESS &&
         std::memchr(path, '\0', kImagePathSize) != nullptr;
}

UniqueModule LoadProvider() {
  char keyName[128] = {};
  FormatText(keyName, "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\%s", kProviderName);
  char path[kImagePathSize] = {};
  UniqueRegistryKey key;
  const bool registered =
      RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ, key.Put()) == ERROR_SUCCESS &&
      ReadImagePath(key.Get(), path);
  UniqueModule provider(LoadLibraryA(registered ? path : kDefaultProviderFile));
  if (!provider) {
    ThrowLastError();
  }
  return provider;
}

template <typename Function>
bool LookUp(HMODULE provider, const char* name, Function* slot) {
  *slot = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(provider, name)));
  return *slot != nullptr;
}

}  // namespace

void BindProvider() {
  if (IsBound()) {
    return;
  }
  UniqueModule provider = LoadProvider();
  const HMODULE module = provider.Get();
  Binding complete;
  ProviderFunctions& found = complete.functions;
  // All six are looked up, in this order, also behind a missing one.
  bool hasAll = LookUp(module, "CPAcquireContext", &found.CPAcquireContext);
  hasAll = LookUp(module, "CPReleaseContext", &found.CPReleaseContext) && hasAll;
  hasAll = LookUp(module, "CPGetProvParam", &found.CPGetProvParam) && hasAll;
  hasAll = LookUp(module, "CPGetKeyParam", &found.CPGetKeyParam) && hasAll;
  hasAll = LookUp(module, "CPSetKeyParam", &found.CPSetKeyParam) && hasAll;
  LookUp(module, "CPGetUserKey", &found.CPGetUserKey);
  if (!hasAll) {
    return;
  }
  complete.module = provider.Detach();
  Bind(complete);
}

HMODULE ProviderModule() noexcept { return IsBound() ? binding.module : nullptr; }

const ProviderFunctions& Provider() noexcept { return binding.functions; }

}  // namespace zarext
