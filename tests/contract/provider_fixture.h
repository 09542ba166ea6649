// Shared by the tests of the development provider.
#ifndef ZAREXT_TESTS_CONTRACT_PROVIDER_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_PROVIDER_FIXTURE_H_

#include <windows.h>

#include <gtest/gtest.h>
#include <wincrypt.h>

#include <cstdint>
#include <string>

#include "support/dev_provider.h"
#include "support/provider_calls.h"

namespace zarext::test {

inline Octets FromHex(const std::string& text) {
  Octets out;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return out;
}

// The entry points as the module calls them, without advapi32 in between.
struct DirectProvider {
  template <typename Function>
  using Entry = Function*;
  Entry<BOOL WINAPI(HCRYPTPROV*, LPCSTR, DWORD, void*)> acquireContext =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV*, LPCSTR, DWORD, void*)>("CPAcquireContext");
  Entry<BOOL WINAPI(HCRYPTPROV, DWORD)> releaseContext =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, DWORD)>("CPReleaseContext");
  Entry<BOOL WINAPI(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD)> getProvParam =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD)>("CPGetProvParam");
  Entry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD)> getKeyParam =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD)>(
          "CPGetKeyParam");
  Entry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD)> setKeyParam =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD)>(
          "CPSetKeyParam");
  Entry<BOOL WINAPI(HCRYPTPROV, DWORD, HCRYPTKEY*)> getUserKey =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, DWORD, HCRYPTKEY*)>("CPGetUserKey");
  Entry<BOOL WINAPI(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*)> genKey =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*)>("CPGenKey");
  Entry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY)> destroyKey =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY)>("CPDestroyKey");
  Entry<BOOL WINAPI(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*)> importKey =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*)>(
          "CPImportKey");
  Entry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*)> exportKey =
      DevProviderEntry<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*)>(
          "CPExportKey");
};

// A registered provider and a home of its own for every test.
class ProviderTest : public testing::Test {
 protected:
  ProviderTest() { UseDevProvider(); }

  DevHome home_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_PROVIDER_FIXTURE_H_
