// The registry as the tool reads it: the 64-bit view, missing keys and values as nothing.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_H_
#define ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_H_

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "zarextctl/registry_value.h"

namespace zarext::ctl {

inline constexpr char kOidKey[] = "SOFTWARE\\Microsoft\\Cryptography\\OID";
inline constexpr char kProvidersKey[] = "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider";
inline constexpr char kProviderTypesKey[] =
    "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types";
inline constexpr char kUserStoresKey[] = "Software\\Microsoft\\SystemCertificates";

class RegistryKey {
 public:
  // For reading. An object without a key has no values and no keys below it.
  RegistryKey(HKEY root, const std::string& path);

  explicit operator bool() const noexcept { return static_cast<bool>(key_); }
  // ERROR_FILE_NOT_FOUND for a missing key, or why it cannot be read.
  [[nodiscard]] LSTATUS Status() const noexcept { return status_; }

  [[nodiscard]] std::optional<RegistryValue> Value(const char* name) const;
  // The text of a value that has one.
  [[nodiscard]] std::optional<std::string> Text(const char* name) const;
  [[nodiscard]] std::optional<std::uint32_t> Number(const char* name) const;
  // Names of the keys below, sorted.
  [[nodiscard]] std::vector<std::string> Keys() const;

 private:
  UniqueRegistryKey key_;
  LSTATUS status_;
};

// Deletes a key that has no keys below it; ERROR_SUCCESS or the reason.
LSTATUS DeleteRegistryKey(HKEY root, const std::string& path);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_H_
