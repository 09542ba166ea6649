// Step 2: certificates that nobody here made.
#include <algorithm>
#include <string>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/issued_certificate.h"

namespace zarext::demo {
namespace {

constexpr auto kBadSignature = static_cast<DWORD>(NTE_BAD_SIGNATURE);

// Root, authority and user, each signed by the one before.
struct Chain {
  explicit Chain(const std::string& kind)
      : root(Load(kind + "-root.der")),
        authority(Load(kind + "-authority.der")),
        user(Load(kind + "-user.der")) {}

  static UniqueCertContext Load(const std::string& file) {
    return test::CertificateContext(ReadCertificate(file));
  }

  UniqueCertContext root;
  UniqueCertContext authority;
  UniqueCertContext user;
};

void VerifySignatures(const Chain& chain) {
  const CERT_INFO& info = *chain.user.Get()->pCertInfo;
  Note(std::string("keys ") + info.SubjectPublicKeyInfo.Algorithm.pszObjId + ", signatures " +
       info.SignatureAlgorithm.pszObjId);
  ExpectCode(0, Verify(chain.root, chain.root), "the root signed itself");
  ExpectCode(0, Verify(chain.authority, chain.root), "the root signed the authority's certificate");
  ExpectCode(0, Verify(chain.user, chain.authority), "the authority signed the user's");
}

// One bit of the subject's name turned round, which leaves the DER in order.
void RefuseDamaged(const Chain& chain) {
  const PCCERT_CONTEXT user = chain.user.Get();
  Octets damaged(user->pbCertEncoded, user->pbCertEncoded + user->cbCertEncoded);
  const CERT_NAME_BLOB& subject = user->pCertInfo->Subject;
  const auto place =
      std::search(damaged.begin(), damaged.end(), subject.pbData, subject.pbData + subject.cbData);
  place[subject.cbData - 1] ^= 1;
  ExpectCode(kBadSignature, Verify(test::CertificateContext(damaged), chain.authority),
             "refused: one bit of the certificate is not what the authority signed");
}

void BuildChain(const Chain& chain) {
  const UniqueCertStore<0> others(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  for (const auto* certificate : {&chain.root, &chain.authority}) {
    CertAddCertificateContextToStore(others.Get(), certificate->Get(), CERT_STORE_ADD_ALWAYS,
                                     nullptr);
  }
  CERT_CHAIN_PARA para = {};
  para.cbSize = sizeof para;
  PCCERT_CHAIN_CONTEXT built = nullptr;
  Call("CertGetCertificateChain(\"" + SubjectName(chain.user.Get()) + "\")");
  test::Must(CertGetCertificateChain(nullptr, chain.user.Get(), nullptr, others.Get(), &para, 0,
                                     nullptr, &built),
             "CertGetCertificateChain");
  const DWORD length = built->rgpChain[0]->cElement;
  const DWORD errors = built->TrustStatus.dwErrorStatus;
  CertFreeCertificateChain(built);
  Expect(length == 3, "the chain has three certificates");
  Expect((errors & CERT_TRUST_IS_NOT_SIGNATURE_VALID) == 0, "every signature in it is right");
  Expect((errors & CERT_TRUST_IS_UNTRUSTED_ROOT) != 0, "its root is none that is trusted here");
}

}  // namespace

void VerifyCertificates() {
  const Chain gost("gost");
  VerifySignatures(gost);
  RefuseDamaged(gost);
  ExpectCode(kBadSignature, Verify(gost.user, gost.root), "refused: it was not the root");
  BuildChain(gost);
  const Chain rsa("rsa");
  VerifySignatures(rsa);
  RefuseDamaged(rsa);
}

}  // namespace zarext::demo
