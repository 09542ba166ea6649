// The texts of a container's profile record, which come from outside.
#ifndef ZAREXT_STORE_CONTAINER_PROFILE_H_
#define ZAREXT_STORE_CONTAINER_PROFILE_H_

#include <optional>
#include <string_view>

#include "store/provider_records.h"

namespace zarext {

// The zeroed record that asks for the container `url`; none if the address has no room there.
std::optional<CNT_PROFILE> PrepareProfile(std::string_view url) noexcept;

// Whether each of the three texts ends within its field. Only then may they be read as texts.
bool IsProfileWellFormed(const CNT_PROFILE& record) noexcept;

// Whether a walk opens the container: its kind is one of the four listed ones, or the second text
// is not empty.
bool IsProfileOpened(const CNT_PROFILE& record) noexcept;

// Whether a certificate may be written into the container under its own address: of the listed
// kinds only "file" is enough here.
bool IsProfileWritable(const CNT_PROFILE& record) noexcept;

}  // namespace zarext

#endif  // ZAREXT_STORE_CONTAINER_PROFILE_H_
