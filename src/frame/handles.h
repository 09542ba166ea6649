// Owner types for every kind of handle that the module holds: one release function each, bound
// once, so that no function needs a clean-up section.
#ifndef ZAREXT_FRAME_HANDLES_H_
#define ZAREXT_FRAME_HANDLES_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <utility>

namespace zarext {

// Owns one handle; the value-initialised handle means none. `Traits` has `Type` and `Release`.
template <typename Traits>
class UniqueHandle {
 public:
  using Type = typename Traits::Type;

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
      Traits::Release(old);
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

struct CryptKeyTraits {
  using Type = HCRYPTKEY;
  static void Release(Type key) { CryptDestroyKey(key); }
};
using UniqueCryptKey = UniqueHandle<CryptKeyTraits>;

// A store closed with `flags` of CertCloseStore.
template <DWORD flags>
struct CertStoreTraits {
  using Type = HCERTSTORE;
  static void Release(Type store) { CertCloseStore(store, flags); }
};
template <DWORD flags>
using UniqueCertStore = UniqueHandle<CertStoreTraits<flags>>;

struct CertContextTraits {
  using Type = PCCERT_CONTEXT;
  static void Release(Type context) { CertFreeCertificateContext(context); }
};
using UniqueCertContext = UniqueHandle<CertContextTraits>;

struct ModuleTraits {
  using Type = HMODULE;
  static void Release(Type library) { FreeLibrary(library); }
};
using UniqueModule = UniqueHandle<ModuleTraits>;

struct RegistryKeyTraits {
  using Type = HKEY;
  static void Release(Type key) { RegCloseKey(key); }
};
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;

struct KernelObjectTraits {
  using Type = HANDLE;
  static void Release(Type handle) { CloseHandle(handle); }
};
using UniqueKernelObject = UniqueHandle<KernelObjectTraits>;

// A mapped view of a section.
struct ViewTraits {
  using Type = void*;
  static void Release(Type view) { UnmapViewOfFile(view); }
};
using UniqueView = UniqueHandle<ViewTraits>;

// A block of LocalAlloc.
struct LocalMemoryTraits {
  using Type = HLOCAL;
  static void Release(Type block) { LocalFree(block); }
};
using UniqueLocalMemory = UniqueHandle<LocalMemoryTraits>;

struct FileTraits {
  using Type = std::FILE*;
  static void Release(Type file) { (void)std::fclose(file); }
};
using UniqueFile = UniqueHandle<FileTraits>;

}  // namespace zarext

#endif  // ZAREXT_FRAME_HANDLES_H_
