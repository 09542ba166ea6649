#include "support/registry_snapshot.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "support/utf8.h"

namespace zarext::test {
namespace {

constexpr DWORD kLongestName = 16384;

std::string Hex(const char* format, unsigned long number) {
  char text[16];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string ValueText(DWORD type, const std::vector<BYTE>& data) {
  if (type == REG_SZ && data.size() >= sizeof(wchar_t) && data.size() % sizeof(wchar_t) == 0) {
    // Without the terminating zero, which is there.
    return "text " +
           Utf8({reinterpret_cast<const wchar_t*>(data.data()), data.size() / sizeof(wchar_t) - 1});
  }
  if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
    DWORD number = 0;
    std::memcpy(&number, data.data(), sizeof number);
    return "number " + Hex("%lx", number);
  }
  std::string text = "type " + std::to_string(type) + " ";
  for (const BYTE octet : data) {
    text += Hex("%02lx", octet);
  }
  return text;
}

void ReadValues(HKEY key, const std::string& path, RegistryLines& lines) {
  std::vector<wchar_t> name(kLongestName);
  std::vector<BYTE> data(65536);
  for (DWORD index = 0;; ++index) {
    DWORD nameLength = kLongestName;
    auto size = static_cast<DWORD>(data.size());
    DWORD type = 0;
    const LSTATUS status =
        RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type, data.data(), &size);
    if (status == ERROR_MORE_DATA) {
      data.resize(data.size() * 2);
      --index;
      continue;
    }
    if (status != ERROR_SUCCESS) {
      return;
    }
    lines.insert(path + " : " + Utf8({name.data(), nameLength}) + " = " +
                 ValueText(type, {data.begin(), data.begin() + size}));
  }
}

void ReadKey(HKEY parent, const std::wstring& name, const std::string& path, RegistryLines& lines) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, name.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) {
    return;
  }
  lines.insert(path);
  ReadValues(key, path, lines);
  wchar_t child[256];
  for (DWORD index = 0;; ++index) {
    auto length = static_cast<DWORD>(std::size(child));
    if (RegEnumKeyExW(key, index, child, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    ReadKey(key, child, path + "\\" + Utf8({child, length}), lines);
  }
  RegCloseKey(key);
}

}  // namespace

RegistryLines ReadRegistry() {
  RegistryLines lines;
  ReadKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography",
          "HKLM\\SOFTWARE\\Microsoft\\Cryptography", lines);
  ReadKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\SystemCertificates",
          "HKLM\\SOFTWARE\\Microsoft\\SystemCertificates", lines);
  ReadKey(HKEY_CURRENT_USER, L"Software\\Microsoft", "HKCU\\Software\\Microsoft", lines);
  return lines;
}

std::vector<std::string> LinesWithout(const RegistryLines& left, const RegistryLines& right) {
  std::vector<std::string> lines;
  std::ranges::set_difference(left, right, std::back_inserter(lines));
  return lines;
}

}  // namespace zarext::test
