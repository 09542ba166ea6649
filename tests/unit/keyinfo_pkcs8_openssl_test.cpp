// Key documents between this class and OpenSSL's command.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_bags.h"
#include "unit/keyinfo_openssl_documents.h"
#include "unit/keyinfo_pkcs8_reading.h"

namespace zarext::test {
namespace {

TEST(OpensslDocuments, PrivateKey) {
  TPKCS8 document;
  const auto record = Decode<PrivateKeyRecord>(document, 1, Hex(openssl::kEcKey));
  EXPECT_EQ(0u, record.version);
  EXPECT_STREQ("1.2.840.10045.2.1", record.algorithm);
  EXPECT_STREQ("1.2.840.10045.3.1.7", reinterpret_cast<const char*>(record.parameters.data()));
  EXPECT_EQ("306b0201010420", Text(record.privateKey).substr(0, 14));
  EXPECT_EQ(109u, record.privateKey.size());
  EXPECT_TRUE(record.attributes.empty());
}

TEST(OpensslDocuments, EncryptedPrivateKeys) {
  TPKCS8 document;
  auto record = Decode<EncryptedKeyRecord>(document, 2, Hex(openssl::kAes256));
  EXPECT_STREQ("2.16.840.1.101.3.4.1.42", record.algorithm);
  EXPECT_EQ("20b3be6d09b7310c", Text(record.salt));
  EXPECT_EQ(2048u, record.iterations);
  EXPECT_EQ("22c6669ccbe332d92b7cccf2d7883e14", Text(record.iv));
  EXPECT_EQ(144u, record.encryptedData.size());

  record = Decode<EncryptedKeyRecord>(document, 2, Hex(openssl::kAes256Sha1));
  EXPECT_STREQ("2.16.840.1.101.3.4.1.42", record.algorithm);
  EXPECT_EQ("08464e4198e2def8", Text(record.salt));
  EXPECT_EQ("7a3ae9af5d9053b263eabac723257c2f", Text(record.iv));

  record = Decode<EncryptedKeyRecord>(document, 2, Hex(openssl::kDes3));
  EXPECT_STREQ("1.2.840.113549.3.7", record.algorithm);
  EXPECT_EQ("b2fb6b9d87d5dce2", Text(record.salt));
  EXPECT_EQ(2048u, record.iterations);
  EXPECT_EQ("dbbbf3b18690bc6b", Text(record.iv));

  record = Decode<EncryptedKeyRecord>(document, 2, Hex(openssl::kPbeSha1Des3));
  EXPECT_STREQ("1.2.840.113549.1.12.1.3", record.algorithm);
  EXPECT_EQ("3a98b59598d9f202", Text(record.salt));
  EXPECT_EQ(2048u, record.iterations);
  EXPECT_EQ("", Text(record.iv));
  EXPECT_EQ("108739ef195ee498", Text(record.encryptedData).substr(0, 16));
}

// What the class writes from a record that it read, in hexadecimal.
std::string Rewritten(const char* text) {
  TPKCS8 document;
  Decode<EncryptedKeyRecord>(document, 2, Hex(text));
  const Pkcs8Record record = *document.Decoded();
  TPKCS8 rebuilt;
  EXPECT_EQ(0, rebuilt.Build(&record));
  Octets encoded(static_cast<std::size_t>(rebuilt.EncodedSize()));
  EXPECT_EQ(0, rebuilt.Encode(encoded.data()));
  return HexText(encoded);
}

TEST(OpensslDocuments, AreWrittenAsOpensslWritesThem) {
  EXPECT_EQ(openssl::kAes256, Rewritten(openssl::kAes256));
  EXPECT_EQ(openssl::kPbeSha1Des3, Rewritten(openssl::kPbeSha1Des3));
}

// Runs openssl on a document.
class OpensslCommand : public testing::Test {
 protected:
  ~OpensslCommand() override { std::filesystem::remove(file_); }

  // True if the command takes the document that the class builds.
  bool Takes(const std::string& command, const Pkcs8Record& record) {
    TPKCS8 document;
    EXPECT_EQ(0, document.Build(&record));
    Octets encoded(static_cast<std::size_t>(document.EncodedSize()));
    EXPECT_EQ(0, document.Encode(encoded.data()));
    std::ofstream(file_, std::ios::binary)
        .write(reinterpret_cast<const char*>(encoded.data()),
               static_cast<std::streamsize>(encoded.size()));
    const std::string line = "ASAN_OPTIONS= openssl " + command + " -inform DER -in " +
                             file_.string() + " >/dev/null 2>&1";
    return std::system(line.c_str()) == 0;
  }

  std::filesystem::path file_ =
      std::filesystem::temp_directory_path() /
      ("zarext_key_document_" + std::to_string(std::random_device{}()) + ".der");
};

TEST_F(OpensslCommand, TakesAnRsaKey) {
  const Octets key = Hex(openssl::kRsaKey);
  PrivateKeyRecord record;
  record.algorithm = "1.2.840.113549.1.1.1";
  record.privateKey = key;
  EXPECT_TRUE(Takes("pkey -noout -check", record));
  EXPECT_TRUE(Takes("asn1parse", record));
}

TEST_F(OpensslCommand, TakesEllipticKeysOnTheCurveThatTheirLengthGives) {
  // ECPrivateKey { 1, OCTET STRING } for 256 and 384 bits: 39 and 55 octets.
  PrivateKeyRecord record;
  record.algorithm = "1.2.840.10045.2.1";
  const Octets p256 = Hex("3025 020101 0420" + std::string(62, '0') + "07");
  record.privateKey = p256;
  EXPECT_TRUE(Takes("pkey -noout -check", record));
  const Octets p384 = Hex("3035 020101 0430" + std::string(94, '0') + "07");
  ASSERT_EQ(55u, p384.size());
  record.privateKey = p384;
  EXPECT_TRUE(Takes("pkey -noout -check", record));
  const Octets broken = Hex("3025 020101 0420" + std::string(62, '0'));
  record.privateKey = broken;
  EXPECT_FALSE(Takes("pkey -noout -check", record)) << "the command can fail";
}

TEST_F(OpensslCommand, DecryptsRewrittenDocuments) {
  for (const char* text : {openssl::kAes256, openssl::kAes256Sha1, openssl::kPbeSha1Des3}) {
    TPKCS8 document;
    Decode<EncryptedKeyRecord>(document, 2, Hex(text));
    const Pkcs8Record record = *document.Decoded();
    EXPECT_TRUE(Takes("asn1parse", record));
    // A function that was not the one that is written cannot decrypt.
    EXPECT_EQ(text != openssl::kAes256Sha1,
              Takes("pkcs8 -passin pass:x -provider default -provider legacy", record));
  }
}

TEST_F(OpensslCommand, ParsesEveryKind) {
  const Octets value = Hex("0401aa");
  EXPECT_TRUE(Takes("asn1parse", BagOf(3, {"1.2.840.113549.1.9.22.1", value, 0x04})));
  EXPECT_TRUE(Takes("asn1parse", BagOf(4, {"1.2.840.113549.1.9.23.1", value, 0x04})));
  EXPECT_TRUE(Takes("asn1parse", BagOf(5, {"1.2.3", value, 0x30})));
  EXPECT_TRUE(Takes("asn1parse", EncodedDocument{value}));
}

}  // namespace
}  // namespace zarext::test
