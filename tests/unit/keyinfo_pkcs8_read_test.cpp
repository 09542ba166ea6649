// Reading key documents.
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <span>
#include <type_traits>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {
namespace {

std::string Text(OctetSpan octets) { return HexText(octets.data(), octets.size()); }

std::int32_t ReadCode(std::uint32_t kind, std::string_view text) {
  const Octets octets = Hex(text);
  TPKCS8 document;
  const std::int32_t code = document.Read(kind, octets);
  if (code != 0) {
    EXPECT_EQ(-1, document.EncodedSize());
    EXPECT_EQ(0u, document.Kind());
    EXPECT_EQ(nullptr, document.Decoded());
  } else {
    EXPECT_EQ(static_cast<std::int64_t>(octets.size()), document.EncodedSize());
    EXPECT_EQ(kind, document.Kind());
  }
  return code;
}

struct CodeCase {
  std::int32_t code;
  const char* text;
};

// An element with its length; children may be joined.
std::string Element(const char* tag, const std::string& content) {
  const std::size_t size = Hex(content).size();
  char length[16] = {};
  snprintf(length, sizeof length, size < 0x80 ? "%02zx" : "82%04zx", size);
  return std::string(tag) + length + content;
}

TEST(Read, TheImageIsCheckedFirst) {
  TPKCS8 document;
  const Octets octets = Hex("300300");
  for (std::uint32_t kind = 0; kind < 8; ++kind) {
    EXPECT_EQ(1, document.Read(kind, {}));
    EXPECT_EQ(1, document.Read(kind, OctetSpan(octets).first(0)));
    EXPECT_EQ(2, ReadCode(kind, "300300"));
    EXPECT_EQ(2, ReadCode(kind, "30 04 0285 0000"));
    EXPECT_EQ(3, ReadCode(kind, "0400"));
    EXPECT_EQ(3, ReadCode(kind, "3103020105"));
    EXPECT_EQ(3, ReadCode(kind, "a000"));
    // The number of a SEQUENCE in other classes, and primitive.
    EXPECT_EQ(3, ReadCode(kind, "7000"));
    EXPECT_EQ(3, ReadCode(kind, "b000"));
    EXPECT_EQ(3, ReadCode(kind, "1000"));
    EXPECT_EQ(4, ReadCode(kind, "3005 2403 020105"));
  }
}

TEST(Read, UnknownKinds) {
  EXPECT_EQ(100, ReadCode(0, "3000"));
  EXPECT_EQ(100, ReadCode(7, "3000"));
  EXPECT_EQ(100, ReadCode(0xFFFFFFFF, "3000"));
}

TEST(Read, AnEncodedDocumentHasNoRecord) {
  const Octets octets = Hex("3003020105");
  TPKCS8 document;
  ASSERT_EQ(0, document.Read(6, octets));
  EXPECT_EQ(6u, document.Kind());
  EXPECT_EQ(nullptr, document.Decoded());
  EXPECT_EQ(5, document.EncodedSize());
}

TEST(Read, PrivateKeyCodes) {
  const CodeCase cases[] = {
      {102, "3000"},
      {102, "3006 020100 020100"},
      {102, "300a 0500 0500 0500 0500 0500"},
      {104, "3006 0500 3000 0400"},
      {104, "3009 0203ff0000 3000 0400"},
      {104, "300c 0206010000000000 3000 0400"},
      {104, "3006 0200 3000 0400"},
      {104, "300a 030400000000 0400 0500"},
      // Four octets as a number has, of another kind: the tag counts before the octets.
      {104, "300a 040401000000 3000 0400"},
      {106, "3007 020100 0400 0400"},
      {106, "3007 020100 3000 0400"},
      {106, "300f 020100 3008 0500050005000500 0400"},
      {108, "3009 020100 30020500 0400"},
      {108, "3009 020100 30020600 0400"},
      {108, "3009 020100 30022600 0400"},
      {108, "300c 020100 3005 0c03312e32 0400"},
      {111, "300b 020100 300406022a03 0400"},
      {111, "300c 020100 300406022a03 0501aa"},
      {111, "300c 020100 300406022a03 0301aa"},
      {111, "300d 020100 300406022a03 80020000"},
      {111, "300c 020100 300406022a03 0c01aa"},
      // In this order: several things are wrong, the first one counts.
      {102, "3004 0500 0500"},
      {104, "3008 0500 30020500 0400"},
      {106, "3007 020100 3000 0400"},
      {111, "300d 020100 300406022a03 0400 3000"},
      {113, "300e 020100 300406022a03 0401aa 3000"},
      {113, "300e 020100 300406022a03 0401aa 8000"},
      {113, "300e 020100 300406022a03 0401aa a100"},
  };
  for (const CodeCase& c : cases) {
    EXPECT_EQ(c.code, ReadCode(1, c.text)) << c.text;
  }
}

// Reads and gives the record, or fails the test.
template <typename Record>
const Record& Decode(TPKCS8& document, std::uint32_t kind, std::span<const std::uint8_t> octets) {
  EXPECT_EQ(0, document.Read(kind, octets));
  static const Record kNone;
  const auto* record =
      document.Decoded() == nullptr ? nullptr : std::get_if<Record>(document.Decoded());
  EXPECT_NE(nullptr, record);
  return record == nullptr ? kNone : *record;
}

TEST(Read, PrivateKeyRecord) {
  TPKCS8 document;
  const auto& record = Decode<PrivateKeyRecord>(
      document, 1,
      Hex("3027 02020102 300d 06062a8503020213 3003020107 0403a1b2c3 a00d 300b 06022a03 3105 "
          "0403f0f1f2"));
  EXPECT_EQ(0x102u, record.version);
  EXPECT_STREQ("1.2.643.2.2.19", record.algorithm);
  EXPECT_EQ("3003020107", Text(record.parameters));
  EXPECT_EQ("a1b2c3", Text(record.privateKey));
  EXPECT_EQ("310d300b06022a0331050403f0f1f2", Text(record.attributes));
  // The attributes' tag is back.
  Octets encoded(static_cast<std::size_t>(document.EncodedSize()));
  ASSERT_EQ(0, document.Encode(encoded.data()));
  EXPECT_EQ(HexText(Hex("3027 02020102 300d 06062a8503020213 3003020107 0403a1b2c3 a00d 300b "
                        "06022a03 3105 0403f0f1f2")),
            HexText(encoded));
}

TEST(Read, PrivateKeyWithoutOptionalParts) {
  TPKCS8 document;
  const auto& record =
      Decode<PrivateKeyRecord>(document, 1, Hex("300c 020100 300406022a03 0401aa"));
  EXPECT_EQ(0u, record.version);
  EXPECT_STREQ("1.2.3", record.algorithm);
  EXPECT_EQ("", Text(record.parameters));
  EXPECT_EQ("aa", Text(record.privateKey));
  EXPECT_EQ("", Text(record.attributes));
}

TEST(Read, AnOidAmongTheParametersIsKeptAsText) {
  TPKCS8 document;
  const auto& record = Decode<PrivateKeyRecord>(
      document, 1, Hex("3017 020100 300f 06062a8503020213 06052b81040022 0401aa"));
  // "1.3.132.0.34" and its terminator.
  EXPECT_EQ(HexText(Octets{'1', '.', '3', '.', '1', '3', '2', '.', '0', '.', '3', '4', 0}),
            Text(record.parameters));
}

TEST(Read, AnEmptyOidAmongTheParametersIsEmptyText) {
  TPKCS8 document;
  const auto& record =
      Decode<PrivateKeyRecord>(document, 1, Hex("3012 020100 300a 06062a8503020213 0600 0401aa"));
  EXPECT_EQ("00", Text(record.parameters));
}

TEST(Read, OtherParametersKeepTheirHeader) {
  const std::pair<const char*, const char*> rows[] = {
      {"3012 020100 300a 06062a8503020213 0500 0401aa", "0500"},
      {"3013 020100 300b 06062a8503020213 020107 0401aa", "020107"},
      {"3014 020100 300c 06062a8503020213 0402c0c1 0401aa", "0402c0c1"},
      {"3014 020100 300c 06062a8503020213 03020780 0401aa", "03020780"},
      {"3014 020100 300c 06062a8503020213 8002c0c1 0401aa", "8002c0c1"},
      // An identifier of another class is none.
      {"3014 020100 300c 06062a8503020213 86022a03 0401aa", "86022a03"},
  };
  for (const auto& [text, parameters] : rows) {
    TPKCS8 document;
    EXPECT_EQ(parameters, Text(Decode<PrivateKeyRecord>(document, 1, Hex(text)).parameters));
  }
}

TEST(Read, ThreePartsOfAnAlgorithmKeepNoParameters) {
  TPKCS8 document;
  const auto& record = Decode<PrivateKeyRecord>(
      document, 1, Hex("3014 020100 300c 06062a8503020213 0500 0500 0401aa"));
  EXPECT_EQ("", Text(record.parameters));
}

TEST(Read, TheAlgorithmsTagIsNotLookedAt) {
  TPKCS8 document;
  EXPECT_STREQ(
      "1.2.3",
      Decode<PrivateKeyRecord>(document, 1, Hex("300c 020100 a00406022a03 0401aa")).algorithm);
}

// What is wrong in front counts, whether or not the encrypted data are right.
class EncryptedKeyCodes : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Data, EncryptedKeyCodes, testing::Values("0401dd", "0400", "0c01dd"));

TEST_P(EncryptedKeyCodes, Read) {
  const std::string pbes2 = "06092a864886f70d01050d";
  const std::string pbkdf2 = "06092a864886f70d01050c";
  const std::string data = GetParam();
  // The PBES2 parameters, or those of another algorithm, in a whole document.
  const auto other = [&](const std::string& parameters) {
    return Element("30", Element("30", "06022a03" + parameters) + data);
  };
  const auto with = [&](const std::string& parameters) {
    return Element("30", Element("30", pbes2 + parameters) + data);
  };
  const auto derivation = [&](const std::string& content) {
    return with(Element("30", Element("30", content) + "30050403020100"));
  };
  const auto scheme = [&](const std::string& element) {
    return with(Element("30", Element("30", pbkdf2 + Element("30", "04015a020101")) + element));
  };
  const std::pair<std::int32_t, std::string> cases[] = {
      {121, "3000"},
      {121, "30020500"},
      {121, "3006050005000500"},
      {123, "300404000400"},
      {123, Element("30", "a000" + data)},
      {124, Element("30", "3000" + data)},
      {125, Element("30", "30020500" + data)},
      {125, Element("30", "30020600" + data)},
      {125, Element("30", "30050c03312e32" + data)},
      {127, other("0500")},
      {127, other("3000")},
      {127, other("3002 0500")},
      {127, other("3006 0500 0500 0500")},
      {127, other("a006 04015a020101")},
      {129, other("3006 03015a 020101")},
      {129, other("3005 0400 020101")},
      {129, other("3006 0c015a 020101")},
      {129, other("3004 0500 0500")},
      {131, other("3005 04015a 0500")},
      {131, other("3007 04015a 0202ff00")},
      {131, other("3009 04015a 040401000000")},
      {133, with("3004 0500 0500")},
      {133, with("3006 30020500 0500")},
      {133, with("300a 3006050005000500 0500")},
      {135, derivation("05000500")},
      {135, derivation("06000500")},
      {135, derivation("0c03312e320500")},
      {136, derivation("06022a030500")},
      {138, derivation(pbkdf2 + "0500")},
      {138, derivation(pbkdf2 + "30020500")},
      {138, derivation(pbkdf2 + "30080500050005000500")},
      {140, derivation(pbkdf2 + "30040500 0500")},
      {140, derivation(pbkdf2 + "30050400 020101")},
      {140, derivation(pbkdf2 + "30060c015a 020101")},
      {140, derivation(pbkdf2 + "3004 0500 0500")},
      {142, derivation(pbkdf2 + "300504015a 0500")},
      {142, derivation(pbkdf2 + "300904015a 040401000000")},
      {144, scheme("0500")},
      {144, scheme("3002 0500")},
      {144, scheme("3006 0500 0500 0500")},
      {146, scheme("3004 0500 0400")},
      {146, scheme("3004 0600 0400")},
      {146, scheme("3007 0c03312e32 0400")},
      {146, scheme("3004 0500 0500")},
      {148, scheme("3006 06022a03 0500")},
      {150, Element("30", Element("30", "06022a03") + "0400")},
      {150, Element("30", Element("30", "06022a03") + "0301aa")},
      {150, Element("30", Element("30", "06022a03") + "0c01aa")},
  };
  for (const auto& [code, text] : cases) {
    EXPECT_EQ(code, ReadCode(2, text)) << text;
  }
}

TEST(Read, EncryptedKeyRecordOfASinglePbe) {
  TPKCS8 document;
  const auto& record = Decode<EncryptedKeyRecord>(
      document, 2, Hex("301c 3016 060a2a864886f70d010c0103 3008 04025a5b 02020800 0402dddd"));
  EXPECT_STREQ("1.2.840.113549.1.12.1.3", record.algorithm);
  EXPECT_EQ("5a5b", Text(record.salt));
  EXPECT_EQ(2048u, record.iterations);
  EXPECT_EQ("", Text(record.iv));
  EXPECT_EQ("dddd", Text(record.encryptedData));
}

TEST(Read, EncryptedKeyRecordWithoutParameters) {
  TPKCS8 document;
  for (const char* text : {"3009 3004 06022a03 0401dd", "300d 3008 06022a03 0500 0500 0401dd",
                           "3010 300b 06092a864886f70d01050d 0401dd"}) {
    const auto& record = Decode<EncryptedKeyRecord>(document, 2, Hex(text));
    EXPECT_EQ("", Text(record.salt));
    EXPECT_EQ(0u, record.iterations);
    EXPECT_EQ("dd", Text(record.encryptedData));
  }
}

TEST(Read, EncryptedKeyRecordOfPbes2) {
  // Without, or with a key length, a pseudo-random function, or anything else.
  for (const char* third : {"", "020120", "300c 06082a864886f70d0209 0500", "0500"}) {
    TPKCS8 document;
    const std::string derivation = Element(
        "30", "06092a864886f70d01050c" + Element("30", std::string("04025a5b02020800") + third));
    const std::string scheme = "3010060960864801650304012a04031f2f3f";
    const std::string algorithm =
        Element("30", "06092a864886f70d01050d" + Element("30", derivation + scheme));
    const auto& record =
        Decode<EncryptedKeyRecord>(document, 2, Hex(Element("30", algorithm + "0402dddd")));
    EXPECT_STREQ("2.16.840.1.101.3.4.1.42", record.algorithm);
    EXPECT_EQ("5a5b", Text(record.salt));
    EXPECT_EQ(2048u, record.iterations);
    EXPECT_EQ("1f2f3f", Text(record.iv));
    EXPECT_EQ("dddd", Text(record.encryptedData));
  }
}

TEST(Read, TheIvMayBeEmpty) {
  TPKCS8 document;
  const auto& record = Decode<EncryptedKeyRecord>(
      document, 2,
      Hex("302f 302a 06092a864886f70d01050d 301d 3013 06092a864886f70d01050c 3006 04015a 020101"
          "3006 06022a03 0400"
          "0401dd"));
  EXPECT_EQ("", Text(record.iv));
  EXPECT_STREQ("1.2.3", record.algorithm);
}

TEST(Read, BagCodes) {
  const std::string x509 = "060a2a864886f70d01091601";
  const std::string sdsi = "060a2a864886f70d01091602";
  const std::string crl = "060a2a864886f70d01091701";
  for (const std::uint32_t kind : {3u, 4u, 5u}) {
    const std::pair<std::int32_t, std::string> cases[] = {
        {161, "3000"},
        {161, "30020500"},
        {161, "3006050005000500"},
        {163, "30040500a000"},
        {163, "30040600a000"},
        {163, "30070c03312e32a000"},
        {165, Element("30", x509 + "3000")},
        {165, Element("30", x509 + "8000")},
        {165, Element("30", x509 + "a1030401aa")},
        {166, Element("30", x509 + "a000")},
        {166, Element("30", x509 + "a004 0500 0500")},
        {168, Element("30", x509 + "a002 0400")},
        {168, Element("30", x509 + "a005 3003 020105")},
        // Before the type.
        {168, Element("30", "06022a03 a002 0400")},
    };
    for (const auto& [code, text] : cases) {
      EXPECT_EQ(code, ReadCode(kind, text)) << kind << " " << text;
    }
  }
  const std::string octetString = "a0030401aa";
  const std::string bmpString = "a0041e020041";
  EXPECT_EQ(0, ReadCode(3, Element("30", x509 + octetString)));
  EXPECT_EQ(170, ReadCode(3, Element("30", x509 + bmpString)));
  EXPECT_EQ(0, ReadCode(3, Element("30", sdsi + bmpString)));
  EXPECT_EQ(171, ReadCode(3, Element("30", sdsi + octetString)));
  EXPECT_EQ(171, ReadCode(3, Element("30", sdsi + "a0031601aa")));
  // The same numbers in other classes are other tags.
  for (const char* octets : {"a0038401aa", "a0034401aa", "a003c401aa"}) {
    EXPECT_EQ(170, ReadCode(3, Element("30", x509 + octets)));
    EXPECT_EQ(173, ReadCode(4, Element("30", crl + octets)));
  }
  EXPECT_EQ(171, ReadCode(3, Element("30", sdsi + "a0049e020041")));
  EXPECT_EQ(169, ReadCode(3, Element("30", crl + octetString)));
  EXPECT_EQ(0, ReadCode(4, Element("30", crl + octetString)));
  EXPECT_EQ(173, ReadCode(4, Element("30", crl + bmpString)));
  EXPECT_EQ(172, ReadCode(4, Element("30", x509 + octetString)));
  for (const std::string& type : {x509, sdsi, crl, std::string("06022a03")}) {
    EXPECT_EQ(0, ReadCode(5, Element("30", type + octetString)));
    EXPECT_EQ(0, ReadCode(5, Element("30", type + bmpString)));
  }
}

TEST(Read, BagRecord) {
  TPKCS8 document;
  const auto& record = Decode<SecretBagRecord>(document, 5, Hex("300a 06022a03 a004 0c02c0c1"));
  EXPECT_STREQ("1.2.3", record.type);
  EXPECT_EQ("c0c1", Text(record.value));
  EXPECT_EQ(0x0C, record.tag);
}

TEST(Read, ReplacesWhatWasThere) {
  TPKCS8 document;
  const Octets key = Hex("300c 020100 300406022a03 0401aa");
  Decode<PrivateKeyRecord>(document, 1, key);
  EXPECT_EQ(2, document.Read(1, OctetSpan(key).first(3)));
  EXPECT_EQ(nullptr, document.Decoded());
  EXPECT_EQ(-1, document.EncodedSize());
  Decode<SecretBagRecord>(document, 5, Hex("300a 06022a03 a004 0c02c0c1"));
  document.Clear();
  EXPECT_EQ(nullptr, document.Decoded());
  EXPECT_EQ(0u, document.Kind());
}

// Random records go through build and read unchanged.
class RandomRecords : public testing::Test {
 protected:
  OctetSpan Some(std::size_t least = 1) {
    std::uniform_int_distribution<std::size_t> size(least, random_() % 8 == 0 ? 400 : 40);
    Octets& octets = kept_.emplace_back(size(random_));
    for (std::uint8_t& octet : octets) {
      octet = static_cast<std::uint8_t>(random_());
    }
    return {octets.data(), static_cast<std::uint32_t>(octets.size())};
  }
  // An encoded element that is no OBJECT IDENTIFIER.
  OctetSpan SomeElement(std::uint8_t tag) {
    const OctetSpan content = Some();
    Octets& octets = kept_.emplace_back();
    // The content as the content of an OCTET STRING inside.
    Octets inner = {0x04};
    const auto appendLength = [](Octets& to, std::size_t size) {
      if (size >= 0x80) {
        to.push_back(size >= 0x100 ? 0x82 : 0x81);
      }
      if (size >= 0x100) {
        to.push_back(static_cast<std::uint8_t>(size >> 8));
      }
      to.push_back(static_cast<std::uint8_t>(size));
    };
    appendLength(inner, content.size());
    inner.insert(inner.end(), content.begin(), content.end());
    octets.push_back(tag);
    appendLength(octets, inner.size());
    octets.insert(octets.end(), inner.begin(), inner.end());
    return {octets.data(), static_cast<std::uint32_t>(octets.size())};
  }
  const char* SomeOid() {
    static constexpr const char* kOids[] = {"1.2.643.2.2.19", "1.2.840.10045.2.1", "0.9.2342",
                                            "1.3.6.1.4.1.32473.1.5.8", "1.2.268435455.0.127.128"};
    return kOids[random_() % std::size(kOids)];
  }
  std::uint32_t SomeNumber() { return static_cast<std::uint32_t>(random_()) >> random_() % 32; }
  bool Coin() { return random_() % 2 == 0; }

  // Builds, reads and gives what was read.
  template <typename Record>
  Record RoundTrip(std::uint32_t kind, const Record& record) {
    const Pkcs8Record input = record;
    EXPECT_EQ(0, built_.Build(&input));
    encoded_.resize(static_cast<std::size_t>(built_.EncodedSize()));
    EXPECT_EQ(0, built_.Encode(encoded_.data()));
    return Decode<Record>(read_, kind, encoded_);
  }

  zarext::BagRecord RoundTripBag(std::uint32_t kind, const zarext::BagRecord& record) {
    switch (kind) {
      case 3:
        return RoundTrip(kind, CertBagRecord{record});
      case 4:
        return RoundTrip(kind, CrlBagRecord{record});
      default:
        return RoundTrip(kind, SecretBagRecord{record});
    }
  }

  std::mt19937 random_{20260115};
  std::deque<Octets> kept_;
  TPKCS8 built_;
  TPKCS8 read_;
  Octets encoded_;
};

TEST_F(RandomRecords, PrivateKeys) {
  for (int i = 0; i < 2000; ++i) {
    PrivateKeyRecord record;
    record.version = SomeNumber();
    record.algorithm = SomeOid();
    record.parameters = SomeElement(0x30);
    record.privateKey = Some();
    record.attributes = Coin() ? SomeElement(0x31) : OctetSpan{};
    const PrivateKeyRecord read = RoundTrip(1, record);
    ASSERT_EQ(record.version, read.version);
    ASSERT_STREQ(record.algorithm, read.algorithm);
    ASSERT_EQ(Text(record.parameters), Text(read.parameters));
    ASSERT_EQ(Text(record.privateKey), Text(read.privateKey));
    ASSERT_EQ(Text(record.attributes), Text(read.attributes));
  }
}

TEST_F(RandomRecords, EncryptedKeys) {
  for (int i = 0; i < 2000; ++i) {
    EncryptedKeyRecord record;
    record.algorithm = Coin() ? SomeOid() : "2.16.840.1.101.3.4.1.42";
    record.iv = Coin() ? Some() : OctetSpan{};
    record.salt = Some();
    record.iterations = SomeNumber() | 1;
    record.encryptedData = Some();
    const EncryptedKeyRecord read = RoundTrip(2, record);
    ASSERT_STREQ(record.algorithm, read.algorithm);
    ASSERT_EQ(Text(record.iv), Text(read.iv));
    ASSERT_EQ(Text(record.salt), Text(read.salt));
    ASSERT_EQ(record.iterations, read.iterations);
    ASSERT_EQ(Text(record.encryptedData), Text(read.encryptedData));
  }
}

TEST_F(RandomRecords, Bags) {
  for (int i = 0; i < 2000; ++i) {
    zarext::BagRecord record;
    const std::uint32_t kind = 3 + static_cast<std::uint32_t>(i) % 3;
    const bool sdsi = kind == 3 && Coin();
    record.type =
        kind == 5 ? SomeOid()
                  : (kind == 4 ? "1.2.840.113549.1.9.23.1"
                               : (sdsi ? "1.2.840.113549.1.9.22.2" : "1.2.840.113549.1.9.22.1"));
    record.tag = sdsi ? 0x1E : 0x04;
    record.value = Some();
    const zarext::BagRecord read = RoundTripBag(kind, record);
    ASSERT_STREQ(record.type, read.type);
    ASSERT_EQ(record.tag, read.tag);
    ASSERT_EQ(Text(record.value), Text(read.value));
  }
}

// The record of a reading points into the tree. Nothing but Build, Read and Clear, which end the
// record, may change the tree below it.
TEST(Read, KeepsItsTreeToItself) {
  static_assert(std::is_base_of_v<TASN1, TPKCS8>);
  EXPECT_FALSE((std::is_convertible_v<TPKCS8*, TASN1*>));
  EXPECT_FALSE((std::is_convertible_v<TPKCS8&, TASN1&>));
}

}  // namespace
}  // namespace zarext::test
