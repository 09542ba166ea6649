// crypt32 as registration and unregistration use it: loaded by name and asked for its registration
// functions, so that the module loads on systems that lack one of them.
#ifndef ZAREXT_REGISTRATION_CRYPT32_LIBRARY_H_
#define ZAREXT_REGISTRATION_CRYPT32_LIBRARY_H_

#include <windows.h>

#include "frame/export_frame.h"
#include "frame/handles.h"

namespace zarext {

// One use of crypt32, from loading to freeing.
class Crypt32Library {
 public:
  // Throws the last error if crypt32 cannot be loaded.
  Crypt32Library();

  // Puts the address of `name` into `function`, null if there is none, and then throws the last
  // error.
  template <typename Function>
  void Find(const char* name, Function*& function) const {
    function = reinterpret_cast<Function*>(Address(name));
    RequireSuccess(function != nullptr);
  }

  // crypt32 keeps the reference that this use took.
  void StayLoaded() noexcept { static_cast<void>(library_.Detach()); }

 private:
  [[nodiscard]] void* Address(const char* name) const;

  UniqueModule library_;
};

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_CRYPT32_LIBRARY_H_
