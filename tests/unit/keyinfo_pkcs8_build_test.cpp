// Building key documents.
#include <gtest/gtest.h>

#include <new>
#include <random>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_bags.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {
namespace {

// Spaces out the hexadecimal text that is expected.
std::string Plain(std::string_view text) { return HexText(Hex(text)); }

// The encoding in hexadecimal; "code N" for a failure, which must leave nothing.
std::string Built(std::uint32_t kind, const Pkcs8Record& input) {
  TPKCS8 document;
  const std::int32_t code = document.Build(&input);
  const std::int64_t size = document.EncodedSize();
  EXPECT_EQ(code == 0 ? kind : 0, document.Kind());
  EXPECT_EQ(nullptr, document.Decoded());
  if (code != 0) {
    EXPECT_EQ(-1, size);
    return "code " + std::to_string(code);
  }
  Octets encoded(static_cast<std::size_t>(size));
  EXPECT_EQ(0, document.Encode(encoded.data()));
  return HexText(encoded);
}

class BuildPrivateKey : public testing::Test {
 protected:
  BuildPrivateKey() {
    record.algorithm = "1.2.643.2.2.19";
    record.privateKey = key;
  }
  std::string Built() const { return test::Built(1, record); }

  const Octets key = Hex("a1b2c3");
  PrivateKeyRecord record;
};

TEST_F(BuildPrivateKey, OtherAlgorithmsGetANull) {
  EXPECT_EQ(Plain("3014 020100 300a 06062a8503020213 0500 0403a1b2c3"), Built());
}

TEST_F(BuildPrivateKey, VersionIsAnUnsignedNumber) {
  record.version = 0x80;
  EXPECT_EQ(Plain("3015 02020080 300a 06062a8503020213 0500 0403a1b2c3"), Built());
  record.version = 0xFFFFFFFF;
  EXPECT_EQ(Plain("3018 020500ffffffff 300a 06062a8503020213 0500 0403a1b2c3"), Built());
}

TEST_F(BuildPrivateKey, ParametersStandAsTheyAreEncoded) {
  const Octets parameters = Hex("301206072a85030202230106072a850302021e01");
  record.parameters = parameters;
  EXPECT_EQ(Plain("3026 020100 301c 06062a8503020213 3012 06072a850302022301 06072a850302021e01"
                  "0403a1b2c3"),
            Built());
}

TEST_F(BuildPrivateKey, ParametersWithoutSizeOrDataAreNone) {
  const Octets parameters = Hex("0101ff");
  record.parameters = {parameters.data(), 0};
  EXPECT_EQ(Plain("3014 020100 300a 06062a8503020213 0500 0403a1b2c3"), Built());
  record.parameters = {};
  EXPECT_EQ(Plain("3014 020100 300a 06062a8503020213 0500 0403a1b2c3"), Built());
}

TEST_F(BuildPrivateKey, ParametersThatDoNotEndAddNothing) {
  for (const char* text : {"30", "3001", "0402aa", "3080", "3080020107 00", "3084fffffffa",
                           "30850000000001", "308201", "0484fffffffe", "0483ffffff"}) {
    const Octets parameters = Hex(text);
    record.parameters = parameters;
    EXPECT_EQ(Plain("3012 020100 3008 06062a8503020213 0403a1b2c3"), Built()) << text;
  }
}

TEST_F(BuildPrivateKey, ALongElementThatDoesNotEndAddsNothing) {
  // Longer than an indefinite length is looked for.
  Octets parameters(70000, 0x05);
  parameters[0] = 0x30;
  parameters[1] = 0x80;
  record.parameters = parameters;
  EXPECT_EQ(Plain("3012 020100 3008 06062a8503020213 0403a1b2c3"), Built());
}

// NULL after NULL, up to where an indefinite length is looked for, and the octets around that: the
// tags of NULL at even places, or at odd ones behind a first element of three octets.
TEST_F(BuildPrivateKey, AnElementWithoutItsClosingPairAddsNothing) {
  for (const Octets& head : {Hex("3080"), Hex("3080 0401aa")}) {
    for (const std::size_t size : {65534u, 65535u, 65536u, 65537u, 65538u, 70000u}) {
      Octets parameters = head;
      while (parameters.size() < size) {
        parameters.push_back(parameters.size() % 2 == head.size() % 2 ? 0x05 : 0x00);
      }
      record.parameters = parameters;
      EXPECT_EQ(Plain("3012 020100 3008 06062a8503020213 0403a1b2c3"), Built()) << size;
    }
  }
}

TEST_F(BuildPrivateKey, IndefiniteParametersBecomeDefinite) {
  const Octets parameters = Hex("3080 020107 0000 ff");
  record.parameters = parameters;
  EXPECT_EQ(Plain("3017 020100 300d 06062a8503020213 3003020107 0403a1b2c3"), Built());
}

TEST_F(BuildPrivateKey, EllipticKeysGetACurveByTheirLength) {
  record.algorithm = "1.2.840.10045.2.1";
  const auto with = [&](std::size_t size) {
    const Octets octets(size, 0x77);
    record.privateKey = octets;
    return Built();
  };
  const std::string key55 = HexText(Octets(55, 0x77));
  EXPECT_EQ(Plain("304e 020100 3010 06072a8648ce3d0201 06052b81040022 0437") + key55, with(55));
  EXPECT_EQ(Plain("303a 020100 3013 06072a8648ce3d0201 06082a8648ce3d030107 0420") +
                HexText(Octets(32, 0x77)),
            with(32));
  EXPECT_NE(std::string::npos, with(54).find("06082a8648ce3d030107"));
  EXPECT_NE(std::string::npos, with(56).find("06082a8648ce3d030107"));
  EXPECT_NE(std::string::npos, with(0).find("06082a8648ce3d030107"));
}

TEST_F(BuildPrivateKey, EllipticKeysWithParametersKeepThem) {
  record.algorithm = "1.2.840.10045.2.1";
  const Octets parameters = Hex("06052b8104000a");
  record.parameters = parameters;
  EXPECT_EQ(Plain("301a 020100 3010 06072a8648ce3d0201 06052b8104000a 0403a1b2c3"), Built());
}

TEST_F(BuildPrivateKey, TheKeyMayBeEmpty) {
  record.privateKey = {};
  EXPECT_EQ(Plain("3011 020100 300a 06062a8503020213 0500 0400"), Built());
}

TEST_F(BuildPrivateKey, AttributesAreTaggedZero) {
  const Octets attributes = Hex("3105 3003 020107");
  record.attributes = attributes;
  EXPECT_EQ(Plain("301b 020100 300a 06062a8503020213 0500 0403a1b2c3 a005 3003 020107"), Built());
}

TEST_F(BuildPrivateKey, Failures) {
  record.algorithm = nullptr;
  EXPECT_EQ("code 4", Built());
  record.algorithm = "1.2.3";
  // Attributes that add nothing leave no place for the tag.
  const Octets attributes = Hex("3105 3003 0201");
  record.attributes = attributes;
  EXPECT_EQ("code 9", Built());
}

TEST_F(BuildPrivateKey, SizesThatNoDocumentCanHold) {
  TPKCS8 document;
  for (OctetSpan* part : {&record.parameters, &record.privateKey, &record.attributes}) {
    const OctetSpan before = *part;
    *part = {key.data(), 0xFFFFF000};
    const Pkcs8Record input = record;
    EXPECT_THROW(document.Build(&input), std::bad_alloc);
    EXPECT_EQ(-1, document.EncodedSize());
    *part = before;
  }
  record.parameters = {key.data(), 0x80000000};
  record.attributes = {key.data(), 0x80000000};
  const Pkcs8Record input = record;
  EXPECT_THROW(document.Build(&input), std::bad_alloc);
}

class BuildEncryptedKey : public testing::Test {
 protected:
  BuildEncryptedKey() {
    record.algorithm = "2.16.840.1.101.3.4.1.42";
    record.salt = salt;
    record.iterations = 2048;
    record.iv = iv;
    record.encryptedData = data;
  }
  std::string Built() const { return test::Built(2, record); }

  const Octets salt = Hex("5a5b");
  const Octets iv = Hex("1f2f3f");
  const Octets data = Hex("dddd");
  EncryptedKeyRecord record;
};

TEST_F(BuildEncryptedKey, Aes256NamesItsPseudoRandomFunction) {
  EXPECT_EQ(Plain("304a 3044 06092a864886f70d01050d 3037"
                  "3023 06092a864886f70d01050c 3016 04025a5b 02020800"
                  "300c 06082a864886f70d0209 0500"
                  "3010 060960864801650304012a 04031f2f3f"
                  "0402dddd"),
            Built());
}

TEST_F(BuildEncryptedKey, OtherCiphersDoNot) {
  record.algorithm = "1.2.840.113549.3.7";
  EXPECT_EQ(Plain("303b 3035 06092a864886f70d01050d 3028"
                  "3015 06092a864886f70d01050c 3008 04025a5b 02020800"
                  "300f 06082a864886f70d0307 04031f2f3f"
                  "0402dddd"),
            Built());
}

TEST_F(BuildEncryptedKey, NotEvenOtherSizesAndModesOfAes) {
  for (const char* cipher : {"2.16.840.1.101.3.4.1.2", "2.16.840.1.101.3.4.1.22",
                             "2.16.840.1.101.3.4.1.41", "2.16.840.1.101.3.4.1.421"}) {
    record.algorithm = cipher;
    EXPECT_EQ(std::string::npos, Built().find("06082a864886f70d0209")) << cipher;
  }
}

TEST_F(BuildEncryptedKey, WithoutAnIvASinglePbe) {
  record.algorithm = "1.2.840.113549.1.12.1.3";
  record.iv = {};
  EXPECT_EQ(Plain("301c 3016 060a2a864886f70d010c0103 3008 04025a5b 02020800 0402dddd"), Built());
  record.iv = {iv.data(), 0};
  EXPECT_EQ(Plain("301c 3016 060a2a864886f70d010c0103 3008 04025a5b 02020800 0402dddd"), Built());
}

TEST_F(BuildEncryptedKey, ASinglePbeWithoutSaltOrIterationsHasNoParameters) {
  record.algorithm = "1.2.840.113549.1.12.1.3";
  record.iv = {};
  const std::string bare = Plain("3012 300c 060a2a864886f70d010c0103 0402dddd");
  record.iterations = 0;
  EXPECT_EQ(bare, Built());
  record.iterations = 1;
  record.salt = {salt.data(), 0};
  EXPECT_EQ(bare, Built());
  record.salt = {};
  EXPECT_EQ(bare, Built());
}

TEST_F(BuildEncryptedKey, Failures) {
  record.algorithm = nullptr;
  EXPECT_EQ("code 30", Built());
  record.salt = {};
  EXPECT_EQ("code 22", Built());
  record.salt = {salt.data(), 0};
  EXPECT_EQ("code 22", Built());
  record.iv = {};
  EXPECT_EQ("code 32", Built());
}

TEST_F(BuildEncryptedKey, SizesThatNoDocumentCanHold) {
  for (OctetSpan* part : {&record.salt, &record.iv, &record.encryptedData}) {
    const OctetSpan before = *part;
    *part = {salt.data(), 0xFFFFF000};
    const Pkcs8Record input = record;
    TPKCS8 document;
    EXPECT_THROW(document.Build(&input), std::bad_alloc);
    *part = before;
  }
}

TEST(BuildBag, AValueInItsWrapper) {
  const Octets value = Hex("c0c1");
  for (const std::uint32_t kind : {3u, 4u, 5u}) {
    EXPECT_EQ(Plain("3012 060a2a864886f70d01091601 a004 0402c0c1"),
              Built(kind, BagOf(kind, {"1.2.840.113549.1.9.22.1", value, 0x04})));
    EXPECT_EQ(Plain("3012 060a2a864886f70d01091602 a004 1e02c0c1"),
              Built(kind, BagOf(kind, {"1.2.840.113549.1.9.22.2", value, 0x1E})));
  }
}

TEST(BuildBag, AConstructedTagTakesTheValueAsElements) {
  const Octets value = Hex("020107");
  EXPECT_EQ(Plain("300b 06022a03 a005 3003020107"),
            Built(5, SecretBagRecord{{"1.2.3", value, 0x30}}));
}

TEST(BuildBag, Failures) {
  const Octets value = Hex("c0c1");
  EXPECT_EQ("code 40", Built(3, CertBagRecord{{nullptr, value, 0x04}}));
  TPKCS8 document;
  const Pkcs8Record input = CertBagRecord{{"1.2.3", {value.data(), 0xFFFFF000}, 0x04}};
  EXPECT_THROW(document.Build(&input), std::bad_alloc);
}

TEST(BuildEncoded, AdoptsADocument) {
  const Octets document = Hex("3080 020105 0000");
  EXPECT_EQ("3003020105", Built(6, EncodedDocument{document}));
  const Octets primitive = Hex("0402aabb");
  EXPECT_EQ("0402aabb", Built(6, EncodedDocument{primitive}));
}

TEST(BuildEncoded, Failures) {
  const Octets octets = Hex("300302");
  EXPECT_EQ("code 50", Built(6, EncodedDocument{}));
  EXPECT_EQ("code 50", Built(6, EncodedDocument{{octets.data(), 0}}));
  EXPECT_EQ("code 51", Built(6, EncodedDocument{octets}));
  const Octets mixed = Hex("3005 2403 020105");
  EXPECT_EQ("code 52", Built(6, EncodedDocument{mixed}));
}

TEST(Build, NoInputLeavesNothing) {
  TPKCS8 document;
  const Octets octets = Hex("0500");
  const Pkcs8Record encoded = EncodedDocument{octets};
  ASSERT_EQ(0, document.Build(&encoded));
  EXPECT_EQ(1, document.Build(nullptr));
  EXPECT_EQ(-1, document.EncodedSize());
}

TEST(Build, ReplacesWhatWasThere) {
  TPKCS8 document;
  const Octets octets = Hex("0402aabb");
  const Pkcs8Record encoded = EncodedDocument{octets};
  const Pkcs8Record bag = SecretBagRecord{{"1.2.3", octets, 0x04}};
  ASSERT_EQ(0, document.Build(&encoded));
  // The root was an OCTET STRING.
  ASSERT_EQ(0, document.Build(&bag));
  Octets out(static_cast<std::size_t>(document.EncodedSize()));
  ASSERT_EQ(0, document.Encode(out.data()));
  EXPECT_EQ(Plain("300c 06022a03 a006 04040402aabb"), HexText(out));
  EXPECT_EQ(1, document.Build(nullptr));
  EXPECT_EQ(-1, document.EncodedSize()) << "a failed build leaves nothing";
}

TEST(Build, NothingHeldEncodesNothing) {
  TPKCS8 document;
  EXPECT_EQ(-1, document.EncodedSize());
  EXPECT_EQ(0u, document.Kind());
  EXPECT_EQ(nullptr, document.Decoded());
  Octets buffer(2, 0xCC);
  EXPECT_EQ(1, document.Encode(buffer.data()));
  EXPECT_EQ(Hex("cccc"), buffer);
  const Octets octets = Hex("0500");
  const Pkcs8Record encoded = EncodedDocument{octets};
  ASSERT_EQ(0, document.Build(&encoded));
  EXPECT_EQ(1, document.Encode(nullptr));
  document.Clear();
  EXPECT_EQ(-1, document.EncodedSize());
  EXPECT_EQ(0u, document.Kind());
}

}  // namespace
}  // namespace zarext::test
