// What the load tests share: how long they run, and what a process uses.
#ifndef ZAREXT_TESTS_E2E_SOAK_SUPPORT_H_
#define ZAREXT_TESTS_E2E_SOAK_SUPPORT_H_

#include <windows.h>

#include <psapi.h>

#include <cstdlib>

#include "support/handle_count.h"

namespace zarext::test {

// A number from the environment, as script/soak sets it; the tests run with the short form.
inline long SoakNumber(const char* variable, long shortForm) {
  char text[32] = {};
  const DWORD length = GetEnvironmentVariableA(variable, text, sizeof text);
  return length == 0 || length >= sizeof text ? shortForm : std::strtol(text, nullptr, 10);
}

struct SoakUsage {
  std::size_t handles = OpenHandleCount();
  SIZE_T memory = [] {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PagefileUsage;
  }();
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_SOAK_SUPPORT_H_
