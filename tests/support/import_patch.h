// Replaces one imported function of one module, as long as the object lives.
#ifndef ZAREXT_TESTS_SUPPORT_IMPORT_PATCH_H_
#define ZAREXT_TESTS_SUPPORT_IMPORT_PATCH_H_

#include <windows.h>

namespace zarext::test {

class ImportPatch {
 public:
  // `library` as in the import table, e.g. "KERNEL32.dll", in any case. Throws if the module does
  // not import the function.
  ImportPatch(HMODULE module, const char* library, const char* function, void* replacement);
  template <typename Function>
  ImportPatch(HMODULE module, const char* library, const char* function, Function* replacement)
      : ImportPatch(module, library, function, reinterpret_cast<void*>(replacement)) {}
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  // What stood there before.
  template <typename Function>
  [[nodiscard]] Function* Original() const {
    return reinterpret_cast<Function*>(original_);
  }

 private:
  ULONG_PTR* slot_;
  ULONG_PTR original_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_IMPORT_PATCH_H_
