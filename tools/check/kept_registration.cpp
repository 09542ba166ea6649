#include "check/kept_registration.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "frame/handles.h"

namespace zarext::check {
namespace {

constexpr wchar_t kCopy[] = L"SOFTWARE\\ZAREXT-check";
constexpr REGSAM kRead = KEY_READ | KEY_WOW64_64KEY;
constexpr REGSAM kAll = KEY_ALL_ACCESS | KEY_WOW64_64KEY;

struct Place {
  HKEY root;
  const wchar_t* path;
  const wchar_t* copy;
};

const Place kPlaces[] = {
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\OID", L"oid"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Zarvel CSP",
     L"provider"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Zarvel CSP RSA",
     L"provider-rsa"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 025",
     L"type"},
    {HKEY_CURRENT_USER, L"Software\\Microsoft\\SystemCertificates\\MY\\PhysicalStores", L"stores"},
};

UniqueRegistryKey Open(HKEY root, const std::wstring& path, REGSAM access) {
  UniqueRegistryKey key;
  RegOpenKeyExW(root, path.c_str(), 0, access, key.Put());
  return key;
}

struct Value {
  DWORD type = 0;
  std::vector<BYTE> octets;
  bool operator==(const Value&) const = default;
};

std::set<std::wstring> Names(HKEY key, bool ofKeys) {
  std::set<std::wstring> names;
  // The longest name of a value.
  std::vector<wchar_t> name(16384);
  for (DWORD i = 0;; ++i) {
    auto length = static_cast<DWORD>(name.size());
    const LSTATUS status =
        ofKeys ? RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr)
               : RegEnumValueW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
      return names;
    }
    names.emplace(name.data(), length);
  }
}

Value Read(HKEY key, const std::wstring& name) {
  Value value;
  DWORD size = 0;
  RegQueryValueExW(key, name.c_str(), nullptr, &value.type, nullptr, &size);
  value.octets.resize(size);
  RegQueryValueExW(key, name.c_str(), nullptr, &value.type, value.octets.data(), &size);
  return value;
}

// The names of `in` that are not in `other`.
std::set<std::wstring> Missing(const std::set<std::wstring>& in,
                               const std::set<std::wstring>& other) {
  std::set<std::wstring> missing;
  std::set_difference(in.begin(), in.end(), other.begin(), other.end(),
                      std::inserter(missing, missing.end()));
  return missing;
}

// The first error of several calls.
class Status {
 public:
  void Take(LSTATUS status) {
    if (first_ == ERROR_SUCCESS) {
      first_ = status;
    }
  }
  [[nodiscard]] LSTATUS First() const { return first_; }

 private:
  LSTATUS first_ = ERROR_SUCCESS;
};

// Makes `to` what `from` is.
LSTATUS Mirror(HKEY from, HKEY to) {
  Status status;
  const auto values = Names(from, false);
  for (const auto& name : Missing(Names(to, false), values)) {
    status.Take(RegDeleteValueW(to, name.c_str()));
  }
  const auto there = Names(to, false);
  for (const auto& name : values) {
    const Value value = Read(from, name);
    if (!there.contains(name) || Read(to, name) != value) {
      status.Take(RegSetValueExW(to, name.c_str(), 0, value.type, value.octets.data(),
                                 static_cast<DWORD>(value.octets.size())));
    }
  }
  const auto keys = Names(from, true);
  for (const auto& name : Missing(Names(to, true), keys)) {
    status.Take(RegDeleteTreeW(to, name.c_str()));
  }
  for (const auto& name : keys) {
    const UniqueRegistryKey source = Open(from, name, kRead);
    UniqueRegistryKey target;
    const LSTATUS made =
        RegCreateKeyExW(to, name.c_str(), 0, nullptr, 0, kAll, nullptr, target.Put(), nullptr);
    status.Take(made == ERROR_SUCCESS ? Mirror(source.Get(), target.Get()) : made);
  }
  return status.First();
}

// Like Mirror, for keys that may not be there at all.
LSTATUS MirrorPath(HKEY fromRoot, const std::wstring& from, HKEY toRoot, const std::wstring& to) {
  const UniqueRegistryKey source = Open(fromRoot, from, kRead);
  if (!source) {
    if (!Open(toRoot, to, kRead)) {
      return ERROR_SUCCESS;
    }
    return RegDeleteTreeW(toRoot, to.c_str());
  }
  UniqueRegistryKey target;
  const LSTATUS made =
      RegCreateKeyExW(toRoot, to.c_str(), 0, nullptr, 0, kAll, nullptr, target.Put(), nullptr);
  return made == ERROR_SUCCESS ? Mirror(source.Get(), target.Get()) : made;
}

std::wstring CopyOf(const Place& place) { return std::wstring(kCopy) + L"\\" + place.copy; }

}  // namespace

long KeepRegistration() {
  // Written last: without it the copy is not complete.
  const std::wstring whole = std::wstring(kCopy) + L"\\complete";
  if (Open(HKEY_LOCAL_MACHINE, whole, kRead)) {
    return ERROR_SUCCESS;
  }
  Status status;
  UniqueRegistryKey copy;
  status.Take(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kCopy, 0, nullptr, 0, kAll, nullptr, copy.Put(),
                              nullptr));
  for (const Place& place : kPlaces) {
    if (status.First() == ERROR_SUCCESS) {
      status.Take(MirrorPath(place.root, place.path, HKEY_LOCAL_MACHINE, CopyOf(place)));
    }
  }
  if (status.First() == ERROR_SUCCESS) {
    UniqueRegistryKey complete;
    status.Take(RegCreateKeyExW(copy.Get(), L"complete", 0, nullptr, 0, kAll, nullptr,
                                complete.Put(), nullptr));
  }
  return status.First();
}

long RestoreRegistration() {
  if (!Open(HKEY_LOCAL_MACHINE, std::wstring(kCopy) + L"\\complete", kRead)) {
    return ERROR_FILE_NOT_FOUND;
  }
  Status status;
  for (const Place& place : kPlaces) {
    status.Take(MirrorPath(HKEY_LOCAL_MACHINE, CopyOf(place), place.root, place.path));
  }
  return status.First();
}

long ForgetRegistration() { return RegDeleteTreeW(HKEY_LOCAL_MACHINE, kCopy); }

}  // namespace zarext::check
