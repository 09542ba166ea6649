// Certificates and requests with real signatures, through the framework.
#ifndef ZAREXT_TESTS_SUPPORT_ISSUED_CERTIFICATE_H_
#define ZAREXT_TESTS_SUPPORT_ISSUED_CERTIFICATE_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "support/provider_calls.h"

namespace zarext::test {

// The subject's public key in a certificate.
class SubjectKey {
 public:
  SubjectKey(std::string oid, Octets bits) : oid_(std::move(oid)), bits_(std::move(bits)) {}

  // The maker's form: the provider's whole PUBLICKEYBLOB.
  static SubjectKey Makers(const char* oid, const Key& key);
  // The national form and CryptoPro's: an OCTET STRING of the value, without the blob's header.
  static SubjectKey National(const char* oid, const Key& key);
  // The form of RFC 8017, as the framework itself exports an RSA key of a container.
  static SubjectKey Rsa(const Context& context, DWORD keySpec);

  // Points into this object.
  [[nodiscard]] CERT_PUBLIC_KEY_INFO Info() const;

 private:
  std::string oid_;
  Octets bits_;
};

// Who signs: the key of a container, its signature algorithm, and the common name.
struct Signer {
  HCRYPTPROV provider;
  DWORD keySpec;
  const char* signatureOid;
  std::string name;
};

// DER of the name "CN=name".
Octets EncodeCommonName(const std::string& name);

struct CertificateExtension {
  const char* oid;
  bool isCritical;
  Octets value;
};
using CertificateExtensions = std::vector<CertificateExtension>;

// DER of a certificate, valid from 2020 to the start of `until`, signed with
// CryptSignAndEncodeCertificate.
Octets IssueCertificate(const Signer& signer, const std::string& subject, const SubjectKey& key,
                        std::uint8_t serial, WORD until = 2049,
                        const CertificateExtensions& extensions = {});

// CertCreateSelfSignCertificate: the framework asks the module for the form of the public key.
UniqueCertContext SelfSignedCertificate(const Signer& signer);

// DER of a PKCS #10 request without attributes, signed with CryptSignCertificate by the subject.
Octets SignRequest(const Signer& subject, const SubjectKey& key);

// Throws if the framework cannot decode it.
UniqueCertContext CertificateContext(const Octets& encoded);

// CryptVerifyCertificateSignatureEx: the last error, 0 if the issuer's key made the signature.
DWORD CertificateSignatureCode(PCCERT_CONTEXT certificate, PCCERT_CONTEXT issuer);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_ISSUED_CERTIFICATE_H_
