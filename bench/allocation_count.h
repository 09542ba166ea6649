// Counts every allocation of the process, the libraries' own included.
#ifndef ZAREXT_BENCH_ALLOCATION_COUNT_H_
#define ZAREXT_BENCH_ALLOCATION_COUNT_H_

#include <cstdint>

namespace zarext::bench {

// Calls of malloc, calloc and realloc so far.
std::uint64_t AllocationCount();

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ALLOCATION_COUNT_H_
