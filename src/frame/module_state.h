// Where the module runs, noted when it is loaded. Nothing here touches the provider.
#ifndef ZAREXT_FRAME_MODULE_STATE_H_
#define ZAREXT_FRAME_MODULE_STATE_H_

#include <windows.h>

namespace zarext {

// The module's own instance handle, as given at attach.
HINSTANCE ModuleInstance() noexcept;

// The path of the host process's executable, as the system gave it at attach (at most 259 octets).
const char* HostPath() noexcept;

}  // namespace zarext

#endif  // ZAREXT_FRAME_MODULE_STATE_H_
