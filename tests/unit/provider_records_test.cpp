// What the containers keep: certificates, chains, records and names, and the DER inside.
#include <gtest/gtest.h>

#include "provider/certificate.h"
#include "provider/container_name.h"
#include "provider/der.h"
#include "provider/key.h"
#include "provider/key_record.h"
#include "provider_hex.h"
#include "support/openssl_fixtures.h"
#include "unit/provider_keys.h"

namespace zarext::provider {
namespace {

using test::CodeOf;
using test::Hex;
using test::ToHex;

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
