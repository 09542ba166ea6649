// Memory that a pointer from outside leads to.
#ifndef ZAREXT_STORE_READABLE_MEMORY_H_
#define ZAREXT_STORE_READABLE_MEMORY_H_

#include <cstddef>

namespace zarext {

// Whether the whole range can be read: a provider's pointers and lengths need not fit each other.
bool IsReadable(const void* start, std::size_t length);

}  // namespace zarext

#endif  // ZAREXT_STORE_READABLE_MEMORY_H_
