// Certificates whose signatures the framework checks with keys that the module imports.
#include "e2e/keyinfo_setup.h"
#include "frame/handles.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

using Certificates = KeyFrameworkTest;

UniqueCertContext Decode(const Octets& encoded) {
  UniqueCertContext certificate(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                             static_cast<DWORD>(encoded.size())));
  Must(certificate.Get() != nullptr, "CertCreateCertificateContext");
  return certificate;
}

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
    const UniqueCertContext certificate = Decode(encoded);
    TraceCapture trace;
    EXPECT_EQ(0u, SelfSignedCode(context.Get(), certificate.Get()));
    EXPECT_THAT(trace.Messages(),
                Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19."));
    EXPECT_THAT(trace.Messages(),
                Contains(HasSubstr("EXT : ZarImportPublicKeyInfoEx : Data[64]=")));
    EXPECT_NE(0u, SelfSignedCode(context.Get(), Decode(Damaged(encoded)).Get()));
  }
}

TEST_F(Certificates, WithoutAProviderTheFrameworkFindsOne) {
  const UniqueCertContext certificate = Decode(FromHex(openssl::kGost2001ACertificate));
  EXPECT_EQ(0u, SelfSignedCode(0, certificate.Get()));
}

// A self-signed certificate made by the framework for the holder's key.
UniqueCertContext SelfSigned(const KeyHolder& holder, const char* signatureOid) {
  Octets name = Fetch("CertStrToName", [&](BYTE* data, DWORD* size) {
    return CertStrToNameA(X509_ASN_ENCODING, "CN=Self", CERT_X500_NAME_STR, nullptr, data, size,
                          nullptr);
  });
  CERT_NAME_BLOB subject = {static_cast<DWORD>(name.size()), name.data()};
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {const_cast<char*>(signatureOid), {}};
  UniqueCertContext certificate(CertCreateSelfSignCertificate(
      holder.Provider(), &subject, 0, nullptr, &algorithm, nullptr, nullptr, nullptr));
  Must(certificate.Get() != nullptr, "CertCreateSelfSignCertificate");
  return certificate;
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
  EXPECT_NE(0u, SelfSignedCode(holder.Provider(), Decode(Damaged(encoded)).Get()));
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

// A signed message with the signer's certificate in it.
Octets SignMessage(PCCERT_CONTEXT signer, const Octets& content) {
  CRYPT_SIGN_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  para.pSigningCert = signer;
  para.HashAlgorithm.pszObjId = const_cast<char*>("1.3.6.1.4.1.32473.1.2.1");
  para.cMsgCert = 1;
  para.rgpMsgCert = &signer;
  const BYTE* parts[] = {content.data()};
  DWORD sizes[] = {static_cast<DWORD>(content.size())};
  return Fetch("CryptSignMessage", [&](BYTE* data, DWORD* size) {
    return CryptSignMessage(&para, FALSE, 1, parts, sizes, data, size);
  });
}

DWORD MessageCode(const Octets& message) {
  CRYPT_VERIFY_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgAndCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  return CodeOf(CryptVerifyMessageSignature(
      &para, 0, message.data(), static_cast<DWORD>(message.size()), nullptr, nullptr, nullptr));
}

TEST_F(Certificates, SignedMessagesAreChecked) {
  const KeyHolder holder("holder");
  const UniqueCertContext certificate = SelfSigned(holder, "1.3.6.1.4.1.32473.1.2.2");
  Octets message = SignMessage(certificate.Get(), {1, 2, 3});
  TraceCapture trace;
  EXPECT_EQ(0u, MessageCode(message));
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.3.6.1.4.1.32473.1.5.8."));
  message.back() ^= 1;
  EXPECT_NE(0u, MessageCode(message));
}

TEST_F(Certificates, ChainsCheckSignaturesThroughTheModule) {
  const Octets encoded = FromHex(openssl::kGost2001ACertificate);
  TraceCapture trace;
  const DWORD good = ChainErrors(Decode(encoded).Get());
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19."));
  EXPECT_EQ(0u, good & CERT_TRUST_IS_NOT_SIGNATURE_VALID);
  EXPECT_NE(0u, ChainErrors(Decode(Damaged(encoded)).Get()) & CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

}  // namespace
}  // namespace zarext::test
