#include "store/container_walk.h"

#include "store/container_profile.h"

namespace zarext {

std::optional<CNT_PROFILE> QueryProfile(HCRYPTPROV provider, std::string_view url) {
  std::optional<CNT_PROFILE> profile = PrepareProfile(url);
  DWORD size = sizeof *profile;
  const bool isGiven = profile.has_value() &&
                       Provider().CPGetProvParam(provider, PP_CNT_PROFILE,
                                                 reinterpret_cast<BYTE*>(&*profile), &size, 0) &&
                       IsProfileWellFormed(*profile);
  return isGiven ? profile : std::nullopt;
}

}  // namespace zarext
