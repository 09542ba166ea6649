#include "registration/crypt32_library.h"

namespace zarext {
namespace {

HMODULE crypt32 = nullptr;

}  // namespace

Crypt32Library::Crypt32Library() {
  crypt32 = LoadLibraryA("crypt32");
  RequireSuccess(crypt32 != nullptr);
}

Crypt32Library::~Crypt32Library() {
  if (!stayLoaded_) {
    FreeLibrary(crypt32);
  }
}

void* Crypt32Library::Address(const char* name) noexcept {
  return reinterpret_cast<void*>(GetProcAddress(crypt32, name));
}

}  // namespace zarext
