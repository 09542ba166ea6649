#include "registration/crypt32_library.h"

namespace zarext {

Crypt32Library::Crypt32Library() : library_(LoadLibraryA("crypt32")) {
  RequireSuccess(static_cast<bool>(library_));
}

void* Crypt32Library::Address(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(library_.Get(), name));
}

}  // namespace zarext
