// The walk over the provider's containers and their keys. What the provider returns is data from
// outside: an item that is not well-formed is passed over, and a list that does not end is left.
#ifndef ZAREXT_STORE_CONTAINER_WALK_H_
#define ZAREXT_STORE_CONTAINER_WALK_H_

#include <cstring>
#include <optional>
#include <string_view>

#include "frame/provider_binding.h"
#include "store/container_profile.h"
#include "store/provider_context.h"

namespace zarext {

enum class Walk { kGoOn, kStop };

// Where a list that does not end is left.
inline constexpr int kLongestWalk = 65536;

// Calls visit(provider, name) for every container of the bound provider, with the context that
// lists them; names fit a buffer of `nameSize` octets. The name lives until the next call.
template <DWORD nameSize, typename Visit>
void ForEachContainer(Visit visit) {
  const UniqueProviderContext provider = AcquireContext(nullptr, CRYPT_VERIFYCONTEXT);
  if (!provider) {
    return;
  }
  char name[nameSize];
  DWORD flags = CRYPT_FIRST;
  for (int item = 0; item < kLongestWalk; ++item, flags = 0) {
    std::memset(name, 0, nameSize);
    DWORD size = nameSize;
    if (!Provider().CPGetProvParam(*provider.Get(), PP_ENUM_CNT, reinterpret_cast<BYTE*>(name),
                                   &size, flags)) {
      return;
    }
    if (std::memchr(name, '\0', nameSize) != nullptr &&
        visit(*provider.Get(), name) == Walk::kStop) {
      return;
    }
  }
}

// The provider's profile of the container `url`; none if it fails or is not well-formed.
inline std::optional<CNT_PROFILE> QueryProfile(HCRYPTPROV provider, std::string_view url) {
  std::optional<CNT_PROFILE> profile = PrepareProfile(url);
  DWORD size = sizeof *profile;
  const bool isGiven = profile.has_value() &&
                       Provider().CPGetProvParam(provider, PP_CNT_PROFILE,
                                                 reinterpret_cast<BYTE*>(&*profile), &size, 0) &&
                       IsProfileWellFormed(*profile);
  return isGiven ? profile : std::nullopt;
}

// Calls visit(record, returnedLength) for every key of a container.
template <typename Visit>
void ForEachKey(HCRYPTPROV container, Visit visit) {
  DWORD flags = CRYPT_FIRST;
  for (int item = 0; item < kLongestWalk; ++item, flags = 0) {
    CNT_KEY_INFO record = {};
    DWORD size = sizeof record;
    if (!Provider().CPGetProvParam(container, PP_ENUM_CNT_KEYS, reinterpret_cast<BYTE*>(&record),
                                   &size, flags) ||
        visit(record, size) == Walk::kStop) {
      return;
    }
  }
}

}  // namespace zarext

#endif  // ZAREXT_STORE_CONTAINER_WALK_H_
