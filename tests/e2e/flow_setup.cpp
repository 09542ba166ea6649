#include "e2e/flow_setup.h"

#include <stdexcept>

#include "support/prepared_process.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

void RegisterModule() {
  if (Regsvr32(PatchedModule()) != 0) {
    throw std::runtime_error("regsvr32 failed");
  }
}
const PreparedProcess prepared(&RegisterModule);

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
  return UniqueCertContext(CertFindCertificateInStore(store.Get(), kEncoding, 0,
                                                      CERT_FIND_SUBJECT_STR_W, name, nullptr));
}

Octets SignMessage(PCCERT_CONTEXT signer, const char* hashOid, const Octets& content) {
  CRYPT_SIGN_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgEncodingType = kEncoding;
  para.pSigningCert = signer;
  para.HashAlgorithm.pszObjId = const_cast<char*>(hashOid);
  para.cMsgCert = 1;
  para.rgpMsgCert = &signer;
  const BYTE* parts[] = {content.data()};
  DWORD sizes[] = {static_cast<DWORD>(content.size())};
  return Fetch("CryptSignMessage", [&](BYTE* data, DWORD* size) {
    return CryptSignMessage(&para, FALSE, 1, parts, sizes, data, size);
  });
}

DWORD VerifyMessage(const Octets& message, Octets* content) {
  CRYPT_VERIFY_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgAndCertEncodingType = kEncoding;
  content->resize(message.size());
  auto size = static_cast<DWORD>(content->size());
  const DWORD code = CodeOf(CryptVerifyMessageSignature(&para, 0, message.data(),
                                                        static_cast<DWORD>(message.size()),
                                                        content->data(), &size, nullptr));
  content->resize(code == 0 ? size : 0);
  return code;
}

}  // namespace zarext::test
