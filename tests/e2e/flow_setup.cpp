#include "e2e/flow_setup.h"

#include "support/prepared_process.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

const PreparedProcess prepared(&RegisterPatchedModule);

}  // namespace

Person::Person(const char* container, ALG_ID algId)
    : name_(container),
      national_(algId == kNationalKey),
      context_(NewContainer(container)),
      key_(Generate(context_, algId, CRYPT_EXPORTABLE)),
      subject_(national_ ? SubjectKey::National(kNationalOid, key_)
                         : SubjectKey::Makers(kMakersOid, key_)) {}

Signer Person::AsSigner() const {
  return {context_.Get(), AT_SIGNATURE, national_ ? kNationalSignature : kMakersSignature, name_};
}

Octets Encoded(const UniqueCertContext& certificate) {
  return {certificate.Get()->pbCertEncoded,
          certificate.Get()->pbCertEncoded + certificate.Get()->cbCertEncoded};
}

FlowTest::FlowTest() : clock_(Module(), NextStart()) {
  UseDevProvider();
  SharedSection().Wipe();
}

UniqueCertStore<0> FlowTest::OpenStore() {
  UniqueCertStore<0> store(CertOpenStore(kProviderStore, 0, 0, 0, nullptr));
  Must(store.Get() != nullptr, "CertOpenStore");
  return store;
}

UniqueCertContext FlowTest::Find(const UniqueCertStore<0>& store, const wchar_t* name) {
  return UniqueCertContext(CertFindCertificateInStore(store.Get(), X509_ASN_ENCODING, 0,
                                                      CERT_FIND_SUBJECT_STR_W, name, nullptr));
}

}  // namespace zarext::test
