#include "provider/key_record.h"

#include "provider/der.h"
#include "provider/hash.h"

namespace zarext::provider {
namespace {

constexpr std::uint8_t kKeyRecordVersion = 1;
constexpr std::uint8_t kProfileVersion = 2;  // differs, so that one file is never read as the other

Bytes Sealed(Bytes content) {
  Append(content, HashOf(*FindHashAlgorithm(CALG_SHA_256), content));
  return content;
}

View Unsealed(View image) {
  constexpr std::size_t sealLength = 32;
  Require(image.size() > sealLength, NTE_BAD_DATA);
  const View content = image.first(image.size() - sealLength);
  Require(Same(HashOf(*FindHashAlgorithm(CALG_SHA_256), content), image.last(sealLength)),
          NTE_BAD_DATA);
  return content;
}

DerReader Fields(View image, std::uint8_t version) {
  DerReader outer(Unsealed(image));
  DerReader fields = outer.Enter(kDerSequence);
  outer.ExpectEnd();
  Require(ReadUnsigned(fields.Next(kDerInteger)) == Bytes{version}, NTE_BAD_DATA);
  return fields;
}

Bytes Number(std::uint32_t value) {
  const Bytes octets{static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
                     static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  return DerUnsigned(octets);
}

std::uint32_t ReadNumber(DerReader& fields) {
  const Bytes octets = ReadUnsigned(fields.Next(kDerInteger));
  Require(octets.size() <= 4, NTE_BAD_DATA);
  std::uint32_t value = 0;
  for (const std::uint8_t octet : octets) {
    value = (value << 8) | octet;
  }
  return value;
}

std::string ReadText(DerReader& fields) {
  const View content = fields.Next(kDerOctetString);
  return {content.begin(), content.end()};
}

}  // namespace

Bytes WriteKeyRecord(const KeyRecord& record) {
  return Sealed(
      DerSequence(DerSmall(kKeyRecordVersion), Number(record.algId),
                  DerSmall(record.exportable ? 1 : 0), Der(kDerOctetString, record.privateKeyInfo),
                  Der(kDerOctetString, record.certificate), Der(kDerOctetString, record.chain)));
}

KeyRecord ReadKeyRecord(View image) {
  DerReader fields = Fields(image, kKeyRecordVersion);
  KeyRecord record;
  record.algId = ReadNumber(fields);
  record.exportable = ReadNumber(fields) != 0;
  record.privateKeyInfo = ToBytes(fields.Next(kDerOctetString));
  record.certificate = ToBytes(fields.Next(kDerOctetString));
  record.chain = ToBytes(fields.Next(kDerOctetString));
  fields.ExpectEnd();
  return record;
}

Bytes WriteProfile(const Profile& profile) {
  return Sealed(DerSequence(DerSmall(kProfileVersion), Der(kDerOctetString, AsView(profile.kind)),
                            Der(kDerOctetString, AsView(profile.second)),
                            Der(kDerOctetString, AsView(profile.third))));
}

Profile ReadProfile(View image) {
  DerReader fields = Fields(image, kProfileVersion);
  Profile profile;
  profile.kind = ReadText(fields);
  profile.second = ReadText(fields);
  profile.third = ReadText(fields);
  fields.ExpectEnd();
  return profile;
}

KeyRecord RecordOf(const PrivateKey& key, bool exportable) {
  KeyRecord record;
  record.algId = key.publicKey.algorithm->algId;
  record.exportable = exportable;
  record.privateKeyInfo = WritePrivateKeyInfo(key);
  return record;
}

PrivateKey PrivateKeyOf(const KeyRecord& record) {
  PrivateKey key = ReadPrivateKeyInfo(record.privateKeyInfo);
  const KeyAlgorithm* algorithm = FindKeyAlgorithm(record.algId);
  Require(algorithm != nullptr && algorithm->family == key.publicKey.algorithm->family,
          NTE_BAD_DATA);
  key.publicKey.algorithm = algorithm;
  return key;
}

}  // namespace zarext::provider
