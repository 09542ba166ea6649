// Known answers for the ciphers of the development provider, and their padding.
#include <gtest/gtest.h>

#include <cstdint>

#include "provider/session_key.h"
#include "provider_hex.h"

namespace zarext::provider {
namespace {

using test::Ascii;
using test::HashHex;
using test::Hex;
using test::ToHex;

TEST(Aes, GivesTheBlocksOfTheStandard) {
  // NIST SP 800-38A, F.2.1 and F.2.5, first two blocks.
  const Bytes plain = Hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
  SessionKey aes128(*FindCipherAlgorithm(0x6611), Hex("2b7e151628aed2a6abf7158809cf4f3c"));
  aes128.SetIv(Hex("000102030405060708090a0b0c0d0e0f"));
  EXPECT_EQ(ToHex(aes128.Encrypt(plain, false)),
            "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2");
  SessionKey aes256(*FindCipherAlgorithm(0x6610),
                    Hex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"));
  aes256.SetIv(Hex("000102030405060708090a0b0c0d0e0f"));
  EXPECT_EQ(ToHex(aes256.Encrypt(plain, false)),
            "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d");
}

const char kGostKey[] = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const char kFox[] = "The quick brown fox jumps over the lazy dog";

Bytes LongText() {
  Bytes text(3000);
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return text;
}

SessionKey GostKey(std::uint32_t algId) {
  SessionKey key(*FindCipherAlgorithm(algId), Hex(kGostKey));
  key.SetIv(Hex("f0f1f2f3f4f5f6f7"));
  return key;
}

// OpenSSL 3.0 with its GOST engine: openssl enc -engine gost -gost89, with CRYPT_PARAMS in the
// environment set to id-Gost28147-89-CryptoPro-A-ParamSet.
TEST(Gost28147, FeedbackModeEqualsOpenSsls) {
  SessionKey key = GostKey(0x681F);
  EXPECT_EQ(ToHex(key.Encrypt(Ascii(kFox), true)),
            "80b69f07c7d9329e53576ebec86938fd0b8a136b2efaa3706c4a6b298c99077188f2aba0bb03e235"
            "e9d388");
  // OpenSSL changes the key after 1,024 octets, which this algorithm does not; the value is that of
  // three runs over 1,024 octets, each begun with the last 8 octets of the one before.
  EXPECT_EQ(HashHex(0x800C, key.Encrypt(LongText(), true)),
            "d4d0b16dab5227c11f466d35aef2d836419b876b357d711ed8360956da955726");
}

// The same with -gost89-cbc.
TEST(Gost28147, ChainingModeEqualsOpenSsls) {
  SessionKey key = GostKey(0x6620);
  EXPECT_EQ(ToHex(key.Encrypt(Ascii(kFox), true)),
            "9964f85576ef206a1cd002751b535c98a9574c4c90a8b5eda68ded6f275979c9d7c64e00e1d18e45"
            "299b3b6728ba8c99");
  const Bytes encrypted = key.Encrypt(LongText(), true);
  EXPECT_EQ(encrypted.size(), 3008U);
  EXPECT_EQ(HashHex(0x800C, encrypted),
            "08f60a46128cbc1d522a2849a150c9f7a1a9bd21c4c73c150f96df6fafec334b");
}

class Ciphers : public testing::TestWithParam<std::uint32_t> {};

TEST_P(Ciphers, DecryptWhatTheyEncryptAtEveryLength) {
  SessionKey key = GenerateSessionKey(*FindCipherAlgorithm(GetParam()));
  for (std::size_t length = 0; length <= 40; ++length) {
    Bytes plain = LongText();
    plain.resize(length);
    const Bytes encrypted = key.Encrypt(plain, true);
    EXPECT_EQ(encrypted.size(), key.EncryptedLength(length, true));
    EXPECT_EQ(ToHex(key.Decrypt(encrypted, true)), ToHex(plain));
  }
}

TEST_P(Ciphers, GiveTheSameInPieces) {
  SessionKey key = GenerateSessionKey(*FindCipherAlgorithm(GetParam()));
  const Bytes plain = LongText();
  const Bytes whole = key.Encrypt(plain, true);
  Bytes pieces = key.Encrypt(View(plain).first(1024), false);
  Append(pieces, key.Encrypt(View(plain).subspan(1024, 160), false));
  Append(pieces, key.Encrypt(View(plain).subspan(1184), true));
  EXPECT_EQ(ToHex(pieces), ToHex(whole));
  Bytes back = key.Decrypt(View(whole).first(1040), false);
  Append(back, key.Decrypt(View(whole).subspan(1040), true));
  EXPECT_EQ(ToHex(back), ToHex(plain));
}

TEST_P(Ciphers, WantWholeBlocksBeforeTheEnd) {
  SessionKey key = GenerateSessionKey(*FindCipherAlgorithm(GetParam()));
  EXPECT_EQ(test::CodeOf([&] { key.Encrypt(Bytes(17), false); }), 0x80090004);
  EXPECT_EQ(test::CodeOf([&] { key.Decrypt(Bytes(17), false); }), 0x80090004);
  EXPECT_EQ(test::CodeOf([&] { key.SetIv(Bytes(7)); }), 0x80090004);
  EXPECT_EQ(test::CodeOf([&] { SessionKey(*FindCipherAlgorithm(GetParam()), Bytes(31)); }),
            0x80090004);
}

INSTANTIATE_TEST_SUITE_P(All, Ciphers, testing::Values(0x681F, 0x6620, 0x6610, 0x660E, 0x6611));

TEST(Padding, IsChecked) {
  SessionKey key(*FindCipherAlgorithm(0x6611), Bytes(16, 9));
  const auto refused = [&](Bytes block) {
    // Without padding of its own, so that the block is the whole plain text.
    const Bytes encrypted = key.Encrypt(block, false);
    key.SetIv(Bytes(16));
    return test::CodeOf([&] { key.Decrypt(encrypted, true); });
  };
  Bytes block(16, 'x');
  block[15] = 1;
  EXPECT_EQ(refused(block), 0U);
  block[15] = 0;
  EXPECT_EQ(refused(block), 0x80090005);
  block[15] = 17;
  EXPECT_EQ(refused(block), 0x80090005);
  block[15] = 2;
  EXPECT_EQ(refused(block), 0x80090005);
  EXPECT_EQ(refused(Bytes(16, 16)), 0U);
  EXPECT_EQ(test::CodeOf([&] { key.Decrypt({}, true); }), 0x80090005);
}

}  // namespace
}  // namespace zarext::provider
