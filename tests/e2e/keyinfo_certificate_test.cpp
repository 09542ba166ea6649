// Certificates whose signatures the framework checks with keys that the module imports.
#include "e2e/keyinfo_setup.h"
#include "frame/handles.h"
#include "support/issued_certificate.h"
#include "support/openssl_fixtures.h"
#include "support/signed_message.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

using Certificates = KeyFrameworkTest;

// The certificate as its own issuer.
DWORD SelfSignedCode(HCRYPTPROV provider, PCCERT_CONTEXT certificate) {
  return CodeOf(CryptVerifyCertificateSignatureEx(
      provider, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
      const_cast<CERT_CONTEXT*>(certificate), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
      const_cast<CERT_CONTEXT*>(certificate), 0, nullptr));
}

// The certificate with one octet of its signature changed.
Octets Damaged(const Octets& certificate) {
  Octets damaged = certificate;
  damaged.back() ^= 1;
  return damaged;
}

TEST_F(Certificates, OpensslsGostCertificatesAreChecked) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  for (const char* text : {openssl::kGost2001ACertificate, openssl::kGost2001BCertificate,
                           openssl::kGost2001CCertificate}) {
    const Octets encoded = FromHex(text);
    const UniqueCertContext certificate = CertificateContext(encoded);
    TraceCapture trace;
    EXPECT_EQ(0u, SelfSignedCode(context.Get(), certificate.Get()));
    EXPECT_THAT(trace.Messages(),
                Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19."));
    EXPECT_THAT(trace.Messages(),
                Contains(HasSubstr("EXT : ZarImportPublicKeyInfoEx : Data[64]=")));
    EXPECT_NE(0u, SelfSignedCode(context.Get(), CertificateContext(Damaged(encoded)).Get()));
  }
}

TEST_F(Certificates, WithoutAProviderTheFrameworkFindsOne) {
  const UniqueCertContext certificate = CertificateContext(FromHex(openssl::kGost2001ACertificate));
  EXPECT_EQ(0u, SelfSignedCode(0, certificate.Get()));
}

// A self-signed certificate made by the framework for the holder's key.
UniqueCertContext SelfSigned(const KeyHolder& holder, const char* signatureOid) {
  return SelfSignedCertificate({holder.Provider(), AT_SIGNATURE, signatureOid, "Self"});
}

TEST_F(Certificates, SelfSignedByTheFrameworkAndChecked) {
  const KeyHolder holder("holder");
  TraceCapture trace;
  const UniqueCertContext certificate = SelfSigned(holder, "1.3.6.1.4.1.32473.1.2.2");
  EXPECT_THAT(trace.Messages(),
              Contains(HasSubstr("EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1")));
  const CERT_PUBLIC_KEY_INFO& key = certificate.Get()->pCertInfo->SubjectPublicKeyInfo;
  EXPECT_STREQ("1.3.6.1.4.1.32473.1.5.8", key.Algorithm.pszObjId);
  EXPECT_EQ(holder.PublicBlob(),
            Octets(key.PublicKey.pbData, key.PublicKey.pbData + key.PublicKey.cbData));
  EXPECT_EQ(0u, SelfSignedCode(holder.Provider(), certificate.Get()));
  const Octets encoded(certificate.Get()->pbCertEncoded,
                       certificate.Get()->pbCertEncoded + certificate.Get()->cbCertEncoded);
  EXPECT_NE(0u, SelfSignedCode(holder.Provider(), CertificateContext(Damaged(encoded)).Get()));
}

// The trust errors of the certificate's chain, which ends with itself.
DWORD ChainErrors(PCCERT_CONTEXT certificate) {
  CERT_CHAIN_PARA para = {};
  para.cbSize = sizeof para;
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  Must(CertGetCertificateChain(nullptr, certificate, nullptr, nullptr, &para, 0, nullptr, &chain),
       "CertGetCertificateChain");
  const DWORD errors = chain->TrustStatus.dwErrorStatus;
  CertFreeCertificateChain(chain);
  return errors;
}

TEST_F(Certificates, ANationalSignatureIsCheckedWithoutAProvider) {
  const KeyHolder holder("holder");
  const UniqueCertContext certificate = SelfSigned(holder, "1.2.398.3.10.1.1.1.2");
  EXPECT_EQ(0u, SelfSignedCode(0, certificate.Get()));
  EXPECT_EQ(0u, ChainErrors(certificate.Get()) & CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

TEST_F(Certificates, TheShortFormOfTheCheck) {
  const KeyHolder holder("holder");
  const UniqueCertContext certificate = SelfSigned(holder, "1.3.6.1.4.1.32473.1.2.2");
  TraceCapture trace;
  EXPECT_TRUE(CryptVerifyCertificateSignature(
      holder.Provider(), X509_ASN_ENCODING, certificate.Get()->pbCertEncoded,
      certificate.Get()->cbCertEncoded, &certificate.Get()->pCertInfo->SubjectPublicKeyInfo));
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.3.6.1.4.1.32473.1.5.8."));
}

TEST_F(Certificates, SignedMessagesAreChecked) {
  const KeyHolder holder("holder");
  const UniqueCertContext certificate = SelfSigned(holder, "1.3.6.1.4.1.32473.1.2.2");
  Octets message = SignMessage(certificate.Get(), "1.3.6.1.4.1.32473.1.2.1", {1, 2, 3});
  Octets content;
  TraceCapture trace;
  EXPECT_EQ(0u, VerifyMessage(message, &content));
  EXPECT_EQ((Octets{1, 2, 3}), content);
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.3.6.1.4.1.32473.1.5.8."));
  message.back() ^= 1;
  EXPECT_NE(0u, VerifyMessage(message, &content));
}

TEST_F(Certificates, ChainsCheckSignaturesThroughTheModule) {
  const Octets encoded = FromHex(openssl::kGost2001ACertificate);
  TraceCapture trace;
  const DWORD good = ChainErrors(CertificateContext(encoded).Get());
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19."));
  EXPECT_EQ(0u, good & CERT_TRUST_IS_NOT_SIGNATURE_VALID);
  EXPECT_NE(0u, ChainErrors(CertificateContext(Damaged(encoded)).Get()) &
                    CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

}  // namespace
}  // namespace zarext::test
