// Owner types of handles: one release function for each kind, bound once, so that no function needs
// a clean-up section.
#ifndef ZAREXT_FRAME_HANDLES_H_
#define ZAREXT_FRAME_HANDLES_H_

#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <utility>

namespace zarext {

// Owns one handle, which release(handle) gives back; the value-initialised handle means none.
template <typename Type, auto release>
class UniqueHandle {
 public:
  UniqueHandle() noexcept = default;
  explicit UniqueHandle(Type handle) noexcept : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Detach()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    Reset(other.Detach());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Reset(); }

  [[nodiscard]] Type Get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != Type{}; }

  // Gives the handle away.
  [[nodiscard]] Type Detach() noexcept { return std::exchange(handle_, Type{}); }

  // Releases what is held and holds `handle` instead. What the release throws ends here: nobody
  // could do anything about it, and a function that is left because of something else that was
  // thrown releases too.
  void Reset(Type handle = Type{}) {
    const Type old = std::exchange(handle_, handle);
    if (old == Type{}) {
      return;
    }
    try {
      (void)release(old);
    } catch (...) {
      return;
    }
  }

  // Releases what is held and gives the place that a platform call fills.
  [[nodiscard]] Type* Put() {
    Reset();
    return &handle_;
  }

 private:
  Type handle_{};
};

using UniqueCryptKey = UniqueHandle<HCRYPTKEY, CryptDestroyKey>;
using UniqueCertContext = UniqueHandle<PCCERT_CONTEXT, CertFreeCertificateContext>;
using UniqueModule = UniqueHandle<HMODULE, FreeLibrary>;
using UniqueRegistryKey = UniqueHandle<HKEY, RegCloseKey>;
using UniqueKernelObject = UniqueHandle<HANDLE, CloseHandle>;
using UniqueView = UniqueHandle<void*, UnmapViewOfFile>;
using UniqueLocalMemory = UniqueHandle<HLOCAL, LocalFree>;
using UniqueFile = UniqueHandle<std::FILE*, std::fclose>;

// A store closed with `flags` of CertCloseStore.
template <DWORD flags>
void CloseStore(HCERTSTORE store) {
  CertCloseStore(store, flags);
}
template <DWORD flags>
using UniqueCertStore = UniqueHandle<HCERTSTORE, CloseStore<flags>>;

}  // namespace zarext

#endif  // ZAREXT_FRAME_HANDLES_H_
