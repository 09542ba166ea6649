#include "registration/module_path.h"

#include <memory>

#include "frame/module_state.h"
#include "registration/crypt32_library.h"

namespace zarext {

WideModulePath ReadModulePath() {
  const auto narrow = std::make_unique<char[]>(kModulePathSize);
  RequireSuccess(GetModuleFileNameA(ModuleInstance(), narrow.get(), kModulePathSize) != 0);
  // Older systems fill the buffer with a cut path and leave no room for the zero.
  narrow[kModulePathSize - 1] = '\0';
  WideModulePath wide{};
  RequireSuccess(MultiByteToWideChar(CP_ACP, 0, narrow.get(), -1, wide.data(), kModulePathSize) !=
                 0);
  return wide;
}

}  // namespace zarext
