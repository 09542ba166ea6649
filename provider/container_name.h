// Names of containers: as a caller gives them, and as folders.
#ifndef ZAREXT_PROVIDER_CONTAINER_NAME_H_
#define ZAREXT_PROVIDER_CONTAINER_NAME_H_

#include <string>
#include <string_view>

namespace zarext::provider {

inline constexpr std::string_view kFileKind = "file";

// A container as a caller names it: "name", "profile://name" or "profile://name/?sn=HEX&kind=WORD"
// with either query field or both. `sn`, the serial number of one of its certificates, is only
// checked for its form, because a certificate may have been replaced since the address was made.
struct ContainerName {
  std::string name;
  std::string kind;  // the container must be, or is created, of this kind; empty for any
};

// NTE_BAD_KEYSET_PARAM for anything else.
ContainerName ParseContainerName(std::string_view text);

// The address under which the provider itself names a container. It carries the kind of a token,
// which tells its readers the token from a file.
std::string ContainerUrl(std::string_view name, std::string_view kind);

// A file name of letters, digits, "-", "_" and "%XX" for a container's name, and back.
// NTE_BAD_KEYSET_PARAM if it became too long. Folders that are not named so give an empty name.
std::string FolderOf(std::string_view name);
std::string NameOfFolder(std::string_view folder);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_CONTAINER_NAME_H_
