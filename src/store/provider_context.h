// Contexts of the provider module itself, which the store code calls directly, past the platform.
#ifndef ZAREXT_STORE_PROVIDER_CONTEXT_H_
#define ZAREXT_STORE_PROVIDER_CONTEXT_H_

#include <windows.h>

#include <wincrypt.h>

#include <optional>

#include "frame/handles.h"
#include "frame/provider_binding.h"

namespace zarext {

// Any handle can be a context, also 0. Usable while the module is bound.
struct ProviderContextTraits {
  using Type = std::optional<HCRYPTPROV>;
  static void Release(Type context) { Provider().CPReleaseContext(*context, 0); }
};
using UniqueProviderContext = UniqueHandle<ProviderContextTraits>;

// Binds the provider module; throws the last error as an ErrorCode if it stays unbound.
void RequireProvider();

// A context without a container, for the listings; none if the provider refuses.
UniqueProviderContext AcquireVerifyContext();

// The context of the container `url`, without any dialogue; none if the provider refuses.
UniqueProviderContext OpenContainer(char* url);

}  // namespace zarext

#endif  // ZAREXT_STORE_PROVIDER_CONTEXT_H_
