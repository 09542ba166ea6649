// The time that the module spends inside a function that it imports.
#ifndef ZAREXT_BENCH_SUPPORT_TIMED_IMPORT_H_
#define ZAREXT_BENCH_SUPPORT_TIMED_IMPORT_H_

#include <windows.h>

#include <type_traits>

#include "support/import_patch.h"
#include "support/module_under_test.h"

namespace zarext::test {

inline long long Ticks() {
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return now.QuadPart;
}

inline double Microseconds(long long ticks) {
  static const double perMicrosecond = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart) / 1e6;
  }();
  return static_cast<double>(ticks) / perMicrosecond;
}

// Times one imported function of the module and adds it to a sum.
template <auto function, long long* sum>
struct Timed;

template <typename Result, typename... Arguments, Result(WINAPI* function)(Arguments...),
          long long* sum>
struct Timed<function, sum> {
  static Result WINAPI Call(Arguments... arguments) {
    const long long start = Ticks();
    if constexpr (std::is_void_v<Result>) {
      function(arguments...);
      *sum += Ticks() - start;
    } else {
      const Result result = function(arguments...);
      *sum += Ticks() - start;
      return result;
    }
  }

  Timed(const char* library, const char* name) : patch(Module(), library, name, &Call) {}
  ImportPatch patch;
};

}  // namespace zarext::test

#endif  // ZAREXT_BENCH_SUPPORT_TIMED_IMPORT_H_
