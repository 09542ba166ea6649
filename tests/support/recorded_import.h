// Records the calls of one imported function of one module and passes them on.
#ifndef ZAREXT_TESTS_SUPPORT_RECORDED_IMPORT_H_
#define ZAREXT_TESTS_SUPPORT_RECORDED_IMPORT_H_

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

#include "support/event_log.h"
#include "support/import_patch.h"

namespace zarext::test {

template <std::size_t size>
struct ImportName {
  // A string literal stands for it. NOLINTNEXTLINE(google-explicit-constructor)
  consteval ImportName(const char (&name)[size]) { std::copy_n(name, size, text); }
  char text[size];
};

// RecordedImport<"CertCloseStore", decltype(CertCloseStore)> close(Module(), "CRYPT32.dll"): every
// call is a platform event "CertCloseStore()", as it is made; between the brackets stands what
// `describe` makes of the arguments. One at a time for a name.
template <ImportName name, typename Function>
class RecordedImport;
template <ImportName name, typename Result, typename... Arguments>
class RecordedImport<name, Result(Arguments...)> {
 public:
  using Describe = std::function<std::string(Arguments...)>;

  RecordedImport(HMODULE module, const char* library, Describe describe = {})
      : patch_(module, library, name.text, &Call) {
    original_ = patch_.template Original<Result(Arguments...)>();
    describe_ = std::move(describe);
  }

  // What the last call gave.
  [[nodiscard]] static const auto& LastResult() { return last_; }

 private:
  static Result Call(Arguments... arguments) {
    const DWORD error = GetLastError();
    RecordEvent(EventKind::kPlatform, nullptr,
                std::string(name.text) + "(" + (describe_ ? describe_(arguments...) : "") + ")");
    SetLastError(error);
    if constexpr (std::is_void_v<Result>) {
      original_(arguments...);
    } else {
      return last_ = original_(arguments...);
    }
  }

  static inline std::conditional_t<std::is_void_v<Result>, int, Result> last_{};
  static inline Result (*original_)(Arguments...) = nullptr;
  static inline Describe describe_;
  ImportPatch patch_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_RECORDED_IMPORT_H_
