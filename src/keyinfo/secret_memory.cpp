#include "keyinfo/secret_memory.h"

#include <cstring>

namespace zarext {

void WipeOctets(void* octets, std::size_t size) noexcept {
  if (size == 0) {
    return;
  }
  std::memset(octets, 0, size);
  // The compiler must assume that the zeroes are read here.
  __asm__ __volatile__("" : : "r"(octets) : "memory");
}

SecretBuffer::SecretBuffer(std::size_t size)
    : size_(size), octets_(std::make_unique<std::uint8_t[]>(size)) {}

SecretBuffer::~SecretBuffer() { WipeOctets(octets_.get(), size_); }

}  // namespace zarext
