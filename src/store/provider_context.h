// Contexts of the provider module itself, which the store code calls directly, past the platform.
#ifndef ZAREXT_STORE_PROVIDER_CONTEXT_H_
#define ZAREXT_STORE_PROVIDER_CONTEXT_H_

#include <optional>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/provider_binding.h"

namespace zarext {

// Any handle can be a context, also 0.
inline void ReleaseContext(std::optional<HCRYPTPROV> context) {
  Provider().CPReleaseContext(*context, 0);
}
using UniqueProviderContext = UniqueHandle<std::optional<HCRYPTPROV>, ReleaseContext>;

// Binds the provider module. If it stays unbound, throws as an ErrorCode what the platform left as
// the last error when it freed the incomplete module.
inline void RequireProvider() {
  BindProvider();
  RequireSuccess(ProviderModule() != nullptr);
}

// A context of the bound module; none if the provider refuses. What a refusal writes all the same
// is no context, and is not released as one.
inline UniqueProviderContext AcquireContext(char* container, DWORD flags) {
  HCRYPTPROV context = 0;
  return Provider().CPAcquireContext(&context, container, flags, nullptr)
             ? UniqueProviderContext(context)
             : UniqueProviderContext();
}

// The context of the container `url`, without any dialogue.
inline UniqueProviderContext OpenContainer(char* url) { return AcquireContext(url, CRYPT_SILENT); }

}  // namespace zarext

#endif  // ZAREXT_STORE_PROVIDER_CONTEXT_H_
