// Octets that belong to somebody else, and sizes that the platform counts in 32 bits.
#ifndef ZAREXT_KEYINFO_OCTETS_H_
#define ZAREXT_KEYINFO_OCTETS_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <span>

namespace zarext {

using OctetSpan = std::span<const std::uint8_t>;

// `size` octets at `data`; nothing if there is no data, whatever `size` says.
inline OctetSpan OctetsOf(const std::uint8_t* data, std::size_t size) {
  return data == nullptr ? OctetSpan() : OctetSpan(data, size);
}

// The size of a block or a document that is still to be made, checked before any of what goes into
// it is read. Throws std::bad_alloc if 32 bits do not hold it.
inline std::uint32_t CheckedSize(std::uint64_t size) {
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    throw std::bad_alloc();
  }
  return static_cast<std::uint32_t>(size);
}

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_OCTETS_H_
