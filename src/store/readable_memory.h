// Memory that a pointer from outside leads to.
#ifndef ZAREXT_STORE_READABLE_MEMORY_H_
#define ZAREXT_STORE_READABLE_MEMORY_H_

#include <windows.h>

#include <algorithm>
#include <cstddef>

namespace zarext {

// Whether the whole range can be read: a provider's pointers and lengths need not fit each other.
inline bool IsReadable(const void* start, std::size_t length) {
  constexpr DWORD kReadable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                              PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  const auto* position = static_cast<const BYTE*>(start);
  while (length != 0) {
    MEMORY_BASIC_INFORMATION region = {};
    if (VirtualQuery(position, &region, sizeof region) == 0 || region.State != MEM_COMMIT ||
        (region.Protect & kReadable) == 0 || (region.Protect & PAGE_GUARD) != 0) {
      return false;
    }
    const auto* const end = static_cast<const BYTE*>(region.BaseAddress) + region.RegionSize;
    const std::size_t covered = std::min(length, static_cast<std::size_t>(end - position));
    position += covered;
    length -= covered;
  }
  return true;
}

}  // namespace zarext

#endif  // ZAREXT_STORE_READABLE_MEMORY_H_
