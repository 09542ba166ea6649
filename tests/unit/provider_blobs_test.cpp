// The forms in which keys travel and are stored: what is written, and what is refused.
#include <gtest/gtest.h>

#include <set>

#include "provider/certificate.h"
#include "provider/container_name.h"
#include "provider/der.h"
#include "provider/key.h"
#include "provider/key_record.h"
#include "provider/wrap.h"
#include "provider_hex.h"
#include "support/openssl_fixtures.h"

namespace zarext::provider {
namespace {

using test::CodeOf;
using test::Hex;
using test::ToHex;

constexpr std::uint32_t kBadKey = 0x80090003;
constexpr std::uint32_t kBadLen = 0x80090004;
constexpr std::uint32_t kBadData = 0x80090005;
constexpr std::uint32_t kBadVer = 0x80090007;
constexpr std::uint32_t kBadAlgId = 0x80090008;
constexpr std::uint32_t kBadType = 0x8009000A;
constexpr std::uint32_t kNoKey = 0x8009000D;
constexpr std::uint32_t kBadPublicKey = 0x80090015;
constexpr std::uint32_t kBadKeysetParam = 0x8009001F;

PrivateKey NewKey(std::uint32_t algId, unsigned rsaBits = 0) {
  return GenerateKey(*FindKeyAlgorithm(algId), rsaBits);
}

Bytes Changed(Bytes octets, std::size_t at, std::uint8_t mask = 1) {
  octets[at] ^= mask;
  return octets;
}

// A blob of `length` octets of the certificate behind a head.
Bytes BlobOf(const char* head, const Bytes& certificate, std::size_t at, std::size_t length) {
  Bytes blob = Hex(head);
  blob.insert(blob.end(), certificate.begin() + static_cast<std::ptrdiff_t>(at),
              certificate.begin() + static_cast<std::ptrdiff_t>(at + length));
  return blob;
}

// Public blobs ---------------------------------------------------------------------------------

TEST(PublicBlob, OfEachKindIsReadAndWrittenAlike) {
  for (const std::uint32_t algId : {0xAA3AU, 0x2A3AU, 0xA045U, 0x2A4AU, 0xA055U, 0xAA4CU, 0x2A4CU,
                                    0xA04BU, 0xA450U, 0xA050U, 0x2400U}) {
    const PrivateKey key = NewKey(algId, algId == 0x2400 ? 1088 : 0);
    const Bytes blob = WritePublicBlob(key.publicKey);
    const PublicKey back = ReadPublicBlob(blob);
    EXPECT_EQ(back.algorithm->algId, algId);
    EXPECT_TRUE(SameKey(back, key.publicKey));
    EXPECT_EQ(ToHex(WritePublicBlob(back)), ToHex(blob));
  }
}

TEST(PublicBlob, FindsTheCurveOfAForeignKey) {
  // `at` is where the certificate's public key begins.
  struct Case {
    const char* certificate;
    std::size_t at;
    const char* curve;
  };
  for (const Case& row :
       {Case{test::openssl::kGost2001ACertificate, 148, "1.2.643.2.2.35.1"},
        Case{test::openssl::kGost2001BCertificate, 148, "1.2.643.2.2.35.2"},
        Case{test::openssl::kGost2001CCertificate, 148, "1.2.643.2.2.35.3"},
        Case{test::openssl::kGost2012TcACertificate, 157, "1.2.643.7.1.2.1.1.1"}}) {
    const PublicKey key = ReadPublicBlob(
        BlobOf("060200003AAA00000045433100020000", Hex(row.certificate), row.at, 64));
    EXPECT_STREQ(key.curve->oids[0], row.curve);
  }
}

TEST(PublicBlob, OfGostIsCheckedOctetByOctet) {
  const Bytes blob = WritePublicBlob(NewKey(0xAA3A).publicKey);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 0)); }), kBadType);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 1)); }), kBadVer);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 2)); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 3)); }), kBadData);
  for (std::size_t at = 4; at < 8; ++at) {
    EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, at)); }), kBadAlgId) << at;
  }
  for (std::size_t at = 8; at < blob.size(); ++at) {
    EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, at)); }), kBadData) << at;
  }
}

TEST(PublicBlob, OfEveryWrongLengthIsRefused) {
  for (const std::uint32_t algId : {0xAA3AU, 0xAA4CU, 0xA450U}) {
    Bytes blob = WritePublicBlob(NewKey(algId).publicKey);
    for (std::size_t length = 0; length < blob.size(); ++length) {
      // Off the heap's end, so that the sanitizer sees a read behind the blob.
      const Bytes part(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_EQ(CodeOf([&] { ReadPublicBlob(part); }), kBadData) << algId << " " << length;
    }
    blob.push_back(0);
    EXPECT_EQ(CodeOf([&] { ReadPublicBlob(blob); }), kBadData) << algId;
  }
}

TEST(PublicBlob, OfRsaMustFitItsAlgorithm) {
  const Bytes blob = WritePublicBlob(NewKey(0xA450).publicKey);
  Bytes other = blob;
  other[4] = 0x51;  // the 1,536-bit algorithm
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(other); }), kBadData);
  other[4] = 0x00;  // any size
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(other); }), 0U);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 8)); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 12)); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 16)); }), kBadData);         // even exponent
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 20)); }), kBadData);         // even modulus
  EXPECT_EQ(CodeOf([&] { ReadPublicBlob(Changed(blob, 147, 0x80)); }), kBadData);  // 1,023 bits
}

// Private keys ---------------------------------------------------------------------------------

TEST(PrivateKeyInfo, OfEachKindIsReadAndWrittenAlike) {
  for (const KeyAlgorithm& algorithm : kKeyAlgorithms) {
    if (algorithm.bits > 1536 || algorithm.algId == 0xA400) continue;
    const PrivateKey key = GenerateKey(algorithm, algorithm.bits == 0 ? 1024 : 0);
    const Bytes der = WritePrivateKeyInfo(key);
    const PrivateKey back = ReadPrivateKeyInfo(der);
    EXPECT_EQ(back.publicKey.algorithm->algId, algorithm.algId);
    EXPECT_TRUE(SameKey(back.publicKey, key.publicKey));
    EXPECT_EQ(ToHex(WritePrivateKeyInfo(back)), ToHex(der));
  }
}

TEST(PrivateKeyInfo, HasTheDocumentedShape) {
  const Bytes der = WritePrivateKeyInfo(NewKey(0xAA3A));
  // SEQUENCE { 0, { 1.3.6.1.4.1.32473.1.5.8, 1.2.643.2.2.35.1 }, OCTET STRING { SEQUENCE { 1, ...
  EXPECT_EQ(ToHex(View(der).first(45)),
            "308195"
            "020100"
            "3016060b2b0601040181fd5901050806072a850302022301"
            "0478"
            "3076"
            "020101"
            "0420" +
                ToHex(View(der).subspan(39, 6)));
}

TEST(PrivateKeyInfo, NeedsNoParameters) {
  const PrivateKey key = NewKey(0xAA4C);
  const Bytes whole = WritePrivateKeyInfo(key);
  DerReader outer{View(whole)};
  DerReader fields = outer.Enter(0x30);
  fields.Next();
  fields.Next();
  const DerElement octets = fields.Next();
  const Bytes version = Hex("020100");
  const Bytes null = Hex("0500");
  const Bytes oid = DerOid("1.3.6.1.4.1.32473.1.5.17");
  for (const Bytes& parameters : {null, Bytes{}}) {
    const Bytes der = DerSequence(version, DerSequence(oid, parameters), octets.whole);
    EXPECT_TRUE(SameKey(ReadPrivateKeyInfo(der).publicKey, key.publicKey));
  }
  const Bytes attributes = Hex("a000");
  const Bytes der = DerSequence(version, DerSequence(oid, null), octets.whole, attributes);
  EXPECT_TRUE(SameKey(ReadPrivateKeyInfo(der).publicKey, key.publicKey));
  const Bytes otherCurve = DerOid("1.2.643.7.1.2.1.2.2");
  EXPECT_EQ(CodeOf([&] {
              ReadPrivateKeyInfo(DerSequence(version, DerSequence(oid, otherCurve), octets.whole));
            }),
            kBadKey);
  const Bytes shortCurve = DerOid("1.2.643.2.2.35.1");
  EXPECT_EQ(CodeOf([&] {
              ReadPrivateKeyInfo(DerSequence(version, DerSequence(oid, shortCurve), octets.whole));
            }),
            kBadData);
}

TEST(PrivateKeyInfo, OfOpenSslIsRead) {
  struct Case {
    const char* key;
    const char* certificate;
    std::uint32_t algId;
    const char* curve;
  };
  for (const Case& row :
       {Case{test::openssl::kGost2001AKey, test::openssl::kGost2001ACertificate, 0xAA3A,
             "1.2.643.2.2.35.1"},
        Case{test::openssl::kGost2001BKey, test::openssl::kGost2001BCertificate, 0xAA3A,
             "1.2.643.2.2.35.2"},
        Case{test::openssl::kGost2001CKey, test::openssl::kGost2001CCertificate, 0xAA3A,
             "1.2.643.2.2.35.3"},
        Case{test::openssl::kGost2012TcAKey, test::openssl::kGost2012TcACertificate, 0xAA3A,
             "1.2.643.7.1.2.1.1.1"},
        Case{test::openssl::kGost2012LongKey, test::openssl::kGost2012LongCertificate, 0xAA4C,
             "1.2.643.7.1.2.1.2.1"},
        Case{test::openssl::kGost2012LongBKey, test::openssl::kGost2012LongBCertificate, 0xAA4C,
             "1.2.643.7.1.2.1.2.2"}}) {
    const PrivateKey key = ReadPrivateKeyInfo(Hex(row.key));
    EXPECT_EQ(key.publicKey.algorithm->algId, row.algId);
    EXPECT_STREQ(key.publicKey.curve->oids[0], row.curve);
    EXPECT_TRUE(IsCertificateOf(Hex(row.certificate), key.publicKey)) << row.curve;
    // And keeps its curve when it goes on in the provider's own form.
    EXPECT_TRUE(SameKey(ReadPrivateKeyInfo(WritePrivateKeyInfo(key)).publicKey, key.publicKey));
  }
  const PrivateKey rsa = ReadPrivateKeyInfo(Hex(test::openssl::kRsaKey));
  EXPECT_EQ(rsa.publicKey.algorithm->algId, 0x2400U);
  EXPECT_TRUE(IsCertificateOf(Hex(test::openssl::kRsaCertificate), rsa.publicKey));
  EXPECT_EQ(ToHex(WritePrivateKeyInfo(rsa)), test::openssl::kRsaKey);
}

// Every third bit: nothing is read from a changed document but under another name of the same key.
void CheckTampering(const PrivateKey& key) {
  const Bytes der = WritePrivateKeyInfo(key);
  const std::set<std::uint32_t> codes{kBadKey, kBadData, kBadAlgId};
  for (std::size_t bit = 0; bit < der.size() * 8; bit += 3) {
    const Bytes wrong = Changed(der, bit / 8, static_cast<std::uint8_t>(1 << (bit % 8)));
    std::uint32_t code = 0;
    try {
      EXPECT_TRUE(SameKey(ReadPrivateKeyInfo(wrong).publicKey, key.publicKey)) << bit;
      EXPECT_LT(bit / 8, 19U) << bit;  // only the algorithm's name may differ
    } catch (const Error& error) {
      code = error.Code();
      EXPECT_TRUE(codes.contains(code)) << bit << " " << std::hex << code;
    }
  }
}

TEST(PrivateKeyInfo, OfGostIsRefusedWhenChanged) {
  CheckTampering(NewKey(0xAA3A));
  CheckTampering(NewKey(0xA04B));
}

TEST(PrivateKeyInfo, OfRsaIsRefusedWhenChanged) {
  const Bytes der = WritePrivateKeyInfo(ReadPrivateKeyInfo(Hex(test::openssl::kRsaKey)));
  // Each octet of the head and of the last field, and of the long numbers every seventh.
  for (std::size_t at = 0; at < der.size(); at += at < 40 || at > der.size() - 70 ? 1U : 7U) {
    EXPECT_NE(CodeOf([&] { ReadPrivateKeyInfo(Changed(der, at, 0x04)); }), 0U) << at;
  }
}

TEST(PrivateKeyInfo, OfEveryShorterLengthIsRefused) {
  Bytes der = WritePrivateKeyInfo(NewKey(0xAA3A));
  for (std::size_t length = 0; length < der.size(); ++length) {
    const Bytes part(der.begin(), der.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(CodeOf([&] { ReadPrivateKeyInfo(part); }), kBadData) << length;
  }
  der.push_back(0);
  EXPECT_EQ(CodeOf([&] { ReadPrivateKeyInfo(der); }), kBadData);
}

TEST(Generating, RefusesSizesThatTheAlgorithmDoesNotHave) {
  EXPECT_EQ(CodeOf([] { NewKey(0xA450, 2048); }), kBadLen);
  EXPECT_EQ(CodeOf([] { NewKey(0x2400, 512); }), kBadLen);
  EXPECT_EQ(CodeOf([] { NewKey(0x2400, 8192); }), kBadLen);
  EXPECT_EQ(CodeOf([] { NewKey(0x2400, 1100); }), kBadLen);
}

// Wrapped keys ---------------------------------------------------------------------------------

struct WrapCase {
  std::uint32_t contentAlg;
  std::uint32_t keyAlg;
};

class Wrapping : public testing::TestWithParam<WrapCase> {
 protected:
  SessionKey content_ = GenerateSessionKey(*FindCipherAlgorithm(GetParam().contentAlg));
  std::vector<PrivateKey> recipient_{NewKey(GetParam().keyAlg)};
};

TEST_P(Wrapping, WithAnEphemeralKeyOpensForTheRecipientAlone) {
  const Bytes blob = WrapKey(content_, recipient_[0].publicKey, nullptr);
  const SessionKey back = UnwrapKey(blob, recipient_, nullptr);
  EXPECT_EQ(back.Octets(), content_.Octets());
  EXPECT_EQ(back.Algorithm().algId, GetParam().contentAlg);
  const std::vector<PrivateKey> wrong{NewKey(GetParam().keyAlg)};
  EXPECT_EQ(CodeOf([&] { UnwrapKey(blob, wrong, nullptr); }), kBadData);
  EXPECT_EQ(CodeOf([&] { UnwrapKey(blob, {}, nullptr); }), kNoKey);
  const std::vector<PrivateKey> both{wrong[0], recipient_[0]};
  EXPECT_EQ(UnwrapKey(blob, both, nullptr).Octets(), content_.Octets());
}

TEST_P(Wrapping, IsRefusedWhenChangedOrCut) {
  const Bytes blob = WrapKey(content_, recipient_[0].publicKey, nullptr);
  for (std::size_t at = 0; at < blob.size(); ++at) {
    EXPECT_NE(CodeOf([&] { UnwrapKey(Changed(blob, at), recipient_, nullptr); }), 0U) << at;
  }
  for (std::size_t length = 0; length < blob.size(); ++length) {
    const Bytes part(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(CodeOf([&] { UnwrapKey(part, recipient_, nullptr); }), kBadData) << length;
  }
  Bytes longer = blob;
  longer.push_back(0);
  EXPECT_EQ(CodeOf([&] { UnwrapKey(longer, recipient_, nullptr); }), kBadData);
}

INSTANTIATE_TEST_SUITE_P(All, Wrapping,
                         testing::Values(WrapCase{0x681F, 0xAA3A}, WrapCase{0x6620, 0xA045},
                                         WrapCase{0x6611, 0xAA4C}, WrapCase{0x6610, 0xA450}));

TEST(WrappingWithTheSendersKey, NeedsTheSendersPublicKey) {
  const SessionKey content = GenerateSessionKey(*FindCipherAlgorithm(0x681F));
  const std::vector<PrivateKey> recipient{NewKey(0x2A3A)};
  const PrivateKey sender = NewKey(0xA045);
  const PrivateKey other = NewKey(0xA045);
  const Bytes blob = WrapKey(content, recipient[0].publicKey, &sender);
  EXPECT_EQ(blob.size(), 72U);
  EXPECT_EQ(UnwrapKey(blob, recipient, &sender.publicKey).Octets(), content.Octets());
  EXPECT_EQ(CodeOf([&] { UnwrapKey(blob, recipient, nullptr); }), kBadPublicKey);
  EXPECT_EQ(CodeOf([&] { UnwrapKey(blob, recipient, &other.publicKey); }), kBadData);
  for (std::size_t at = 0; at < blob.size(); ++at) {
    EXPECT_NE(CodeOf([&] { UnwrapKey(Changed(blob, at), recipient, &sender.publicKey); }), 0U)
        << at;
  }
  const PrivateKey longSender = NewKey(0xA04B);
  EXPECT_EQ(CodeOf([&] { WrapKey(content, recipient[0].publicKey, &longSender); }), kBadKey);
  EXPECT_EQ(CodeOf([&] { UnwrapKey(blob, recipient, &longSender.publicKey); }), kBadData);
}

// The blob was put together with OpenSSL 3.0 and its GOST engine alone: pkeyutl -derive (vko:256),
// dgst -mac HMAC -md_gost12_256, enc -id-aes256-wrap.
TEST(WrappingWithTheSendersKey, OpensWhatOpenSslWrapped) {
  const Bytes blob =
      Hex("01020000116600003aaa00000045433100000000000200000102030405060708"
          "aec0d81ad17f6f7e6928cf3451c577e7c04962b712b1b364");
  const PrivateKey sender = ReadPrivateKeyInfo(
      Hex("3046020100301f06082a85030701010101301306072a85030202230106082a850307010102020420"
          "9695b6703a2d1a97a4590326fb393e07ccaee0988507b24d1914ddee3743a9ba"));
  const std::vector<PrivateKey> recipient{ReadPrivateKeyInfo(
      Hex("3046020100301f06082a85030701010101301306072a85030202230106082a850307010102020420"
          "6b5a09ded5edadf8df7e6a9804ad5faea955f644c55d66684870b4e9867b38bb"))};
  const SessionKey key = UnwrapKey(blob, recipient, &sender.publicKey);
  EXPECT_EQ(key.Algorithm().algId, 0x6611U);
  EXPECT_EQ(ToHex(key.Octets()), "000102030405060708090a0b0c0d0e0f");
}

TEST(PlainBlob, HoldsTheKeyAsItIs) {
  const SessionKey key(*FindCipherAlgorithm(0x6611), Hex("000102030405060708090a0b0c0d0e0f"));
  const Bytes blob = WritePlainBlob(key);
  EXPECT_EQ(ToHex(blob), "080200001166000010000000000102030405060708090a0b0c0d0e0f");
  EXPECT_EQ(ReadPlainBlob(blob).Octets(), key.Octets());
  EXPECT_EQ(CodeOf([&] { ReadPlainBlob(View(blob).first(27)); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadPlainBlob(Changed(blob, 0)); }), kBadType);
  EXPECT_EQ(CodeOf([&] { ReadPlainBlob(Changed(blob, 1)); }), kBadVer);
  EXPECT_EQ(CodeOf([&] { ReadPlainBlob(Changed(blob, 5)); }), kBadAlgId);
  EXPECT_EQ(CodeOf([&] { ReadPlainBlob(Changed(blob, 4)); }), kBadLen);  // now AES-256
}

// Certificates and chains ----------------------------------------------------------------------

TEST(Certificate, GivesItsSerialNumberAsItStands) {
  EXPECT_EQ(ToHex(CertificateSerial(Hex(test::openssl::kGost2001ACertificate))), "0a1b2c3d");
  EXPECT_EQ(ToHex(CertificateSerial(Hex(test::openssl::kRsaCertificate))), "0a1b2c3d");
}

TEST(Certificate, BelongsToOneKey) {
  const PrivateKey a = ReadPrivateKeyInfo(Hex(test::openssl::kGost2001AKey));
  const PrivateKey b = ReadPrivateKeyInfo(Hex(test::openssl::kGost2001BKey));
  EXPECT_TRUE(IsCertificateOf(Hex(test::openssl::kGost2001ACertificate), a.publicKey));
  EXPECT_FALSE(IsCertificateOf(Hex(test::openssl::kGost2001ACertificate), b.publicKey));
  EXPECT_FALSE(IsCertificateOf(Hex(test::openssl::kRsaCertificate), a.publicKey));
}

TEST(Certificate, MayHoldTheWholeBlob) {
  const PrivateKey key = NewKey(0xAA3A);
  const Bytes name = DerSequence();
  const Bytes info = DerSequence(DerSequence(DerOid("1.3.6.1.4.1.32473.1.5.8")),
                                 DerBits(WritePublicBlob(key.publicKey)));
  const Bytes body = DerSequence(DerSmall(9), name, name, name, name, info);
  const Bytes certificate = DerSequence(body, name, DerBits({}));
  EXPECT_TRUE(IsCertificateOf(certificate, key.publicKey));
  EXPECT_FALSE(IsCertificateOf(certificate, NewKey(0xAA3A).publicKey));
}

TEST(Certificate, OfEveryShorterLengthIsRefused) {
  const Bytes whole = Hex(test::openssl::kGost2001ACertificate);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(CodeOf([&] { CertificateSerial(part); }), kBadData) << length;
  }
}

TEST(Chain, KeepsItsCertificatesInOrder) {
  const Bytes first = Hex(test::openssl::kGost2001ACertificate);
  const Bytes second = Hex(test::openssl::kRsaCertificate);
  const Bytes chain = WriteChain({first, second});
  EXPECT_EQ(ReadChain(chain), (std::vector<Bytes>{first, second}));
  // ContentInfo { signedData, [0] SignedData { 1, {}, { data }, [0] ...
  EXPECT_EQ(ToHex(View(chain).subspan(4, 11)), "06092a864886f70d010702");
  EXPECT_EQ(ToHex(View(chain).subspan(23, 18)),
            "020101"
            "3100"
            "300b"
            "06092a864886f70d010701");
  EXPECT_EQ(CodeOf([&] { ReadChain(View(chain).first(chain.size() - 1)); }), kBadData);
}

TEST(MeasureDer, GivesTheLengthWithHeader) {
  const auto measure = [](const char* hex) { return MeasureDer(Hex(hex).data(), 0x30); };
  EXPECT_EQ(measure("3000"), 2U);
  EXPECT_EQ(measure("307f"), 129U);
  EXPECT_EQ(measure("308180"), 131U);
  EXPECT_EQ(measure("30820123"), 0x127U);
  EXPECT_EQ(measure("3083010203"), 0x10208U);
  EXPECT_EQ(CodeOf([&] { measure("3100"); }), kBadData);
  EXPECT_EQ(CodeOf([&] { measure("3080"); }), kBadData);
  EXPECT_EQ(CodeOf([&] { measure("308400000000"); }), kBadData);
}

TEST(DerReader, RefusesOtherSpellingsOfALength) {
  for (const char* hex : {"30", "3080", "308100", "30817f", "30820080", "3085000000000100",
                          "1f0100", "3001", "30818000"}) {
    const Bytes der = Hex(hex);
    EXPECT_EQ(CodeOf([&] { DerReader(der).Next(); }), kBadData) << hex;
  }
}

TEST(ObjectIdentifier, IsReadAsItIsWritten) {
  for (const char* oid : {"1.3.6.1.4.1.32473.1.5.8", "2.999.3", "0.0", "1.2.840.113549.1.1.1"}) {
    const Bytes der = DerOid(oid);
    EXPECT_EQ(ReadOid(View(der).subspan(2)), oid);
  }
  EXPECT_EQ(ToHex(DerOid("1.2.840.113549")), "06062a864886f70d");
  EXPECT_EQ(CodeOf([] { ReadOid(Hex("2a86")); }), kBadData);
  EXPECT_EQ(CodeOf([] { ReadOid({}); }), kBadData);
  EXPECT_EQ(CodeOf([] { ReadOid(Hex("ffffffffffffffffffff7f")); }), kBadData);
}

// Stored records -------------------------------------------------------------------------------

TEST(KeyRecord, IsReadAsItWasWritten) {
  const PrivateKey key = NewKey(0x2400, 1024);
  KeyRecord record;
  record.algId = 0xA400;
  record.exportable = true;
  record.privateKeyInfo = WritePrivateKeyInfo(key);
  record.certificate = Hex("3000");
  record.chain = Hex("3001");
  const KeyRecord back = ReadKeyRecord(WriteKeyRecord(record));
  EXPECT_EQ(back.algId, 0xA400U);
  EXPECT_TRUE(back.exportable);
  EXPECT_EQ(back.privateKeyInfo, record.privateKeyInfo);
  EXPECT_EQ(back.certificate, record.certificate);
  EXPECT_EQ(back.chain, record.chain);
  EXPECT_EQ(PrivateKeyOf(back).publicKey.algorithm->algId, 0xA400U);
  record.exportable = false;
  EXPECT_FALSE(ReadKeyRecord(WriteKeyRecord(record)).exportable);
  record.algId = 0xAA3A;  // of the other family
  EXPECT_EQ(CodeOf([&] { PrivateKeyOf(record); }), kBadData);
}

TEST(KeyRecord, AndProfileAreRefusedWhenDamaged) {
  const Bytes record = WriteKeyRecord({0xAA3A, true, Bytes(40, 1), Bytes(20, 2), {}});
  const Bytes profile = WriteProfile({"file", "second", "third"});
  for (std::size_t at = 0; at < record.size(); ++at) {
    EXPECT_EQ(CodeOf([&] { ReadKeyRecord(Changed(record, at)); }), kBadData) << at;
  }
  for (std::size_t length = 0; length < record.size(); ++length) {
    const Bytes part(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(CodeOf([&] { ReadKeyRecord(part); }), kBadData) << length;
  }
  EXPECT_EQ(CodeOf([&] { ReadProfile(Changed(profile, 9)); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadProfile(record); }), kBadData);
  EXPECT_EQ(CodeOf([&] { ReadKeyRecord(profile); }), kBadData);
  const Profile back = ReadProfile(profile);
  EXPECT_EQ(back.kind + back.second + back.third, "filesecondthird");
}

// Names ----------------------------------------------------------------------------------------

TEST(ContainerNames, ComeBareAndAsAddresses) {
  struct Case {
    const char* text;
    const char* name;
    const char* kind;
  };
  for (const Case& row : {Case{"box", "box", ""}, Case{"profile://box", "box", ""},
                          Case{"profile://box/?sn=0A1B2C3D", "box", ""},
                          Case{"profile://box/?kind=idcard", "box", "idcard"},
                          Case{"profile://box/?sn=0a&kind=idcard", "box", "idcard"},
                          Case{"a/?sn=zz", "a/?sn=zz", ""}, Case{"\xEF\xF0 1", "\xEF\xF0 1", ""}}) {
    const ContainerName name = ParseContainerName(row.text);
    EXPECT_EQ(name.name, row.name);
    EXPECT_EQ(name.kind, row.kind);
  }
  for (const char* text :
       {"", "profile://", "profile:///?sn=0A", "profile://box/?sn=", "profile://box/?sn=0",
        "profile://box/?sn=0G", "profile://box/?x=1", "profile://box/?",
        "profile://box/?kind=", "profile://box/?kind=a/b", "profile://box/?sn=0A&"}) {
    EXPECT_EQ(CodeOf([&] { ParseContainerName(text); }), kBadKeysetParam) << text;
  }
  EXPECT_EQ(CodeOf([&] { ParseContainerName(std::string(199, 'a')); }), kBadKeysetParam);
  EXPECT_EQ(CodeOf([&] { ParseContainerName(std::string(198, 'a')); }), 0U);
}

TEST(ContainerNames, HaveAnAddressThatNamesATokensKind) {
  EXPECT_EQ(ContainerUrl("box", "file"), "profile://box");
  EXPECT_EQ(ContainerUrl("box", "idcard"), "profile://box/?kind=idcard");
}

TEST(ContainerNames, BecomeFolderNames) {
  EXPECT_EQ(FolderOf("Box-1_a"), "c-Box-1_a");
  EXPECT_EQ(FolderOf("../a b\\\xEF."), "c-%2E%2E%2Fa%20b%5C%EF%2E");
  EXPECT_EQ(NameOfFolder("c-%2E%2E%2Fa%20b%5C%EF%2E"), "../a b\\\xEF.");
  EXPECT_EQ(NameOfFolder("new~1"), "");
  EXPECT_EQ(NameOfFolder("c-%2"), "");
  EXPECT_EQ(NameOfFolder("c-%2g"), "");
}

TEST(KeySpecs, FollowTheTypeBitsOfTheAlgorithm) {
  for (const std::uint32_t algId : {0xA045U, 0xA055U, 0xA04BU, 0xA050U, 0xA054U, 0xA400U}) {
    EXPECT_EQ(KeySpecOf(algId), 1U) << algId;
  }
  for (const std::uint32_t algId :
       {0xAA3AU, 0x2A3AU, 0x2A4AU, 0xAA4CU, 0x2A4CU, 0xA450U, 0xA454U, 0x2400U}) {
    EXPECT_EQ(KeySpecOf(algId), 2U) << algId;
  }
}

}  // namespace
}  // namespace zarext::provider
