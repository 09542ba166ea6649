// The fake platform's stores and certificates.
#include <windows.h>
#include <wincrypt.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "unit/fake_answers.h"
#include "unit/fake_platform.h"

namespace zarext::test {
namespace {

// A store is its certificates' number: how many an enumeration still gives.
struct Store {
  int left;
};

struct Certificate : CERT_CONTEXT {
  CERT_INFO info = {};
};

PCCERT_CONTEXT NewCertificate(const BYTE* encoded, DWORD size) {
  FakePlatform& platform = Platform();
  auto certificate = std::make_unique<Certificate>();
  certificate->dwCertEncodingType = X509_ASN_ENCODING;
  certificate->pbCertEncoded = platform.Keep({encoded, encoded + size});
  certificate->cbCertEncoded = size;
  certificate->pCertInfo = &certificate->info;
  certificate->hCertStore = nullptr;
  CERT_INFO& info = certificate->info;
  const auto blob = [&](std::size_t most) -> CRYPT_DATA_BLOB {
    const std::vector<std::uint8_t> octets = platform.input.Octets(most);
    return {static_cast<DWORD>(octets.size()), platform.Keep(octets)};
  };
  info.SerialNumber = blob(20);
  info.Issuer = blob(30);
  info.Subject = platform.input.Octet() % 2 == 0 ? info.Issuer : blob(30);
  info.SignatureAlgorithm.pszObjId = platform.input.Oid();
  info.SubjectPublicKeyInfo.Algorithm.pszObjId = platform.input.Oid();
  ++platform.certificates;
  return certificate.release();
}

}  // namespace
}  // namespace zarext::test

using zarext::test::Platform;

HCERTSTORE CertOpenStore(LPCSTR /*provider*/, DWORD /*encodingType*/, HCRYPTPROV /*context*/,
                         DWORD /*flags*/, const void* /*parameter*/) {
  if (zarext::test::CallFails()) {
    return nullptr;
  }
  ++Platform().stores;
  return new zarext::test::Store{0};
}
BOOL CertCloseStore(HCERTSTORE store, DWORD /*flags*/) {
  delete static_cast<zarext::test::Store*>(store);
  --Platform().stores;
  return TRUE;
}
HCERTSTORE CryptGetMessageCertificates(DWORD /*encodingType*/, HCRYPTPROV /*context*/,
                                       DWORD /*flags*/, const BYTE* message, DWORD size) {
  zarext::test::ReadAll(message, size);
  if (zarext::test::CallFails()) {
    return nullptr;
  }
  ++Platform().stores;
  return new zarext::test::Store{Platform().input.Octet() % 4};
}
PCCERT_CONTEXT CertCreateCertificateContext(DWORD /*encodingType*/, const BYTE* encoded,
                                            DWORD size) {
  return zarext::test::CallFails() ? nullptr : zarext::test::NewCertificate(encoded, size);
}
PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous) {
  if (previous != nullptr) {
    CertFreeCertificateContext(previous);
  }
  int& left = static_cast<zarext::test::Store*>(store)->left;
  if (left == 0) {
    return nullptr;
  }
  --left;
  const std::vector<std::uint8_t> encoded = Platform().input.Octets(100);
  return zarext::test::NewCertificate(encoded.data(), static_cast<DWORD>(encoded.size()));
}
BOOL CertFreeCertificateContext(PCCERT_CONTEXT context) {
  delete static_cast<const zarext::test::Certificate*>(context);
  --Platform().certificates;
  return TRUE;
}
BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT /*context*/, DWORD /*property*/,
                                       DWORD /*flags*/, const void* data) {
  const auto& info = *static_cast<const CRYPT_KEY_PROV_INFO*>(data);
  for (const wchar_t* text : {info.pwszContainerName, info.pwszProvName}) {
    while (text != nullptr && *text != 0) {
      ++text;
    }
  }
  return TRUE;
}
BOOL CertAddCertificateContextToStore(HCERTSTORE /*store*/, PCCERT_CONTEXT context,
                                      DWORD /*disposition*/, PCCERT_CONTEXT* /*added*/) {
  zarext::test::ReadAll(context->pbCertEncoded, context->cbCertEncoded);
  return zarext::test::CallFails() ? FALSE : TRUE;
}
BOOL CertAddEncodedCertificateToStore(HCERTSTORE /*store*/, DWORD /*encodingType*/,
                                      const BYTE* encoded, DWORD size, DWORD /*disposition*/,
                                      PCCERT_CONTEXT* /*added*/) {
  zarext::test::ReadAll(encoded, size);
  return zarext::test::CallFails() ? FALSE : TRUE;
}
