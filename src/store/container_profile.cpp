#include "store/container_profile.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zarext {
namespace {

constexpr std::string_view kFileKind = "file";
constexpr std::array<std::string_view, 4> kListedKinds = {"kztoken", "javatoken", "idcard",
                                                          kFileKind};

template <std::size_t size>
bool IsTerminated(const char (&text)[size]) noexcept {
  return std::memchr(text, '\0', size) != nullptr;
}

bool HasSecondText(const CNT_PROFILE& record) noexcept { return record.secondText[0] != '\0'; }

}  // namespace

std::optional<CNT_PROFILE> PrepareProfile(std::string_view url) noexcept {
  CNT_PROFILE record = {};
  if (url.size() >= sizeof record.containerUrl) {
    return std::nullopt;
  }
  url.copy(record.containerUrl, url.size());
  return record;
}

bool IsProfileWellFormed(const CNT_PROFILE& record) noexcept {
  return IsTerminated(record.tokenKind) && IsTerminated(record.secondText) &&
         IsTerminated(record.thirdText);
}

bool IsProfileOpened(const CNT_PROFILE& record) noexcept {
  return HasSecondText(record) || std::find(kListedKinds.begin(), kListedKinds.end(),
                                            record.tokenKind) != kListedKinds.end();
}

bool IsProfileWritable(const CNT_PROFILE& record) noexcept {
  return HasSecondText(record) || record.tokenKind == kFileKind;
}

}  // namespace zarext
