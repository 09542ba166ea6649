// Session keys as they travel: wrapped for a recipient, and plain.
#include <gtest/gtest.h>

#include "provider/key.h"
#include "provider/wrap.h"
#include "provider_hex.h"
#include "unit/provider_keys.h"

namespace zarext::provider {
namespace {

using test::CodeOf;
using test::Hex;
using test::ToHex;

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

}  // namespace
}  // namespace zarext::provider
