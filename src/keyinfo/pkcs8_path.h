// A place in a document as a type of its own: building and reading take a code and a path side by
// side, and neither can stand for the other.
#ifndef ZAREXT_KEYINFO_PKCS8_PATH_H_
#define ZAREXT_KEYINFO_PKCS8_PATH_H_

#include <cstdint>

namespace zarext::pkcs8 {

template <std::int32_t... entries>
struct Path {};

// kAt<0, 1> is the second child of the root's first one; no path is the root.
template <std::int32_t... entries>
inline constexpr Path<entries...> kAt{};

}  // namespace zarext::pkcs8

#endif  // ZAREXT_KEYINFO_PKCS8_PATH_H_
