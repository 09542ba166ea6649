// One import of the module as a failure point: how it is patched, refused and booked.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_IMPORT_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_IMPORT_H_

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "contract/anomaly_loop.h"
#include "support/import_patch.h"

namespace zarext::test {

inline constexpr char kAdvapi[] = "ADVAPI32.dll";
inline constexpr char kCrypt[] = "CRYPT32.dll";
inline constexpr char kKernel[] = "KERNEL32.dll";
inline constexpr char kRuntime[] = "msvcrt.dll";

using Patches = std::vector<std::unique_ptr<ImportPatch>>;

// The functions that the module imports from `library`, with their slots.
std::map<std::string, const ULONG_PTR*> ImportsOf(HMODULE module, const char* library);

template <std::size_t size>
struct Name {
  consteval Name(const char (&name)[size]) { std::copy_n(name, size, text); }
  char text[size];
};

// One import. `Book` gets result and arguments of each call that was made, `Refuse` the arguments
// of the one that is to fail, and gives its result.
template <Name name, typename Signature>
class Import;
template <Name name, typename Result, typename... Arguments>
class Import<name, Result(Arguments...)> {
 public:
  using Function = Result(Arguments...);
  using BookFunction = void(Result, Arguments...);

  static void Patch(Patches& patches, HMODULE module, const char* library, Function* refuse,
                    BookFunction* book = nullptr) {
    if (!ImportsOf(module, library).contains(name.text)) {
      return;
    }
    refuse_ = refuse;
    book_ = book;
    patches.push_back(std::make_unique<ImportPatch>(module, library, name.text, &Call));
    original_ = patches.back()->template Original<Function>();
  }

  static Result Original(Arguments... arguments) { return original_(arguments...); }

  // Releases fail only in what they report.
  static Result ReleaseAndRefuse(Arguments... arguments) {
    const Result result = original_(arguments...);
    if (book_ != nullptr) {
      book_(result, arguments...);
    }
    SetLastError(kInjectedError);
    return Result{};
  }

 private:
  static Result Call(Arguments... arguments) {
    if (AnomalyLoop::Fails(name.text)) {
      SetLastError(kInjectedError);
      const Result result = refuse_(arguments...);
      AnomalyLoop::EndFailure();
      return result;
    }
    const Result result = original_(arguments...);
    if (book_ != nullptr) {
      book_(result, arguments...);
    }
    return result;
  }

  static inline Function* original_ = nullptr;
  static inline Function* refuse_ = nullptr;
  static inline BookFunction* book_ = nullptr;
};

// The usual refusal: FALSE, null or 0.
template <typename Signature>
struct Refusal;
template <typename Result, typename... Arguments>
struct Refusal<Result(Arguments...)> {
  static Result Zero(Arguments...) { return Result{}; }
};

template <Name name, typename Signature>
void Call(Patches& patches, HMODULE module, const char* library,
          typename Import<name, Signature>::BookFunction* book = nullptr) {
  Import<name, Signature>::Patch(patches, module, library, &Refusal<Signature>::Zero, book);
}

template <Name name, typename Signature>
void Release(Patches& patches, HMODULE module, const char* library,
             typename Import<name, Signature>::BookFunction* book = nullptr) {
  Import<name, Signature>::Patch(patches, module, library,
                                 &Import<name, Signature>::ReleaseAndRefuse, book);
}

// Books something taken or given back, where that `happened`.
inline void BookIf(bool happened, const char* kind, int change) {
  if (happened) {
    AnomalyLoop::Book(kind, change);
  }
}

// The imports of advapi32 and crypt32, through which the module reaches providers, stores and
// certificates.
void PatchProviderCalls(Patches& patches, HMODULE module);
void PatchStores(Patches& patches, HMODULE module);
void PatchContexts(Patches& patches, HMODULE module);

// The imports of kernel32 and of the C runtime.
void PatchKernel(Patches& patches, HMODULE module);
void PatchMemory(Patches& patches, HMODULE module);
void PatchSections(Patches& patches, HMODULE module);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_IMPORT_H_
