#include "provider/certificate.h"

#include "provider/der.h"

namespace zarext::provider {
namespace {

constexpr const char* kSignedDataOid = "1.2.840.113549.1.7.2";
constexpr const char* kDataOid = "1.2.840.113549.1.7.1";

struct CertificateFields {
  View serial;
  Bytes publicKey;  // the octets of the bit string
};

CertificateFields ReadCertificate(View der) {
  DerReader outer(der);
  DerReader certificate = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  DerReader body = certificate.Enter(kDerSequence);
  certificate.Next(kDerSequence);
  certificate.Next(kDerBitString);
  certificate.ExpectEnd();
  body.Skip(kDerContext0);  // version
  CertificateFields out;
  out.serial = body.Next(kDerInteger);
  for (int i = 0; i < 4; ++i) {
    body.Next(kDerSequence);  // algorithm, issuer, validity, subject
  }
  DerReader keyInfo = body.Enter(kDerSequence);
  keyInfo.Next(kDerSequence);
  out.publicKey = ReadBits(keyInfo.Next(kDerBitString));
  return out;
}

bool IsBlobOf(View octets, const PublicKey& key) {
  try {
    return SameKey(ReadPublicBlob(octets), key);
  } catch (const Error&) {
    return false;
  }
}

bool IsEncodedValueOf(View octets, const PublicKey& key) {
  if (key.curve) {
    return Same(octets, Der(kDerOctetString, key.value));
  }
  return Same(octets, DerSequence(DerUnsigned(key.rsa.modulus), DerUnsigned(key.rsa.exponent)));
}

}  // namespace

Bytes CertificateSerial(View der) { return ToBytes(ReadCertificate(der).serial); }

bool IsCertificateOf(View der, const PublicKey& key) {
  const Bytes octets = ReadCertificate(der).publicKey;
  return IsBlobOf(octets, key) || IsEncodedValueOf(octets, key);
}

Bytes WriteChain(const std::vector<Bytes>& certificates) {
  Bytes all;
  for (const Bytes& certificate : certificates) {
    Append(all, certificate);
  }
  const Bytes none = Der(kDerSet, {});
  const Bytes signedData =
      DerSequence(DerSmall(1), none, DerSequence(DerOid(kDataOid)), Der(kDerContext0, all), none);
  return DerSequence(DerOid(kSignedDataOid), Der(kDerContext0, signedData));
}

std::vector<Bytes> ReadChain(View der) {
  DerReader outer(der);
  DerReader message = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  Require(ReadOid(message.Next(kDerOid)) == kSignedDataOid, NTE_BAD_DATA);
  DerReader content = message.Enter(kDerContext0);
  DerReader fields = content.Enter(kDerSequence);
  fields.Next(kDerInteger);
  fields.Next(kDerSet);
  fields.Next(kDerSequence);
  DerReader list = fields.Enter(kDerContext0);
  std::vector<Bytes> out;
  while (!list.AtEnd()) {
    const DerElement element = list.Next();
    Require(element.tag == kDerSequence, NTE_BAD_DATA);
    out.push_back(ToBytes(element.whole));
  }
  return out;
}

}  // namespace zarext::provider
