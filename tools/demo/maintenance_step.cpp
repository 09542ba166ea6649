// Step 7: what installers call.
#include <string>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/issued_certificate.h"
#include "support/module_under_test.h"
#include "zarext.h"

namespace zarext::demo {
namespace {

struct SystemStore {
  DWORD index;
  const wchar_t* name;
};
// Windows asks its user before anything goes into or out of the user's "ROOT"; the demo lets it be.
constexpr SystemStore kStores[] = {{ZAREXT_STORE_TRUST, L"TRUST"},
                                   {ZAREXT_STORE_CA, L"CA"},
                                   {ZAREXT_STORE_OTHER_PEOPLE, L"Other People"},
                                   {ZAREXT_STORE_PERSONAL, L"Personal"}};

UniqueCertContext Find(const wchar_t* name, const UniqueCertContext& certificate) {
  const UniqueCertStore<0> store(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, name));
  test::Must(store.Get() != nullptr, "CertOpenStore");
  return UniqueCertContext(CertFindCertificateInStore(
      store.Get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, certificate.Get(), nullptr));
}

void Delete(const SystemStore& store, const UniqueCertContext& certificate) {
  Call("DelOtherCert(FALSE, " + std::to_string(store.index) + ", ...)");
  const PCCERT_CONTEXT context = certificate.Get();
  const BOOL deleted = test::Export<decltype(DelOtherCert)>("DelOtherCert")(
      FALSE, store.index, context->pbCertEncoded, context->cbCertEncoded);
  Expect(deleted && !Find(store.name, certificate), "it is gone from \"" + Utf8(store.name) + "\"");
}

void InstallAndRemove(const SystemStore& store, const UniqueCertContext& certificate) {
  Call("SetOtherCert(FALSE, " + std::to_string(store.index) + ", ...)");
  const PCCERT_CONTEXT context = certificate.Get();
  const BOOL added = test::Export<decltype(SetOtherCert)>("SetOtherCert")(
      FALSE, store.index, context->pbCertEncoded, context->cbCertEncoded);
  Expect(added && Find(store.name, certificate),
         "the certificate is in \"" + Utf8(store.name) + "\"");
  Delete(store, certificate);
}

void InstallOwn(const UniqueCertContext& certificate) {
  const std::string container = std::string("profile://") + kNational.container;
  Call("SetSelfCert(FALSE, \"" + container + "\", AT_SIGNATURE, ...)");
  const PCCERT_CONTEXT context = certificate.Get();
  const BOOL added = test::Export<decltype(SetSelfCert)>("SetSelfCert")(
      FALSE, container.c_str(), AT_SIGNATURE, context->pbCertEncoded, context->cbCertEncoded);
  const UniqueCertContext found = Find(L"MY", certificate);
  Expect(added && found, "the certificate is in \"MY\"");
  HCRYPTPROV provider = 0;
  DWORD keySpec = 0;
  BOOL toBeReleased = FALSE;
  Call("CryptAcquireCertificatePrivateKey()");
  const DWORD code = test::CodeOf(CryptAcquireCertificatePrivateKey(
      found.Get(), 0, nullptr, &provider, &keySpec, &toBeReleased));
  const test::Context owner(toBeReleased ? provider : 0);
  ExpectCode(0, code, "its property leads to the container with its key");
  Expect(keySpec == AT_SIGNATURE, "the key specification is the given one");
}

}  // namespace

void MaintainStores() {
  Note("these exports trace nothing; their failures go to c:\\zarext.log, if there is such a file");
  const auto certificate = test::CertificateContext(ReadHandedOn(kNational));
  InstallOwn(certificate);
  Delete({ZAREXT_STORE_MY, L"MY"}, certificate);
  const auto authority = test::CertificateContext(ReadHandedOn(kAuthority));
  for (const SystemStore& store : kStores) {
    InstallAndRemove(store, authority);
  }
}

}  // namespace zarext::demo
