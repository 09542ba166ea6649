// Wiping of memory that has held keys. Needs nothing but the compiler, so that the portable parts
// use it too.
#ifndef ZAREXT_FRAME_WIPE_H_
#define ZAREXT_FRAME_WIPE_H_

#include <cstddef>
#include <cstring>

namespace zarext {

// Zeroes the octets; the compiler does not drop it, whatever happens to them afterwards.
inline void WipeOctets(void* octets, std::size_t size) noexcept {
  if (size == 0) {
    return;
  }
  std::memset(octets, 0, size);
  // The compiler must assume that the zeroes are read here.
  __asm__ __volatile__("" : : "r"(octets) : "memory");
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_WIPE_H_
