// Both exports that import a public key, and keys for them.
#ifndef ZAREXT_TESTS_CONTRACT_KEYINFO_IMPORT_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_KEYINFO_IMPORT_FIXTURE_H_

#include <string>

#include "contract/keyinfo_fixture.h"
#include "support/guarded_memory.h"

namespace zarext::test {

using PlainImport = BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*);
using ExtendedImport = BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID, DWORD, void*,
                                   HCRYPTKEY*);

inline constexpr char kMaker[] = "1.3.6.1.4.1.32473.1.5.8";
inline constexpr char kNational512[] = "1.2.398.3.10.1.1.2.1.1";

// A key whose octets end at a page that nobody may touch.
class PublicKey {
 public:
  PublicKey(const char* oid, const Octets& bits) : bits_(bits) {
    info_.Algorithm.pszObjId = const_cast<char*>(oid);
    // Neither is looked at.
    info_.Algorithm.Parameters = {0xFFFFFFFF, reinterpret_cast<BYTE*>(1)};
    info_.PublicKey = {static_cast<DWORD>(bits.size()), bits_.Data(), 5};
    bits_.MakeReadOnly();
  }
  CERT_PUBLIC_KEY_INFO* Info() { return &info_; }

 private:
  GuardedMemory bits_;
  CERT_PUBLIC_KEY_INFO info_ = {};
};

// Runs each test with both exports.
class PublicKeyImport : public KeyInfoTest, public testing::WithParamInterface<bool> {
 protected:
  [[nodiscard]] static bool Extended() { return GetParam(); }
  [[nodiscard]] static std::string Prefix() {
    return Extended() ? "EXT : ZarImportPublicKeyInfoEx : " : "EXT : ZarImportPublicKeyInfo : ";
  }
  [[nodiscard]] static std::string Spelling() { return Extended() ? "CryptoPro" : "CRyptoPro"; }

  [[nodiscard]] std::string EntryLine() const {
    return Prefix() + "hCryptProv = " + H(Provider()) +
           (Extended() ? ", aiKeyAlg = aa3a, dwFlags = 0." : ".");
  }

  BOOL Call(CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key, DWORD encodingType = 1) {
    return CallWith(Provider(), info, key, encodingType);
  }
  static BOOL CallWith(HCRYPTPROV provider, CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key,
                       DWORD encodingType = 1) {
    return Extended()
               ? Export<ExtendedImport>("ZarImportPublicKeyInfoEx")(provider, encodingType, info,
                                                                    0xAA3A, 0, nullptr, key)
               : Export<PlainImport>("ZarImportPublicKeyInfo")(provider, encodingType, info, key);
  }

  // Imports and gives the blob that reached the provider, in hexadecimal.
  std::string ImportedBlob(const char* oid, const Octets& bits) {
    PublicKey key(oid, bits);
    HCRYPTKEY handle = 0;
    provider_.ClearCalls();
    if (!Call(key.Info(), &handle)) {
      return "failed with " + H(GetLastError());
    }
    const std::string call = provider_.Calls().back();
    EXPECT_EQ(0u, call.find("ImportKey(1001, [")) << call;
    const std::size_t end = call.find("], 0, 0) = " + H(OwnKey(handle)));
    EXPECT_NE(std::string::npos, end) << call;
    CryptDestroyKey(handle);
    return call.substr(17, end - 17);
  }
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_KEYINFO_IMPORT_FIXTURE_H_
