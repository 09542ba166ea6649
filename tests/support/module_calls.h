// Exports that the framework of the tests never calls, as it would call them.
#ifndef ZAREXT_TESTS_SUPPORT_MODULE_CALLS_H_
#define ZAREXT_TESTS_SUPPORT_MODULE_CALLS_H_

#include <windows.h>

#include <wincrypt.h>

#include "support/module_under_test.h"
#include "support/provider_calls.h"

namespace zarext::test {

using ExportPrivKeyFunc = BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*,
                                      CRYPT_PRIVATE_KEY_INFO*, DWORD*);
using ImportPrivKeyFunc = BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*);
using GenEncryptKey = BOOL WINAPI(HCRYPTPROV*, CRYPT_ALGORITHM_IDENTIFIER*, void*,
                                  CERT_PUBLIC_KEY_INFO*, PFN_CMSG_ALLOC, HCRYPTKEY*, BYTE**,
                                  DWORD*);
using ExportEncryptKey = BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, CERT_PUBLIC_KEY_INFO*, BYTE*, DWORD*);
using ImportEncryptKey = BOOL WINAPI(HCRYPTPROV, DWORD, CRYPT_ALGORITHM_IDENTIFIER*,
                                     CRYPT_ALGORITHM_IDENTIFIER*, BYTE*, DWORD, HCRYPTKEY*);

// The exported private key of a container, in a zeroed block of the size that the export asks for.
class PrivateKeyInfo {
 public:
  PrivateKeyInfo(HCRYPTPROV provider, DWORD keySpec) {
    auto* exportKey = test::Export<ExportPrivKeyFunc>("ZarExportPrivKeyFunc");
    DWORD size = 0;
    Must(exportKey(provider, keySpec, nullptr, 0, nullptr, nullptr, &size), "ZarExportPrivKeyFunc");
    block_.resize(size);
    Must(exportKey(provider, keySpec, nullptr, 0, nullptr, Get(), &size), "ZarExportPrivKeyFunc");
  }
  CRYPT_PRIVATE_KEY_INFO* Get() { return reinterpret_cast<CRYPT_PRIVATE_KEY_INFO*>(block_.data()); }

 private:
  Octets block_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_MODULE_CALLS_H_
