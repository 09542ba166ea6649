#include "store/readable_memory.h"

#include <windows.h>

#include <algorithm>

namespace zarext {
namespace {

constexpr DWORD kReadableProtections = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY |
                                       PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE |
                                       PAGE_EXECUTE_WRITECOPY;

}  // namespace

bool IsReadable(const void* start, std::size_t length) {
  const auto* position = static_cast<const BYTE*>(start);
  while (length != 0) {
    MEMORY_BASIC_INFORMATION region = {};
    if (VirtualQuery(position, &region, sizeof region) == 0 || region.State != MEM_COMMIT ||
        (region.Protect & kReadableProtections) == 0 || (region.Protect & PAGE_GUARD) != 0) {
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
