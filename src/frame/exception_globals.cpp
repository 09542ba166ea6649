// Replaces the language runtime's own functions. Those allocate a slot at load, and the globals
// with a thread's first exception: without memory they end the process, and each access changes the
// thread's last error. Here the globals lie in the block that the system's loader makes for the
// module in every thread, before any code runs in it. g++ cannot declare such a variable on this
// platform (it emulates thread_local, by allocation), so its address is computed.
#include "frame/exception_globals.h"

#include <cxxabi.h>

#include <cstddef>

// The C runtime's: the module's number among the thread's blocks, and where the section of initial
// values begins.
extern "C" unsigned long
    _tls_index;              // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" char _tls_start;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace zarext {
namespace {

// Only the initial value for every thread, and the offset.
__attribute__((section(".tls$ZAREXT"), used)) ExceptionGlobals initialGlobals = {};

ExceptionGlobals* GlobalsOfThread() noexcept {
  char** blocks = nullptr;
  // Where the thread environment block has its thread-local blocks.
  __asm__("movq %%gs:0x58, %0" : "=r"(blocks));
  const std::ptrdiff_t offset = reinterpret_cast<const char*>(&initialGlobals) - &_tls_start;
  return reinterpret_cast<ExceptionGlobals*>(blocks[_tls_index] + offset);
}

}  // namespace
}  // namespace zarext

namespace __cxxabiv1 {

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
  return reinterpret_cast<__cxa_eh_globals*>(zarext::GlobalsOfThread());
}

extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept {
  return reinterpret_cast<__cxa_eh_globals*>(zarext::GlobalsOfThread());
}

}  // namespace __cxxabiv1
