// What code compiled with -fstack-protector-strong needs: the guard value, and the reaction to a
// damaged one. The toolchain's own (libssp) acquires a cryptographic provider for its value while
// the DLL is loaded, under the loader lock; this one asks for nothing that could load a library.
#include <windows.h>

#include <cstdint>

namespace {

// Mixes what differs from process to process and from load to load: where the stack and the module
// lie (both random with high entropy), the clocks, the thread.
std::uintptr_t MakeGuard() {
  FILETIME now = {};
  GetSystemTimeAsFileTime(&now);
  const std::uintptr_t sources[] = {
      reinterpret_cast<std::uintptr_t>(&now),
      reinterpret_cast<std::uintptr_t>(&MakeGuard),
      (static_cast<std::uintptr_t>(now.dwHighDateTime) << 32U) | now.dwLowDateTime,
      GetTickCount64(),
      GetCurrentThreadId(),
      __builtin_ia32_rdtsc()};
  std::uintptr_t guard = 0;
  for (const std::uintptr_t source : sources) {
    guard = (guard ^ source) * 0x9E3779B97F4A7C15U;
    guard ^= guard >> 29U;
  }
  // The first octet that an overrun meets is zero, which no text can contain.
  return guard & ~std::uintptr_t{0xFF};
}

}  // namespace

extern "C" {

// The names are the compiler's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
std::uintptr_t __stack_chk_guard = 0;

// The process ends with 0xC0000409, past every handler: what they would run on is damaged.
[[noreturn]] void __stack_chk_fail() {
  __asm__ __volatile__("int $0x29" : : "c"(2));  // FAST_FAIL_STACK_COOKIE_CHECK_FAILURE
  __builtin_unreachable();
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

// Before every other constructor of the module.
[[gnu::constructor(101)]] static void SetGuard() { __stack_chk_guard = MakeGuard(); }
}
