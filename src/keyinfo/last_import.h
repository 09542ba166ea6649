// What the last private-key import recorded about its container. The store's write callback looks
// there for a container that it cannot open under its own URL.
#ifndef ZAREXT_KEYINFO_LAST_IMPORT_H_
#define ZAREXT_KEYINFO_LAST_IMPORT_H_

#include <cstddef>
#include <cstring>
#include <string_view>

namespace zarext {

inline constexpr std::size_t kLastProfileSize = 256;
inline constexpr std::size_t kLastContainerUrlSize = 1024;

// Both live as long as the process. An import that begins zeroes them and lets the provider fill
// them; imports and readers take no lock, so a reader beside an import can see a mixture.
inline unsigned char LastProfile[kLastProfileSize];
inline char LastContainerUrl[kLastContainerUrlSize];

// The URL's text in the buffer, which ends it if the provider left no terminator.
inline std::string_view LastContainerUrlText() {
  return {LastContainerUrl, strnlen(LastContainerUrl, kLastContainerUrlSize)};
}

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_LAST_IMPORT_H_
