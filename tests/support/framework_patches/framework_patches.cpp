#include "support/framework_patches/framework_patches.h"

#include <windows.h>

#include <wincrypt.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

#include "support/platform.h"

namespace zarext::test {
namespace {

constexpr wchar_t kRecords[] =
    L"SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindOIDInfo\\";
constexpr wchar_t kSystemStores[] = L"Software\\Microsoft\\SystemCertificates\\";

std::wstring Widened(const char* text) { return {text, text + std::strlen(text)}; }

// A key under construction; the first failure is kept and ends all writing.
class KeyWriter {
 public:
  KeyWriter(HKEY root, const std::wstring& path)
      : status_(RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY,
                                nullptr, &key_, nullptr)) {}
  ~KeyWriter() {
    if (key_ != nullptr) {
      RegCloseKey(key_);
    }
  }
  KeyWriter(const KeyWriter&) = delete;
  KeyWriter& operator=(const KeyWriter&) = delete;

  void Text(const wchar_t* name, const std::wstring& text) {
    Value(name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  void Number(const wchar_t* name, DWORD number) { Value(name, REG_DWORD, &number, sizeof number); }
  void NumberUnlessZero(const wchar_t* name, DWORD number) {
    if (number == 0) {
      RegDeleteValueW(key_, name);
    } else {
      Number(name, number);
    }
  }
  void Octets(const wchar_t* name, const CRYPT_DATA_BLOB& octets) {
    Value(name, REG_BINARY, octets.pbData, octets.cbData);
  }

  // TRUE, or FALSE and the last error.
  [[nodiscard]] BOOL Finish() const {
    SetLastError(static_cast<DWORD>(status_));
    return status_ == ERROR_SUCCESS;
  }

 private:
  void Value(const wchar_t* name, DWORD type, const void* data, std::size_t size) {
    if (status_ == ERROR_SUCCESS) {
      status_ = RegSetValueExW(key_, name, 0, type, static_cast<const BYTE*>(data),
                               static_cast<DWORD>(size));
    }
  }

  HKEY key_ = nullptr;
  LSTATUS status_;
};

BOOL DeleteKey(HKEY root, const std::wstring& path) {
  const LSTATUS status = RegDeleteKeyExW(root, path.c_str(), KEY_WOW64_64KEY, 0);
  SetLastError(static_cast<DWORD>(status));
  return status == ERROR_SUCCESS;
}

bool IsComplete(const CRYPT_OID_INFO* info) {
  if (info != nullptr && info->cbSize >= sizeof *info && info->pszOID != nullptr) {
    return true;
  }
  SetLastError(static_cast<DWORD>(E_INVALIDARG));
  return false;
}

std::wstring RecordKey(const CRYPT_OID_INFO& info) {
  return kRecords + Widened(info.pszOID) + L"!" + std::to_wstring(info.dwGroupId);
}

BOOL WINAPI RegisterOidInfo(PCCRYPT_OID_INFO info, DWORD flags) {
  if (!IsComplete(info)) {
    return FALSE;
  }
  KeyWriter key(HKEY_LOCAL_MACHINE, RecordKey(*info));
  if (info->pwszName != nullptr) {
    key.Text(L"Name", info->pwszName);
  }
  key.NumberUnlessZero(L"Algid", info->Algid);
  if (info->ExtraInfo.cbData != 0) {
    key.Octets(L"ExtraInfo", info->ExtraInfo);
  }
  key.NumberUnlessZero(L"Flags", flags);
  return key.Finish();
}

BOOL WINAPI UnregisterOidInfo(PCCRYPT_OID_INFO info) {
  return IsComplete(info) && DeleteKey(HKEY_LOCAL_MACHINE, RecordKey(*info));
}

// Of the flags only the location decides where a store lies.
HKEY StoreRoot(DWORD flags) {
  switch (flags & CERT_SYSTEM_STORE_LOCATION_MASK) {
    case CERT_SYSTEM_STORE_CURRENT_USER:
      return HKEY_CURRENT_USER;
    case CERT_SYSTEM_STORE_LOCAL_MACHINE:
      return HKEY_LOCAL_MACHINE;
    default:
      SetLastError(static_cast<DWORD>(E_INVALIDARG));
      return nullptr;
  }
}

std::wstring PhysicalStoreKey(const void* systemStore, const wchar_t* name) {
  return kSystemStores + std::wstring(static_cast<const wchar_t*>(systemStore)) +
         L"\\PhysicalStores\\" + name;
}

BOOL WINAPI RegisterPhysicalStore(const void* systemStore, DWORD flags, LPCWSTR name,
                                  PCERT_PHYSICAL_STORE_INFO info, void* /*reserved*/) {
  const HKEY root = StoreRoot(flags);
  if (root == nullptr) {
    return FALSE;
  }
  KeyWriter key(root, PhysicalStoreKey(systemStore, name));
  key.Text(L"OpenStoreProvider", Widened(info->pszOpenStoreProvider));
  key.Number(L"OpenEncodingType", info->dwOpenEncodingType);
  key.Number(L"OpenFlags", info->dwOpenFlags);
  key.Octets(L"OpenParameters", info->OpenParameters);
  key.Number(L"Flags", info->dwFlags);
  key.Number(L"Priority", info->dwPriority);
  return key.Finish();
}

BOOL WINAPI UnregisterPhysicalStore(const void* systemStore, DWORD flags, LPCWSTR name) {
  const HKEY root = StoreRoot(flags);
  return root != nullptr && DeleteKey(root, PhysicalStoreKey(systemStore, name));
}

// Overwrites the start of an exported function with a jump.
bool Redirect(HMODULE library, const char* function, void* replacement) {
  // jmp [rip+0], with the address behind it.
  BYTE jump[14] = {0xFF, 0x25};
  std::memcpy(jump + 6, &replacement, sizeof replacement);
  void* const start = reinterpret_cast<void*>(GetProcAddress(library, function));
  DWORD protection = 0;
  if (start == nullptr ||
      !VirtualProtect(start, sizeof jump, PAGE_EXECUTE_READWRITE, &protection)) {
    return false;
  }
  std::memcpy(start, jump, sizeof jump);
  return VirtualProtect(start, sizeof jump, protection, &protection) != FALSE;
}

HMODULE Crypt32() {
  static const HMODULE library = LoadLibraryA("crypt32");
  return library;
}

}  // namespace

bool RefusesShortRecords() {
  CRYPT_OID_INFO info = {};
  info.cbSize = 48;
  info.pszOID = "1.2.3.4.5.6.7.8.9";
  info.pwszName = L"no such record";
  info.dwGroupId = CRYPT_PUBKEY_ALG_OID_GROUP_ID;
  const auto unregister = reinterpret_cast<decltype(&CryptUnregisterOIDInfo)>(
      reinterpret_cast<void*>(GetProcAddress(Crypt32(), "CryptUnregisterOIDInfo")));
  return unregister(&info) == FALSE && GetLastError() == static_cast<DWORD>(E_INVALIDARG);
}

bool HasNoPhysicalStores() {
  const auto unregister = reinterpret_cast<decltype(&CertUnregisterPhysicalStore)>(
      reinterpret_cast<void*>(GetProcAddress(Crypt32(), "CertUnregisterPhysicalStore")));
  return unregister(L"MY", CERT_SYSTEM_STORE_CURRENT_USER, L"no such physical store") != FALSE;
}

bool ApplyFrameworkPatches() {
  if (!IsWine()) {
    return false;
  }
  const auto address = [](auto* function) { return reinterpret_cast<void*>(function); };
  bool applied = true;
  if (RefusesShortRecords()) {
    applied = Redirect(Crypt32(), "CryptRegisterOIDInfo", address(&RegisterOidInfo)) &&
              Redirect(Crypt32(), "CryptUnregisterOIDInfo", address(&UnregisterOidInfo));
  }
  if (HasNoPhysicalStores()) {
    applied =
        Redirect(Crypt32(), "CertRegisterPhysicalStore", address(&RegisterPhysicalStore)) &&
        Redirect(Crypt32(), "CertUnregisterPhysicalStore", address(&UnregisterPhysicalStore)) &&
        applied;
  }
  return applied;
}

void RegisterInThisProcess(HRESULT WINAPI registerServer()) {
  if (PatchesWanted() && !ApplyFrameworkPatches()) {
    throw std::runtime_error("the framework's registration functions cannot be completed");
  }
  const HRESULT result = registerServer();
  if (result != S_OK && IsWine() && !PatchesWanted()) {
    throw PlatformRefuses("registration fails: Wine refuses the records of 48 octets");
  }
  if (result != S_OK) {
    throw std::runtime_error("DllRegisterServer failed");
  }
}

}  // namespace zarext::test
