#include "frame/provider_binding.h"

#include <array>
#include <atomic>
#include <cstring>
#include <optional>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/text.h"

namespace zarext {
namespace {

// Nothing destroys these: a DLL of the host that is unloaded later than this one may call the store
// callbacks behind the module's exit routine. For the same reason the provider's module is never
// freed. The functions are complete once the module is set, and are not changed afterwards.
constinit ProviderFunctions boundFunctions = {};
constinit std::atomic<HMODULE> boundModule = nullptr;
constinit SRWLOCK bindingLock = SRWLOCK_INIT;

// If several threads bind at once, the first result is kept; the others are equal.
void Bind(HMODULE module, const ProviderFunctions& found) {
  AcquireSRWLockExclusive(&bindingLock);
  if (boundModule.load(std::memory_order_relaxed) == nullptr) {
    boundFunctions = found;
    boundModule.store(module, std::memory_order_release);
  }
  ReleaseSRWLockExclusive(&bindingLock);
}

using ImagePath = std::array<char, 256>;

// "Image Path" as it stands: its type is not checked and nothing is expanded, whatever the
// provider's installer wrote. None if it is missing or fills the buffer without a terminator.
std::optional<ImagePath> ReadImagePath(HKEY key) {
  ImagePath path = {};
  DWORD size = path.size();
  const bool isRead =
      RegQueryValueExA(key, "Image Path", nullptr, nullptr, reinterpret_cast<BYTE*>(path.data()),
                       &size) == ERROR_SUCCESS;
  return isRead && std::memchr(path.data(), '\0', path.size()) != nullptr ? std::optional(path)
                                                                          : std::nullopt;
}

UniqueModule LoadProvider() {
  char keyName[128] = {};
  FormatText(keyName, "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\%s", kProviderName);
  UniqueRegistryKey key;
  std::optional<ImagePath> path;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ, key.Put()) == ERROR_SUCCESS) {
    path = ReadImagePath(key.Get());
  }
  UniqueModule provider(LoadLibraryA(path ? path->data() : kDefaultProviderFile));
  RequireSuccess(static_cast<bool>(provider));
  return provider;
}

// Puts the function of that name into the slot, null if there is none.
template <typename Function>
void LookUp(HMODULE provider, const char* name, Function*& slot) {
  slot = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(provider, name)));
}

// CPGetUserKey may be missing: providers without it are in use.
bool IsComplete(const ProviderFunctions& found) {
  return found.CPAcquireContext != nullptr && found.CPReleaseContext != nullptr &&
         found.CPGetProvParam != nullptr && found.CPGetKeyParam != nullptr &&
         found.CPSetKeyParam != nullptr;
}

}  // namespace

void BindProvider() {
  if (ProviderModule() != nullptr) {
    return;
  }
  UniqueModule provider = LoadProvider();
  const HMODULE module = provider.Get();
  ProviderFunctions found = {};
  LookUp(module, "CPAcquireContext", found.CPAcquireContext);
  LookUp(module, "CPReleaseContext", found.CPReleaseContext);
  LookUp(module, "CPGetProvParam", found.CPGetProvParam);
  LookUp(module, "CPGetKeyParam", found.CPGetKeyParam);
  LookUp(module, "CPSetKeyParam", found.CPSetKeyParam);
  LookUp(module, "CPGetUserKey", found.CPGetUserKey);
  if (IsComplete(found)) {
    Bind(provider.Detach(), found);
  }
}

HMODULE ProviderModule() noexcept { return boundModule.load(std::memory_order_acquire); }

const ProviderFunctions& Provider() noexcept { return boundFunctions; }

}  // namespace zarext
