#include "frame/provider_binding.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/text.h"

namespace zarext {
namespace {

constexpr char kDefaultProviderFile[] = "cpzarvel.dll";
constexpr std::size_t kImagePathSize = 256;

ProviderFunctions functions;
// Written after the functions: who sees the module sees them.
std::atomic<HMODULE> boundModule{nullptr};

// Reads "Image Path" as it stands: no type check, nothing expanded. False if there is none, or if
// it fills the buffer without a terminator.
bool ReadImagePath(HKEY key, char (&path)[kImagePathSize]) noexcept {
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
bool LookUp(HMODULE provider, const char* name, Function* slot) noexcept {
  *slot = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(provider, name)));
  return *slot != nullptr;
}

}  // namespace

void BindProvider() {
  if (ProviderModule() != nullptr) {
    return;
  }
  UniqueModule provider = LoadProvider();
  const HMODULE handle = provider.Get();
  ProviderFunctions found = {};
  // Bitwise: all six are looked up, in this order, also behind a missing one.
  const bool complete =
      static_cast<int>(LookUp(handle, "CPAcquireContext", &found.CPAcquireContext)) &
      static_cast<int>(LookUp(handle, "CPReleaseContext", &found.CPReleaseContext)) &
      static_cast<int>(LookUp(handle, "CPGetProvParam", &found.CPGetProvParam)) &
      static_cast<int>(LookUp(handle, "CPGetKeyParam", &found.CPGetKeyParam)) &
      static_cast<int>(LookUp(handle, "CPSetKeyParam", &found.CPSetKeyParam));
  LookUp(handle, "CPGetUserKey", &found.CPGetUserKey);
  if (!complete) {
    return;
  }
  functions = found;
  boundModule.store(provider.Detach(), std::memory_order_release);
}

HMODULE ProviderModule() noexcept { return boundModule.load(std::memory_order_acquire); }

const ProviderFunctions& Provider() noexcept { return functions; }

}  // namespace zarext
