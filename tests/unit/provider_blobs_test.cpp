// Public and private keys as they travel and are stored: what is written, and what is refused.
#include <gtest/gtest.h>

#include <set>

#include "provider/certificate.h"
#include "provider/der.h"
#include "provider/key.h"
#include "provider_hex.h"
#include "support/openssl_fixtures.h"
#include "unit/provider_keys.h"

namespace zarext::provider {
namespace {

using test::CodeOf;
using test::Hex;
using test::ToHex;

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

}  // namespace
}  // namespace zarext::provider
