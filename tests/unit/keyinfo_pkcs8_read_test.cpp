// Reading private keys and bags, and what holds for every key document.
#include <gtest/gtest.h>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_pkcs8_reading.h"

namespace zarext::test {
namespace {

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

// The record of a reading points into the tree. Nothing but Build, Read and Clear, which end the
// record, may change the tree below it.
TEST(Read, KeepsItsTreeToItself) {
  static_assert(std::is_base_of_v<TASN1, TPKCS8>);
  EXPECT_FALSE((std::is_convertible_v<TPKCS8*, TASN1*>));
  EXPECT_FALSE((std::is_convertible_v<TPKCS8&, TASN1&>));
}

}  // namespace
}  // namespace zarext::test
