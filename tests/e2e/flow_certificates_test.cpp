// Certificates and requests: those that OpenSSL made, and those that the framework makes with keys
// of containers.
#include <algorithm>

#include "e2e/flow_setup.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

using Certificates = FlowTest;

UniqueCertContext FromText(const char* hex) { return CertificateContext(FromHex(hex)); }

// Another letter at the end of the subject's name; the DER stays in order.
UniqueCertContext Renamed(const UniqueCertContext& certificate) {
  Octets octets = Encoded(certificate);
  const CERT_NAME_BLOB& subject = certificate.Get()->pCertInfo->Subject;
  const auto place =
      std::search(octets.begin(), octets.end(), subject.pbData, subject.pbData + subject.cbData);
  place[subject.cbData - 1] ^= 1;
  return CertificateContext(octets);
}

struct OpensslChain {
  UniqueCertContext root = FromText(openssl::kChainRootCertificate);
  UniqueCertContext authority = FromText(openssl::kChainAuthorityCertificate);
  UniqueCertContext user = FromText(openssl::kChainUserCertificate);
};

TEST_F(Certificates, OpensslsChainIsCheckedLinkByLink) {
  const OpensslChain chain;
  TraceCapture trace;
  EXPECT_EQ(0u, CertificateSignatureCode(chain.authority.Get(), chain.root.Get()));
  EXPECT_THAT(trace.Messages(),
              ElementsAre(AllOf(StartsWith("EXT : ZarImportPublicKeyInfoEx : hCryptProv = "),
                                EndsWith(", aiKeyAlg = 201d, dwFlags = 0.")),
                          "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19.",
                          "EXT : ZarImportPublicKeyInfoEx : PublicKey[66] = 4 40 58 3c fd  ...ab "
                          "90.",
                          "EXT : ZarImportPublicKeyInfoEx : Data[64]=58 3c fd 93 42 ...."));
  EXPECT_EQ(0u, CertificateSignatureCode(chain.root.Get(), chain.root.Get()));
  EXPECT_EQ(0u, CertificateSignatureCode(chain.user.Get(), chain.authority.Get()));
}

TEST_F(Certificates, AnotherIssuerOrAnotherNameIsRefused) {
  const OpensslChain chain;
  EXPECT_EQ(kBadSignature, CertificateSignatureCode(chain.user.Get(), chain.root.Get()));
  EXPECT_EQ(kBadSignature,
            CertificateSignatureCode(Renamed(chain.user).Get(), chain.authority.Get()));
}

// The errors of the chain that the framework builds from `end` over `between`.
DWORD ChainErrors(const UniqueCertContext& end, const UniqueCertContext& between,
                  const UniqueCertContext& root, DWORD* length) {
  const UniqueCertStore<0> others(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  for (const auto* certificate : {&between, &root}) {
    CertAddCertificateContextToStore(others.Get(), certificate->Get(), CERT_STORE_ADD_ALWAYS,
                                     nullptr);
  }
  CERT_CHAIN_PARA para = {};
  para.cbSize = sizeof para;
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  Must(
      CertGetCertificateChain(nullptr, end.Get(), nullptr, others.Get(), &para, 0, nullptr, &chain),
      "CertGetCertificateChain");
  *length = chain->rgpChain[0]->cElement;
  const DWORD errors = chain->TrustStatus.dwErrorStatus;
  CertFreeCertificateChain(chain);
  return errors;
}

TEST_F(Certificates, TheFrameworkBuildsOpensslsChain) {
  const OpensslChain chain;
  DWORD length = 0;
  EXPECT_EQ(static_cast<DWORD>(CERT_TRUST_IS_UNTRUSTED_ROOT),
            ChainErrors(chain.user, chain.authority, chain.root, &length) &
                (CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_NOT_SIGNATURE_VALID));
  EXPECT_EQ(3u, length);
  EXPECT_NE(0u, ChainErrors(Renamed(chain.user), chain.authority, chain.root, &length) &
                    CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

// RSA is bound nowhere: the framework checks it itself.
TEST_F(Certificates, RsaIsLeftToTheFramework) {
  const auto certificate = FromText(openssl::kRsaCertificate);
  TraceCapture trace;
  EXPECT_EQ(0u, CertificateSignatureCode(certificate.Get(), certificate.Get()));
  EXPECT_EQ(kBadSignature, CertificateSignatureCode(Renamed(certificate).Get(), certificate.Get()));
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(Certificates, AnAuthorityIssuesThemForKeysOfBothForms) {
  const Person authority("authority", kMakersKey);
  const auto issuer = CertificateContext(
      IssueCertificate(authority.AsSigner(), "authority", authority.Subject(), 1));
  const Person stranger("stranger", kMakersKey);
  const auto other =
      CertificateContext(IssueCertificate(stranger.AsSigner(), "authority", stranger.Subject(), 1));
  EXPECT_EQ(0u, CertificateSignatureCode(issuer.Get(), issuer.Get()));
  for (const ALG_ID algId : {kNationalKey, kMakersKey}) {
    SCOPED_TRACE(algId);
    const Person owner(("owner" + std::to_string(algId)).c_str(), algId);
    const auto certificate =
        CertificateContext(IssueCertificate(authority.AsSigner(), "owner", owner.Subject(), 2));
    EXPECT_EQ(0u, CertificateSignatureCode(certificate.Get(), issuer.Get()));
    EXPECT_EQ(kBadSignature, CertificateSignatureCode(certificate.Get(), other.Get()));
    // And the owner's key, read from its certificate, checks what the owner issues.
    const auto next =
        CertificateContext(IssueCertificate(owner.AsSigner(), "next", stranger.Subject(), 3));
    EXPECT_EQ(0u, CertificateSignatureCode(next.Get(), certificate.Get()));
  }
}

TEST_F(Certificates, AMakersKeySignsItself) {
  const Person owner("owner", kMakersKey);
  const auto certificate = SelfSignedCertificate(owner.AsSigner());
  EXPECT_EQ(0u, CertificateSignatureCode(certificate.Get(), certificate.Get()));
  EXPECT_EQ(kBadSignature, CertificateSignatureCode(Renamed(certificate).Get(), certificate.Get()));
}

// What the framework makes for itself holds the provider's blob as it is, and
// the import takes a national key in an OCTET STRING only. The blob begins with 06.
TEST_F(Certificates, ANationalKeyInTheMakersFormIsRefused) {
  const Person owner("owner", kNationalKey);
  const auto certificate = SelfSignedCertificate(owner.AsSigner());
  EXPECT_STREQ(kNationalOid, certificate.Get()->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId);
  TraceCapture trace;
  EXPECT_EQ(static_cast<DWORD>(NTE_NO_MEMORY),
            CertificateSignatureCode(certificate.Get(), certificate.Get()));
  EXPECT_THAT(trace.Messages(),
              ElementsAre(testing::_,
                          "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.398.3.10.1.1.2.1.1.",
                          StartsWith("EXT : ZarImportPublicKeyInfoEx : PublicKey[80] = 6 2 0 0 4a  "
                                     "...")));
}

DWORD RequestCode(const Octets& request, const SubjectKey& key) {
  CERT_PUBLIC_KEY_INFO info = key.Info();
  return CodeOf(CryptVerifyCertificateSignature(0, X509_ASN_ENCODING,
                                                const_cast<BYTE*>(request.data()),
                                                static_cast<DWORD>(request.size()), &info));
}

TEST_F(Certificates, ARequestIsCheckedWithItsOwnKey) {
  for (const ALG_ID algId : {kNationalKey, kMakersKey}) {
    SCOPED_TRACE(algId);
    const Person owner(("owner" + std::to_string(algId)).c_str(), algId);
    const Person other(("other" + std::to_string(algId)).c_str(), algId);
    Octets request = SignRequest(owner.AsSigner(), owner.Subject());
    EXPECT_EQ(0u, RequestCode(request, owner.Subject()));
    EXPECT_EQ(kBadSignature, RequestCode(request, other.Subject()));
    request.back() ^= 1;
    EXPECT_EQ(kBadSignature, RequestCode(request, owner.Subject()));
  }
}

}  // namespace
}  // namespace zarext::test
