// What the tests of keys in certificate form share: the module registered with the framework, and
// keys of the development provider.
#ifndef ZAREXT_TESTS_E2E_KEYINFO_SETUP_H_
#define ZAREXT_TESTS_E2E_KEYINFO_SETUP_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <string>

#include "contract/provider_fixture.h"
#include "e2e/key_holder.h"
#include "support/module_under_test.h"
#include "support/trace_capture.h"

namespace zarext::test {

// Bound by CryptRegisterOIDFunction, one export each, and to nothing else.
inline constexpr char kExportOnlyOid[] = "1.3.6.1.4.1.32473.99.1";
inline constexpr char kImportOnlyOid[] = "1.3.6.1.4.1.32473.99.2";
inline constexpr char kConvertOnlyOid[] = "1.3.6.1.4.1.32473.99.3";

// A CERT_PUBLIC_KEY_INFO that one of the framework's functions fills.
class PublicKeyInfo {
 public:
  template <typename Call>
  PublicKeyInfo(const char* name, Call call)
      : octets_(Fetch(name, [&](BYTE* data, DWORD* size) {
          return call(reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(data), size);
        })) {}
  // The octets never move: pointers inside point into them.
  PublicKeyInfo(const PublicKeyInfo&) = delete;
  PublicKeyInfo& operator=(const PublicKeyInfo&) = delete;

  [[nodiscard]] CERT_PUBLIC_KEY_INFO* Get() {
    return reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(octets_.data());
  }
  [[nodiscard]] std::string Oid() { return Get()->Algorithm.pszObjId; }
  [[nodiscard]] Octets Key() {
    return {Get()->PublicKey.pbData, Get()->PublicKey.pbData + Get()->PublicKey.cbData};
  }

 private:
  Octets octets_;
};

class KeyFrameworkTest : public ProviderTest {};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_KEYINFO_SETUP_H_
