#include "provider/key.h"

#include "provider/der.h"
#include "provider/gost.h"

namespace zarext::provider {
namespace {

constexpr std::uint8_t kEcPrivateKeyVersion = 1;

const Curve* CurveOf(const KeyAlgorithm& algorithm, View publicValue) {
  for (const Curve& curve : kCurves) {
    if (curve.bits * 2 == algorithm.bits && IsGostPublicValue(curve, publicValue)) {
      return &curve;
    }
  }
  return nullptr;
}

PublicKey MakeGostPublicKey(const KeyAlgorithm& algorithm, View value) {
  PublicKey key;
  key.algorithm = &algorithm;
  key.curve = CurveOf(algorithm, value);
  Require(key.curve != nullptr, NTE_BAD_DATA);
  key.value = ToBytes(value);
  return key;
}

PublicKey MakeRsaPublicKey(const KeyAlgorithm& algorithm, RsaPublicKey rsa) {
  const unsigned bits = rsa.Bits();
  Require(bits >= kMinRsaBits && bits <= kMaxRsaBits && rsa.exponent.size() <= 4, NTE_BAD_DATA);
  Require(algorithm.bits == 0 || algorithm.bits == bits, NTE_BAD_DATA);
  Require((rsa.modulus.back() & 1) != 0 && !rsa.exponent.empty() && (rsa.exponent.back() & 1) != 0,
          NTE_BAD_DATA);
  PublicKey key;
  key.algorithm = &algorithm;
  key.rsa = std::move(rsa);
  return key;
}

Bytes WriteGostPublicBlob(const PublicKey& key) {
  GostPublicBlobHeader head{};
  head.header = {PUBLICKEYBLOB, kBlobVersion, 0, key.algorithm->algId};
  head.magic = kGostMagic;
  head.bitLength = key.algorithm->bits;
  Bytes out;
  AppendRecord(out, head);
  Append(out, key.value);
  return out;
}

Bytes WriteRsaPublicBlob(const PublicKey& key) {
  RsaPublicBlobHeader head{};
  head.header = {PUBLICKEYBLOB, kBlobVersion, 0, key.algorithm->algId};
  head.magic = kRsaPublicMagic;
  head.bitLength = key.rsa.Bits();
  for (const std::uint8_t octet : key.rsa.exponent) {
    head.publicExponent = (head.publicExponent << 8) | octet;
  }
  Bytes out;
  AppendRecord(out, head);
  Append(out, Reversed(key.rsa.modulus));
  return out;
}

PublicKey ReadGostPublicBlob(const KeyAlgorithm& algorithm, View blob) {
  const auto head = ReadRecord<GostPublicBlobHeader>(blob);
  const View value = blob.subspan(sizeof head);
  Require(head.magic == kGostMagic && head.bitLength == algorithm.bits &&
              value.size() == algorithm.bits / 8,
          NTE_BAD_DATA);
  return MakeGostPublicKey(algorithm, value);
}

PublicKey ReadRsaPublicBlob(const KeyAlgorithm& algorithm, View blob) {
  const auto head = ReadRecord<RsaPublicBlobHeader>(blob);
  const View modulus = blob.subspan(sizeof head);
  Require(head.magic == kRsaPublicMagic &&
              modulus.size() == (head.bitLength + std::size_t{7}) / 8 && !modulus.empty(),
          NTE_BAD_DATA);
  Require(modulus.back() != 0, NTE_BAD_DATA);
  RsaPublicKey rsa;
  rsa.modulus = Reversed(modulus);
  for (unsigned shift = 32; shift != 0;) {
    shift -= 8;
    const auto octet = static_cast<std::uint8_t>(head.publicExponent >> shift);
    if (octet != 0 || !rsa.exponent.empty()) {
      rsa.exponent.push_back(octet);
    }
  }
  Require(rsa.Bits() == head.bitLength, NTE_BAD_DATA);
  return MakeRsaPublicKey(algorithm, std::move(rsa));
}

Bytes UncompressedPoint(const PublicKey& key) {
  const std::size_t half = key.value.size() / 2;
  return Join(Bytes{4}, Reversed(View(key.value).first(half)),
              Reversed(View(key.value).subspan(half)));
}

Bytes WriteEcPrivateKey(const PrivateKey& key) {
  return DerSequence(DerSmall(kEcPrivateKeyVersion), Der(kDerOctetString, Reversed(key.value)),
                     Der(kDerContext0, DerOid(key.publicKey.curve->oids[0])),
                     Der(kDerContext1, DerBits(UncompressedPoint(key.publicKey))));
}

Bytes WriteRsaPrivateKey(const RsaPrivateKey& key) {
  return DerSequence(DerSmall(0), DerUnsigned(key.publicKey.modulus),
                     DerUnsigned(key.publicKey.exponent), DerUnsigned(key.privateExponent),
                     DerUnsigned(key.prime1), DerUnsigned(key.prime2), DerUnsigned(key.exponent1),
                     DerUnsigned(key.exponent2), DerUnsigned(key.coefficient));
}

PrivateKey MakeGostPrivateKey(const KeyAlgorithm& algorithm, const Curve& curve, Bytes value) {
  PrivateKey key;
  key.value = std::move(value);
  key.publicKey.algorithm = &algorithm;
  key.publicKey.curve = &curve;
  key.publicKey.value = GostPublicValue(curve, key.value);
  return key;
}

const Curve& RequireCurve(const KeyAlgorithm& algorithm, View oidContent) {
  const Curve* curve = FindCurve(ReadOid(oidContent));
  Require(curve != nullptr && curve->bits * 2 == algorithm.bits, NTE_BAD_DATA);
  return *curve;
}

PrivateKey ReadEcPrivateKey(const KeyAlgorithm& algorithm, const Curve* named, View der) {
  DerReader outer(der);
  DerReader fields = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  Require(ReadUnsigned(fields.Next(kDerInteger)) == Bytes{kEcPrivateKeyVersion}, NTE_BAD_DATA);
  const Bytes value = Reversed(fields.Next(kDerOctetString));
  DerReader curveField = fields.Enter(kDerContext0);
  const Curve& curve = RequireCurve(algorithm, curveField.Next(kDerOid));
  curveField.ExpectEnd();
  DerReader pointField = fields.Enter(kDerContext1);
  const Bytes point = ReadBits(pointField.Next(kDerBitString));
  pointField.ExpectEnd();
  fields.ExpectEnd();
  Require(named == nullptr || named == &curve, NTE_BAD_KEY);
  PrivateKey key = MakeGostPrivateKey(algorithm, curve, value);
  Require(point == UncompressedPoint(key.publicKey), NTE_BAD_KEY);
  return key;
}

PrivateKey ReadRsaPrivateKey(const KeyAlgorithm& algorithm, View der) {
  DerReader outer(der);
  DerReader fields = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  Require(ReadUnsigned(fields.Next(kDerInteger)).empty(), NTE_BAD_DATA);
  RsaPrivateKey rsa;
  for (Bytes* field :
       {&rsa.publicKey.modulus, &rsa.publicKey.exponent, &rsa.privateExponent, &rsa.prime1,
        &rsa.prime2, &rsa.exponent1, &rsa.exponent2, &rsa.coefficient}) {
    *field = ReadUnsigned(fields.Next(kDerInteger));
  }
  fields.ExpectEnd();
  Require(!rsa.publicKey.modulus.empty(), NTE_BAD_DATA);
  PrivateKey key;
  key.publicKey = MakeRsaPublicKey(algorithm, rsa.publicKey);
  Require(IsConsistent(rsa), NTE_BAD_KEY);
  key.rsa = std::move(rsa);
  return key;
}

void ExpectNoParameters(DerReader parameters) {
  if (!parameters.AtEnd()) {
    Require(parameters.Next(kDerNull).empty(), NTE_BAD_DATA);
  }
  parameters.ExpectEnd();
}

// The curve that the parameters name: a bare OID, or the first OID of a sequence, as GOST
// certificates have it. Null for absent or NULL parameters.
const Curve* CurveOfParameters(const KeyAlgorithm& algorithm, DerReader parameters) {
  if (!parameters.NextIs(kDerOid) && !parameters.NextIs(kDerSequence)) {
    ExpectNoParameters(parameters);
    return nullptr;
  }
  if (parameters.NextIs(kDerOid)) {
    return &RequireCurve(algorithm, parameters.Next(kDerOid));
  }
  DerReader fields = parameters.Enter(kDerSequence);
  return &RequireCurve(algorithm, fields.Next(kDerOid));
}

PrivateKey ReadGostPrivateKey(const KeyAlgorithm& algorithm, const Curve* named, View octets) {
  if (octets.size() != algorithm.bits / 16) {
    return ReadEcPrivateKey(algorithm, named, octets);
  }
  return MakeGostPrivateKey(algorithm, named ? *named : DefaultCurve(algorithm), ToBytes(octets));
}

bool CanSign(const PublicKey& key, const HashAlgorithm& hash) {
  return hash.family == key.algorithm->family &&
         (key.curve == nullptr || hash.bits == key.curve->bits);
}

}  // namespace

unsigned PublicKey::Bits() const {
  return algorithm->family == KeyFamily::kGost ? algorithm->bits : rsa.Bits();
}

bool SameKey(const PublicKey& a, const PublicKey& b) {
  return a.algorithm->family == b.algorithm->family && a.curve == b.curve && a.value == b.value &&
         a.rsa == b.rsa;
}

PrivateKey GenerateKey(const KeyAlgorithm& algorithm, unsigned rsaBits) {
  PrivateKey key;
  key.publicKey.algorithm = &algorithm;
  if (algorithm.family == KeyFamily::kGost) {
    const Curve& curve = DefaultCurve(algorithm);
    GostKeyPair pair = GenerateGostKey(curve);
    key.publicKey.curve = &curve;
    key.publicKey.value = std::move(pair.publicValue);
    key.value = std::move(pair.privateValue);
    return key;
  }
  unsigned bits = algorithm.bits;
  if (bits == 0) {
    bits = rsaBits != 0 ? rsaBits : kDefaultRsaBits;
  }
  Require(rsaBits == 0 || rsaBits == bits, NTE_BAD_LEN);
  Require(bits >= kMinRsaBits && bits <= kMaxRsaBits && bits % 64 == 0, NTE_BAD_LEN);
  key.rsa = GenerateRsaKey(bits);
  key.publicKey.rsa = key.rsa.publicKey;
  return key;
}

Bytes Sign(const PrivateKey& key, const HashAlgorithm& hash, View digest) {
  Require(CanSign(key.publicKey, hash), NTE_BAD_HASH);
  if (hash.family == KeyFamily::kGost) {
    return SignGost(*key.publicKey.curve, key.value, digest);
  }
  return SignRsa(key.rsa, hash, digest);
}

bool Verify(const PublicKey& key, const HashAlgorithm& hash, View digest, View signature) {
  Require(CanSign(key, hash), NTE_BAD_HASH);
  if (hash.family == KeyFamily::kGost) {
    return VerifyGost(*key.curve, key.value, digest, signature);
  }
  return VerifyRsa(key.rsa, hash, digest, signature);
}

std::size_t SignatureLength(const PublicKey& key) {
  return key.algorithm->family == KeyFamily::kGost ? key.value.size() : key.rsa.modulus.size();
}

Bytes WritePublicBlob(const PublicKey& key) {
  return key.algorithm->family == KeyFamily::kGost ? WriteGostPublicBlob(key)
                                                   : WriteRsaPublicBlob(key);
}

PublicKey ReadPublicBlob(View blob) {
  const auto header = ReadRecord<BlobHeader>(blob);
  Require(header.bType == PUBLICKEYBLOB, NTE_BAD_TYPE);
  Require(header.bVersion == kBlobVersion, NTE_BAD_VER);
  Require(header.reserved == 0, NTE_BAD_DATA);
  const KeyAlgorithm* algorithm = FindKeyAlgorithm(header.aiKeyAlg);
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  return algorithm->family == KeyFamily::kGost ? ReadGostPublicBlob(*algorithm, blob)
                                               : ReadRsaPublicBlob(*algorithm, blob);
}

Bytes WritePrivateKeyInfo(const PrivateKey& key) {
  const bool gost = key.publicKey.algorithm->family == KeyFamily::kGost;
  const Bytes parameters = gost ? DerOid(key.publicKey.curve->oids[0]) : Der(kDerNull, {});
  const Bytes octets = gost ? WriteEcPrivateKey(key) : WriteRsaPrivateKey(key.rsa);
  return DerSequence(DerSmall(0), DerSequence(DerOid(key.publicKey.algorithm->oid), parameters),
                     Der(kDerOctetString, octets));
}

PrivateKey ReadPrivateKeyInfo(View der) {
  DerReader outer(der);
  DerReader fields = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  Require(ReadUnsigned(fields.Next(kDerInteger)).empty(), NTE_BAD_DATA);
  DerReader identifier = fields.Enter(kDerSequence);
  const View octets = fields.Next(kDerOctetString);
  fields.Skip(kDerContext0);
  fields.ExpectEnd();
  const KeyAlgorithm* algorithm = FindKeyAlgorithmByOid(ReadOid(identifier.Next(kDerOid)));
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  if (algorithm->family == KeyFamily::kRsa) {
    ExpectNoParameters(identifier);
    return ReadRsaPrivateKey(*algorithm, octets);
  }
  return ReadGostPrivateKey(*algorithm, CurveOfParameters(*algorithm, identifier), octets);
}

}  // namespace zarext::provider
