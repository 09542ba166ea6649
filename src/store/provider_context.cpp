#include "store/provider_context.h"

#include "frame/export_frame.h"

namespace zarext {
namespace {

UniqueProviderContext Acquire(char* container, DWORD flags) {
  HCRYPTPROV context = 0;
  // Whatever a refusal leaves behind is no context, and is not released as one.
  return Provider().CPAcquireContext(&context, container, flags, nullptr)
             ? UniqueProviderContext(context)
             : UniqueProviderContext();
}

}  // namespace

void RequireProvider() {
  BindProvider();
  if (ProviderModule() == nullptr) {
    ThrowLastError();
  }
}

UniqueProviderContext AcquireVerifyContext() { return Acquire(nullptr, CRYPT_VERIFYCONTEXT); }

UniqueProviderContext OpenContainer(char* url) { return Acquire(url, CRYPT_SILENT); }

}  // namespace zarext
