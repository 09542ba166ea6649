#include "zarextctl/registry.h"

#include <algorithm>

#include "zarextctl/windows_text.h"

namespace zarext::ctl {

RegistryKey::RegistryKey(HKEY root, const std::string& path)
    : status_(RegOpenKeyExW(root, Wide(path).c_str(), 0, KEY_READ | KEY_WOW64_64KEY, key_.Put())) {}

std::optional<RegistryValue> RegistryKey::Value(const char* name) const {
  const std::wstring wide = Wide(name);
  RegistryValue value;
  for (DWORD room = 512;; room *= 2) {
    value.octets.resize(room);
    DWORD type = 0;
    DWORD size = room;
    const LSTATUS status = !key_ ? ERROR_FILE_NOT_FOUND
                                 : RegQueryValueExW(key_.Get(), wide.c_str(), nullptr, &type,
                                                    value.octets.data(), &size);
    // Another process can make the value longer meanwhile.
    if (status == ERROR_MORE_DATA && room < 1U << 24U) {
      continue;
    }
    if (status != ERROR_SUCCESS) {
      return std::nullopt;
    }
    value.type = type;
    value.octets.resize(size);
    return value;
  }
}

std::optional<std::string> RegistryKey::Text(const char* name) const {
  const auto value = Value(name);
  return value ? TextOf(*value) : std::nullopt;
}

std::optional<std::uint32_t> RegistryKey::Number(const char* name) const {
  const auto value = Value(name);
  return value ? NumberOf(*value) : std::nullopt;
}

std::vector<std::string> RegistryKey::Keys() const {
  std::vector<std::string> keys;
  wchar_t name[256] = {};
  for (DWORD i = 0; key_; ++i) {
    DWORD size = 256;
    if (RegEnumKeyExW(key_.Get(), i, name, &size, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    keys.push_back(Utf8(name));
  }
  std::ranges::sort(keys);
  return keys;
}

LSTATUS DeleteRegistryKey(HKEY root, const std::string& path) {
  return RegDeleteKeyExW(root, Wide(path).c_str(), KEY_WOW64_64KEY, 0);
}

}  // namespace zarext::ctl
