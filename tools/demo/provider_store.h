// The store "Zarvel Store Provider" as an application uses it.
#ifndef ZAREXT_TOOLS_DEMO_PROVIDER_STORE_H_
#define ZAREXT_TOOLS_DEMO_PROVIDER_STORE_H_

#include <windows.h>

#include <map>
#include <string>

#include "demo/story.h"
#include "frame/handles.h"

namespace zarext::demo {

// A certificate and where it says that its key is.
struct Entry {
  Octets encoded;
  std::string container;
  std::string provider;
  DWORD providerType;
  DWORD keySpec;
};
// By the subject's name.
using Listing = std::map<std::string, Entry>;

// Told as calls.
UniqueCertStore<0> OpenStore();
void CloseStore(UniqueCertStore<0> store);
Listing List(const UniqueCertStore<0>& store);

}  // namespace zarext::demo

#endif  // ZAREXT_TOOLS_DEMO_PROVIDER_STORE_H_
