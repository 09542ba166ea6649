// Step 4: the store "Zarvel Store Provider".
#include <string>
#include <utility>

#include "demo/actors.h"
#include "demo/provider_store.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/issued_certificate.h"
#include "support/signed_message.h"

namespace zarext::demo {
namespace {

constexpr char kNationalHash[] = "1.2.398.3.10.1.3.2";

void Add(const UniqueCertStore<0>& store, const Actor& actor) {
  const auto certificate = test::CertificateContext(ReadHandedOn(actor));
  Call("CertAddCertificateContextToStore(\"" + SubjectName(certificate.Get()) + "\")");
  const DWORD code = test::CodeOf(CertAddCertificateContextToStore(store.Get(), certificate.Get(),
                                                                   CERT_STORE_ADD_NEW, nullptr));
  ExpectCode(0, code, "the certificate is with its key in the container");
}

void ExpectEntry(const Listing& entries, const Actor& actor, const std::string& serial) {
  const auto found = entries.find(actor.container);
  Expect(found != entries.end() && found->second.encoded == ReadHandedOn(actor),
         std::string("the certificate of ") + actor.container + " came back octet for octet");
  const std::string url = std::string("profile://") + actor.container + "/?sn=" + serial;
  const Entry& entry = found->second;
  const std::string provider = actor.providerType == 1 ? "Zarvel CSP RSA" : "Zarvel CSP";
  Expect(entry.container == url && entry.provider == provider &&
             entry.providerType == actor.providerType && entry.keySpec == AT_SIGNATURE,
         "it points to its key");
}

Octets Sign(PCCERT_CONTEXT signer, const Octets& content) {
  Call("CryptSignMessage(\"" + SubjectName(signer) + "\", hash " + kNationalHash + ")");
  return test::SignMessage(signer, kNationalHash, content);
}

DWORD Verify(const Octets& message, Octets* content) {
  Call("CryptVerifyMessageSignature()");
  return test::VerifyMessage(message, content);
}

void SignAndVerify(const UniqueCertStore<0>& store) {
  Call("CertFindCertificateInStore(\"demo-national\")");
  const UniqueCertContext signer(CertFindCertificateInStore(
      store.Get(), X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_W, L"demo-national", nullptr));
  test::Must(signer.Get() != nullptr, "CertFindCertificateInStore");
  const std::string text = "Signed with the key that the certificate points to.";
  const Octets content(text.begin(), text.end());
  Octets message = Sign(signer.Get(), content);
  Octets read;
  ExpectCode(0, Verify(message, &read), "the signature is right");
  Expect(read == content, "the content is what was signed");
  message.back() ^= 1;  // the end of the signature
  ExpectCode(static_cast<DWORD>(NTE_BAD_SIGNATURE), Verify(message, &read),
             "refused: one bit of the signature is another");
}

}  // namespace

void UseStore() {
  auto store = OpenStore();
  for (const Actor& actor : {kNational, kMaker, kRsa}) {
    Add(store, actor);
  }
  CloseStore(std::move(store));
  store = OpenStore();
  const auto entries = List(store);
  ExpectEntry(entries, kNational, "175A02");
  ExpectEntry(entries, kMaker, "175A03");
  ExpectEntry(entries, kRsa, "175A04");
  SignAndVerify(store);
  CloseStore(std::move(store));
}

}  // namespace zarext::demo
