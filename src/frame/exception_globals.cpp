// Takes the place of the language runtime's own two functions, in the DLL only: programs that link
// parts of the module, as tests do, throw outside of exports as well.
#include <cxxabi.h>

#include "frame/exception_record.h"

namespace __cxxabiv1 {

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
  return reinterpret_cast<__cxa_eh_globals*>(zarext::ExceptionRecord::Current());
}

extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept {
  return reinterpret_cast<__cxa_eh_globals*>(zarext::ExceptionRecord::Current());
}

}  // namespace __cxxabiv1
