#include "bench/allocation_count.h"

#include <cstddef>

// glibc's own names of what is replaced here; free stays as it is. NOLINTBEGIN
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}
// NOLINTEND

namespace {
std::uint64_t calls = 0;
}

extern "C" {
__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  ++calls;
  return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
  ++calls;
  return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
  ++calls;
  return __libc_realloc(block, size);
}
}

namespace zarext::bench {

std::uint64_t AllocationCount() { return calls; }

}  // namespace zarext::bench
