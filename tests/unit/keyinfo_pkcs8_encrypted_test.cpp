// Reading encrypted keys.
#include <gtest/gtest.h>

#include "unit/keyinfo_pkcs8_reading.h"

namespace zarext::test {
namespace {

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

}  // namespace
}  // namespace zarext::test
