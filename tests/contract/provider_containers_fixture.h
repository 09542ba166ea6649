// Containers of the development provider, as its listings show them and as its files hold them.
#ifndef ZAREXT_TESTS_CONTRACT_PROVIDER_CONTAINERS_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_PROVIDER_CONTAINERS_FIXTURE_H_

#include <gmock/gmock.h>

#include <cstdio>
#include <vector>

#include "contract/provider_fixture.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {

inline constexpr DWORD kBadKey = 0x80090003;
inline constexpr DWORD kBadData = 0x80090005;
inline constexpr DWORD kNotFound = 0x80090011;
inline constexpr DWORD kBadPublicKey = 0x80090015;
inline constexpr DWORD kBadKeyset = 0x80090016;
inline constexpr DWORD kEntryBad = 0x8009001A;

// The records as their readers declare them.
struct KeyInfo {
  ULONG_PTR hKey;
  DWORD algId;
  DWORD unread1;
  ULONG_PTR unread2;
  char* pszContainer;
  ULONG_PTR unread3;
  DWORD cbSerial;
  BYTE* pbSerial;
  ULONG_PTR unread4[2];
  DWORD cbCert;
  BYTE* pbCert;
};
static_assert(sizeof(KeyInfo) == 88);

struct ProfileRecord {
  char octets[1456];
  char* Kind() { return octets + 128; }
  char* Second() { return octets + 320; }
  char* Third() { return octets + 448; }
  char* Url() { return octets + 944; }
};

class Containers : public ProviderTest {
 protected:
  // A context as the module opens it.
  struct Opened {
    explicit Opened(const DirectProvider& entries, const char* url) : provider(entries) {
      Must(provider.acquireContext(&handle, url, CRYPT_SILENT, nullptr), "CPAcquireContext");
    }
    ~Opened() { provider.releaseContext(handle, 0); }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    // The code that ends the list goes to *end.
    std::vector<KeyInfo> Keys(DWORD* end = nullptr) const {
      std::vector<KeyInfo> out;
      KeyInfo info = {};
      DWORD length = sizeof(info);
      while (provider.getProvParam(handle, 45, reinterpret_cast<BYTE*>(&info), &length,
                                   out.empty() ? CRYPT_FIRST : 0)) {
        EXPECT_EQ(length, 88U);
        out.push_back(info);
        length = sizeof(info);
      }
      if (end != nullptr) *end = GetLastError();
      return out;
    }

    // The parameter, and the code in *code.
    Octets KeyParam(HCRYPTKEY key, DWORD parameter, DWORD* code) const {
      Octets out(32784);
      auto length = static_cast<DWORD>(out.size());
      *code = CodeOf(provider.getKeyParam(handle, key, parameter, out.data(), &length, 0));
      out.resize(*code == 0 ? length : 0);
      return out;
    }

    DWORD SetKeyParam(HCRYPTKEY key, DWORD parameter, const Octets& value) const {
      return CodeOf(provider.setKeyParam(handle, key, parameter, value.data(), 0));
    }

    const DirectProvider& provider;
    HCRYPTPROV handle = 0;
  };

  DWORD ProfileCode(const char* url, ProfileRecord* record) const {
    *record = {};
    strcpy(record->Url(), url);
    DWORD length = sizeof(*record);
    const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
    return CodeOf(
        CryptGetProvParam(context.Get(), 64, reinterpret_cast<BYTE*>(record), &length, 0));
  }

  void Damage(const char* file, long at) const {
    FILE* stream = fopen((home_.Path() + "\\" + file).c_str(), "r+b");
    ASSERT_NE(stream, nullptr) << file;
    fseek(stream, at, SEEK_SET);
    const int octet = fgetc(stream);
    fseek(stream, at, SEEK_SET);
    fputc(octet ^ 0x20, stream);
    fclose(stream);
  }

  const Octets certificate_ = FromHex(openssl::kGost2001ACertificate);
  const Octets certificateKey_ = FromHex(openssl::kGost2001AKey);
  const Octets otherCertificate_ = FromHex(openssl::kRsaCertificate);
  const DirectProvider direct_{};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_PROVIDER_CONTAINERS_FIXTURE_H_
