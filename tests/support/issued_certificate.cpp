#include "support/issued_certificate.h"

#include "support/certificates.h"

namespace zarext::test {
namespace {

constexpr std::size_t kBlobHeaderSize = 16;
constexpr std::uint8_t kOctetStringTag = 0x04;
constexpr std::uint8_t kSequenceTag = 0x30;
constexpr std::uint8_t kAttributesTag = 0xA0;

FILETIME StartOf(WORD year) {
  SYSTEMTIME time = {};
  time.wYear = year;
  time.wMonth = 1;
  time.wDay = 1;
  FILETIME result = {};
  SystemTimeToFileTime(&time, &result);
  return result;
}

Octets Encode(LPCSTR structure, const void* value) {
  return Fetch("CryptEncodeObject", [&](BYTE* data, DWORD* size) {
    return CryptEncodeObject(X509_ASN_ENCODING, structure, value, data, size);
  });
}

void Append(Octets& octets, const Octets& more) {
  octets.insert(octets.end(), more.begin(), more.end());
}

// CertificationRequestInfo of RFC 2986.
Octets RequestInfo(const std::string& name, const SubjectKey& key) {
  const CERT_PUBLIC_KEY_INFO info = key.Info();
  Octets content = {0x02, 0x01, 0x00};
  Append(content, EncodeCommonName(name));
  Append(content, Encode(X509_PUBLIC_KEY_INFO, &info));
  Append(content, MakeElement(kAttributesTag, {}));
  return MakeElement(kSequenceTag, content);
}

CRYPT_ALGORITHM_IDENTIFIER Algorithm(const char* oid) {
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
  algorithm.pszObjId = const_cast<char*>(oid);
  return algorithm;
}

}  // namespace

SubjectKey SubjectKey::Makers(const char* oid, const Key& key) {
  return {oid, Export(key, PUBLICKEYBLOB)};
}

SubjectKey SubjectKey::National(const char* oid, const Key& key) {
  Octets blob = Export(key, PUBLICKEYBLOB);
  blob.erase(blob.begin(), blob.begin() + kBlobHeaderSize);
  return {oid, MakeElement(kOctetStringTag, blob)};
}

SubjectKey SubjectKey::Rsa(const Context& context, DWORD keySpec) {
  const Octets exported = Fetch("CryptExportPublicKeyInfo", [&](BYTE* data, DWORD* size) {
    return CryptExportPublicKeyInfo(context.Get(), keySpec, X509_ASN_ENCODING,
                                    reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(data), size);
  });
  const auto& info = *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(exported.data());
  return {szOID_RSA_RSA,
          Octets(info.PublicKey.pbData, info.PublicKey.pbData + info.PublicKey.cbData)};
}

CERT_PUBLIC_KEY_INFO SubjectKey::Info() const {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm = Algorithm(oid_.c_str());
  info.PublicKey = {static_cast<DWORD>(bits_.size()), const_cast<BYTE*>(bits_.data()), 0};
  return info;
}

Octets EncodeCommonName(const std::string& name) {
  const std::string text = "CN=\"" + name + "\"";
  return Fetch("CertStrToName", [&](BYTE* data, DWORD* size) {
    return CertStrToNameA(X509_ASN_ENCODING, text.c_str(), CERT_X500_NAME_STR, nullptr, data, size,
                          nullptr);
  });
}

Octets IssueCertificate(const Signer& signer, const std::string& subject, const SubjectKey& key,
                        std::uint8_t serial, WORD until, const CertificateExtensions& extensions) {
  Octets issuerName = EncodeCommonName(signer.name);
  Octets subjectName = EncodeCommonName(subject);
  Octets serialOctets = {serial, 0x5A, 0x17};
  CERT_INFO info = {};
  info.dwVersion = CERT_V3;
  info.SerialNumber = {static_cast<DWORD>(serialOctets.size()), serialOctets.data()};
  info.SignatureAlgorithm = Algorithm(signer.signatureOid);
  info.Issuer = {static_cast<DWORD>(issuerName.size()), issuerName.data()};
  info.Subject = {static_cast<DWORD>(subjectName.size()), subjectName.data()};
  info.NotBefore = StartOf(2020);
  info.NotAfter = StartOf(until);
  info.SubjectPublicKeyInfo = key.Info();
  std::vector<CERT_EXTENSION> entries;
  for (const auto& [oid, isCritical, value] : extensions) {
    entries.push_back({const_cast<char*>(oid),
                       isCritical ? TRUE : FALSE,
                       {static_cast<DWORD>(value.size()), const_cast<BYTE*>(value.data())}});
  }
  info.cExtension = static_cast<DWORD>(entries.size());
  info.rgExtension = entries.data();
  return Fetch("CryptSignAndEncodeCertificate", [&](BYTE* data, DWORD* size) {
    return CryptSignAndEncodeCertificate(signer.provider, signer.keySpec, X509_ASN_ENCODING,
                                         X509_CERT_TO_BE_SIGNED, &info, &info.SignatureAlgorithm,
                                         nullptr, data, size);
  });
}

UniqueCertContext SelfSignedCertificate(const Signer& signer) {
  Octets name = EncodeCommonName(signer.name);
  CERT_NAME_BLOB subject = {static_cast<DWORD>(name.size()), name.data()};
  CRYPT_ALGORITHM_IDENTIFIER algorithm = Algorithm(signer.signatureOid);
  UniqueCertContext certificate(CertCreateSelfSignCertificate(
      signer.provider, &subject, 0, nullptr, &algorithm, nullptr, nullptr, nullptr));
  Must(certificate.Get() != nullptr, "CertCreateSelfSignCertificate");
  return certificate;
}

Octets SignRequest(const Signer& subject, const SubjectKey& key) {
  Octets toBeSigned = RequestInfo(subject.name, key);
  CERT_SIGNED_CONTENT_INFO request = {};
  request.ToBeSigned = {static_cast<DWORD>(toBeSigned.size()), toBeSigned.data()};
  request.SignatureAlgorithm = Algorithm(subject.signatureOid);
  Octets signature = Fetch("CryptSignCertificate", [&](BYTE* data, DWORD* size) {
    return CryptSignCertificate(subject.provider, subject.keySpec, X509_ASN_ENCODING,
                                toBeSigned.data(), static_cast<DWORD>(toBeSigned.size()),
                                &request.SignatureAlgorithm, nullptr, data, size);
  });
  request.Signature = {static_cast<DWORD>(signature.size()), signature.data(), 0};
  return Encode(X509_CERT, &request);
}

UniqueCertContext CertificateContext(const Octets& encoded) {
  UniqueCertContext certificate(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                             static_cast<DWORD>(encoded.size())));
  Must(certificate.Get() != nullptr, "CertCreateCertificateContext");
  return certificate;
}

DWORD CertificateSignatureCode(PCCERT_CONTEXT certificate, PCCERT_CONTEXT issuer) {
  return CodeOf(CryptVerifyCertificateSignatureEx(
      0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
      const_cast<CERT_CONTEXT*>(certificate), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
      const_cast<CERT_CONTEXT*>(issuer), 0, nullptr));
}

}  // namespace zarext::test
