#include "unit/asn1/counted_memory.h"

#include <malloc.h>

#include <algorithm>
#include <new>

namespace zarext {

Allocations allocations;
std::size_t heldOctets = 0;
bool watching = false;
std::size_t secretsGivenBack = 0;

__attribute__((no_sanitize("address"))) std::size_t CountSecrets(const void* block,
                                                                 std::size_t size) {
  const auto* octets = static_cast<const std::uint8_t*>(block);
  std::size_t found = 0;
  std::size_t run = 0;
  for (std::size_t i = 0; i < size; ++i) {
    run = octets[i] == kSecret ? run + 1 : 0;
    found += run == 4 ? 1 : 0;
  }
  return found;
}

}  // namespace zarext

namespace {

using zarext::allocations;
using zarext::heldOctets;

bool Refuse(std::size_t size) {
  if (!allocations.counting) return false;
  allocations.largest = std::max(allocations.largest, size);
  return ++allocations.count == allocations.failAt;
}

void* Held(void* block) {
  heldOctets += malloc_usable_size(block);
  return block;
}

}  // namespace

// The names are the linker's. NOLINTBEGIN
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);
void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);

void* __wrap_malloc(std::size_t size) { return Refuse(size) ? nullptr : Held(__real_malloc(size)); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return Refuse(count * size) ? nullptr : Held(__real_calloc(count, size));
}
void __wrap_free(void* block) {
  if (zarext::watching) {
    zarext::secretsGivenBack += zarext::CountSecrets(block, malloc_usable_size(block));
  }
  heldOctets -= malloc_usable_size(block);
  __real_free(block);
}
void* __wrap__Znwm(std::size_t size) {
  if (Refuse(size)) throw std::bad_alloc();
  return __real__Znwm(size);
}
void* __wrap__Znam(std::size_t size) {
  if (Refuse(size)) throw std::bad_alloc();
  return __real__Znam(size);
}
}
// NOLINTEND
