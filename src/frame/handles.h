// Owner types for every kind of handle that the module holds: one release function each, bound
// once, so that no function needs a clean-up section.
#ifndef ZAREXT_FRAME_HANDLES_H_
#define ZAREXT_FRAME_HANDLES_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <utility>

namespace zarext {

// Owns one handle, which `release` gives back; the value-initialised handle means none.
template <typename Type, void (*release)(Type)>
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
  void Reset(Type handle = Type{}) noexcept {
    const Type old = std::exchange(handle_, handle);
    if (old == Type{}) {
      return;
    }
    try {
      release(old);
    } catch (...) {
      return;
    }
  }

  // Releases what is held and gives the place that a platform call fills.
  [[nodiscard]] Type* Put() noexcept {
    Reset();
    return &handle_;
  }

 private:
  Type handle_{};
};

inline void DestroyKey(HCRYPTKEY key) { CryptDestroyKey(key); }
using UniqueCryptKey = UniqueHandle<HCRYPTKEY, DestroyKey>;

// A store closed with `flags` of CertCloseStore.
template <DWORD flags>
void CloseStore(HCERTSTORE store) {
  CertCloseStore(store, flags);
}
template <DWORD flags>
using UniqueCertStore = UniqueHandle<HCERTSTORE, CloseStore<flags>>;

inline void FreeContext(PCCERT_CONTEXT context) { CertFreeCertificateContext(context); }
using UniqueCertContext = UniqueHandle<PCCERT_CONTEXT, FreeContext>;

inline void UnloadModule(HMODULE library) { FreeLibrary(library); }
using UniqueModule = UniqueHandle<HMODULE, UnloadModule>;

inline void CloseRegistryKey(HKEY key) { RegCloseKey(key); }
using UniqueRegistryKey = UniqueHandle<HKEY, CloseRegistryKey>;

inline void CloseKernelObject(HANDLE object) { CloseHandle(object); }
using UniqueKernelObject = UniqueHandle<HANDLE, CloseKernelObject>;

inline void UnmapView(void* view) { UnmapViewOfFile(view); }
using UniqueView = UniqueHandle<void*, UnmapView>;

inline void FreeLocalMemory(HLOCAL block) { LocalFree(block); }
using UniqueLocalMemory = UniqueHandle<HLOCAL, FreeLocalMemory>;

inline void CloseFile(std::FILE* file) { (void)std::fclose(file); }
using UniqueFile = UniqueHandle<std::FILE*, CloseFile>;

}  // namespace zarext

#endif  // ZAREXT_FRAME_HANDLES_H_
