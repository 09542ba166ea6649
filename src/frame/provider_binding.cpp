#include "frame/provider_binding.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

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

// Null until a module is bound, then the same for good.
class BindingSlot {
 public:
  BindingSlot() = default;
  // The provider's module itself stays: a compatibility fact.
  ~BindingSlot() { const std::unique_ptr<const Binding> last(Get()); }
  BindingSlot(const BindingSlot&) = delete;
  BindingSlot& operator=(const BindingSlot&) = delete;

  [[nodiscard]] const Binding* Get() const noexcept {
    return binding_.load(std::memory_order_acquire);
  }
  // Of threads that bind at once the first is heard; the others found the same.
  void Fill(std::unique_ptr<const Binding> binding) noexcept {
    const Binding* none = nullptr;
    if (binding_.compare_exchange_strong(none, binding.get(), std::memory_order_acq_rel)) {
      static_cast<void>(binding.release());
    }
  }

 private:
  std::atomic<const Binding*> binding_{nullptr};
};

BindingSlot bindingSlot;

// Reads "Image Path" as it stands: its type is not checked and nothing is expanded, compatibility
// facts for whoever wrote it. False if there is none, or if it fills the buffer without a
// terminator.
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
  if (bindingSlot.Get() != nullptr) {
    return;
  }
  UniqueModule provider = LoadProvider();
  const HMODULE module = provider.Get();
  auto binding = std::make_unique<Binding>();
  ProviderFunctions& found = binding->functions;
  // All six are looked up, in this order, also behind a missing one.
  bool complete = LookUp(module, "CPAcquireContext", &found.CPAcquireContext);
  complete = LookUp(module, "CPReleaseContext", &found.CPReleaseContext) && complete;
  complete = LookUp(module, "CPGetProvParam", &found.CPGetProvParam) && complete;
  complete = LookUp(module, "CPGetKeyParam", &found.CPGetKeyParam) && complete;
  complete = LookUp(module, "CPSetKeyParam", &found.CPSetKeyParam) && complete;
  LookUp(module, "CPGetUserKey", &found.CPGetUserKey);
  if (!complete) {
    return;
  }
  binding->module = provider.Detach();
  bindingSlot.Fill(std::move(binding));
}

HMODULE ProviderModule() noexcept {
  const Binding* const binding = bindingSlot.Get();
  return binding != nullptr ? binding->module : nullptr;
}

const ProviderFunctions& Provider() noexcept { return bindingSlot.Get()->functions; }

}  // namespace zarext
