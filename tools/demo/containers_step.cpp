// Step 3: keys in containers, their certificates, and a request.
#include <string>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/issued_certificate.h"

namespace zarext::demo {
namespace {

using test::SubjectKey;

test::Signer SignerOf(const Actor& actor, const test::Context& context) {
  return {context.Get(), actor.keySpec, actor.signatureOid, actor.container};
}

// By the framework alone, which asks the module for the form of the public key.
UniqueCertContext SelfSign(const Actor& actor, const test::Context& context) {
  Call(std::string("CertCreateSelfSignCertificate(\"") + actor.container + "\", signature " +
       actor.signatureOid + ")");
  UniqueCertContext certificate = test::SelfSignedCertificate(SignerOf(actor, context));
  const char* const oid = certificate.Get()->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId;
  Expect(std::string(oid) == actor.keyOid, std::string("its key is of algorithm ") + oid);
  return certificate;
}

void SelfSignAndVerify(const Actor& actor, const test::Context& context) {
  const auto certificate = SelfSign(actor, context);
  ExpectCode(0, Verify(certificate, certificate), "it signed itself");
}

// The framework's own self-signed certificates hold the provider's blob as it is, for every key.
// That is the maker's form; the national form has the value in an OCTET STRING and is made by who
// issues the certificate.
void SelfSignNational(const test::Context& context, const SubjectKey& key) {
  const auto makersForm = SelfSign(kNational, context);
  ExpectCode(static_cast<DWORD>(NTE_NO_MEMORY), Verify(makersForm, makersForm),
             "refused, as it has to be: a national key, but not in the national form");
  Call(std::string("CryptSignAndEncodeCertificate(\"") + kNational.container + "\", by itself)");
  const auto certificate = test::CertificateContext(
      test::IssueCertificate(SignerOf(kNational, context), kNational.container, key, 1));
  ExpectCode(0, Verify(certificate, certificate), "it signed itself");
}

// A certificate of the authority for the key, handed on to the next steps.
void Issue(const Actor& actor, const SubjectKey& key, const UniqueCertContext& issuer,
           const test::Context& authority, std::uint8_t serial) {
  Call(std::string("CryptSignAndEncodeCertificate(\"") + actor.container + "\", by \"" +
       kAuthority.container + "\")");
  const Octets encoded =
      test::IssueCertificate(SignerOf(kAuthority, authority), actor.container, key, serial);
  ExpectCode(0, Verify(test::CertificateContext(encoded), issuer), "the authority signed it");
  HandOn(actor, encoded);
}

DWORD VerifyRequest(Octets request, const SubjectKey& key) {
  CERT_PUBLIC_KEY_INFO info = key.Info();
  Call("CryptVerifyCertificateSignature(the request, its own key)");
  return test::CodeOf(CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, request.data(),
                                                      static_cast<DWORD>(request.size()), &info));
}

void Request(const Actor& actor, const test::Context& context, const SubjectKey& key) {
  Call(std::string("CryptSignCertificate(a PKCS #10 request of \"") + actor.container + "\")");
  Octets request = test::SignRequest(SignerOf(actor, context), key);
  ExpectCode(0, VerifyRequest(request, key), "who asks has the private key");
  request[20] ^= 1;  // in the subject's name
  ExpectCode(static_cast<DWORD>(NTE_BAD_SIGNATURE), VerifyRequest(request, key),
             "refused: one bit of the request is another");
}

}  // namespace

void FillContainers() {
  const auto authority = NewContainer(kAuthority);
  const auto authorityKey = GenerateKey(authority, kAuthority);
  const auto issuer = SelfSign(kAuthority, authority);
  ExpectCode(0, Verify(issuer, issuer), "it signed itself");
  HandOn(kAuthority, Octets(issuer.Get()->pbCertEncoded,
                            issuer.Get()->pbCertEncoded + issuer.Get()->cbCertEncoded));

  const auto national = NewContainer(kNational);
  const auto nationalKey = GenerateKey(national, kNational);
  const SubjectKey nationalSubject = SubjectKey::National(kNational.keyOid, nationalKey);
  SelfSignNational(national, nationalSubject);
  Issue(kNational, nationalSubject, issuer, authority, 2);
  Request(kNational, national, nationalSubject);

  const auto maker = NewContainer(kMaker);
  const auto makerKey = GenerateKey(maker, kMaker);
  SelfSignAndVerify(kMaker, maker);
  Issue(kMaker, SubjectKey::Makers(kMaker.keyOid, makerKey), issuer, authority, 3);

  const auto rsa = NewContainer(kRsa);
  const auto rsaKey = GenerateKey(rsa, kRsa);
  SelfSignAndVerify(kRsa, rsa);
  Issue(kRsa, SubjectKey::Rsa(rsa, kRsa.keySpec), issuer, authority, 4);
}

}  // namespace zarext::demo
