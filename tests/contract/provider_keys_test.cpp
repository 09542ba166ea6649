// Key pairs of the development provider through the real advapi32: making, finding, exporting,
// importing, signing.
#include <ostream>

#include "contract/provider_fixture.h"

namespace zarext::test {
namespace {

const Octets kMessage{'a', 'b', 'c'};

struct PairCase {
  friend void PrintTo(const PairCase& row, std::ostream* out) {
    *out << "ALG_ID " << std::hex << row.algorithm;
  }
  ALG_ID algorithm;
  DWORD keySpec;
  ALG_ID hash;
  std::size_t blobLength;
  Octets blobHead;  // the first 16 octets
  std::size_t signatureLength;
};

class Pairs : public ProviderTest, public testing::WithParamInterface<PairCase> {};

TEST_P(Pairs, LiveInContainerAndTravelAsBlobs) {
  const PairCase& row = GetParam();
  Octets publicBlob;
  Octets privateBlob;
  Octets signature;
  {
    const Context context = NewContainer("pair");
    const Key made = Generate(context, row.algorithm, CRYPT_EXPORTABLE);
    publicBlob = Export(made, PUBLICKEYBLOB);
    EXPECT_EQ(KeyNumberParam(made, KP_ALGID), row.algorithm);
  }
  ASSERT_EQ(publicBlob.size(), row.blobLength);
  EXPECT_EQ(Octets(publicBlob.begin(), publicBlob.begin() + 16), row.blobHead);
  {
    const Context context = Acquire("pair", 0);
    const Key stored = UserKey(context, row.keySpec);
    EXPECT_EQ(Export(stored, PUBLICKEYBLOB), publicBlob);
    Key other;
    EXPECT_EQ(CodeOf(CryptGetUserKey(context.Get(), 3 - row.keySpec, other.Out())), 0x8009000D);
    privateBlob = Export(stored, 0x30);
    EXPECT_EQ(privateBlob[0], 0x30);
    signature = SignData(context, row.keySpec, row.hash, kMessage);
  }
  EXPECT_EQ(signature.size(), row.signatureLength);

  const Context elsewhere = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key publicKey = Import(elsewhere, publicBlob);
  EXPECT_EQ(Export(publicKey, PUBLICKEYBLOB), publicBlob);
  EXPECT_EQ(VerifyCode(elsewhere, publicKey.Get(), row.hash, kMessage, signature), 0U);
  EXPECT_EQ(VerifyCode(elsewhere, publicKey.Get(), row.hash, {'a', 'b', 'd'}, signature),
            0x80090006);
  for (const std::size_t at : {std::size_t{0}, signature.size() / 2, signature.size() - 1}) {
    Octets wrong = signature;
    wrong[at] ^= 1;
    EXPECT_EQ(VerifyCode(elsewhere, publicKey.Get(), row.hash, kMessage, wrong), 0x80090006) << at;
  }

  const Context copy = NewContainer("copy");
  const Key imported = Import(copy, privateBlob, 0, CRYPT_EXPORTABLE);
  EXPECT_EQ(Export(imported, PUBLICKEYBLOB), publicBlob);
  EXPECT_EQ(Export(UserKey(copy, row.keySpec), 0x30), privateBlob);
  EXPECT_EQ(VerifyCode(copy, publicKey.Get(), row.hash, kMessage,
                       SignData(copy, row.keySpec, row.hash, kMessage)),
            0U);
}

INSTANTIATE_TEST_SUITE_P(
    Gost, Pairs,
    testing::Values(
        PairCase{0xAA3A, 2, 0x8015, 80, FromHex("060200003AAA00000045433100020000"), 64},
        PairCase{0x2A3A, 2, 0x801D, 80, FromHex("060200003A2A00000045433100020000"), 64},
        PairCase{0xA045, 1, 0x8022, 80, FromHex("0602000045A000000045433100020000"), 64},
        PairCase{0x2A4A, 2, 0x8022, 80, FromHex("060200004A2A00000045433100020000"), 64},
        PairCase{0xA055, 1, 0x8022, 80, FromHex("0602000055A000000045433100020000"), 64},
        PairCase{0xAA4C, 2, 0x8023, 144, FromHex("060200004CAA00000045433100040000"), 128},
        PairCase{0x2A4C, 2, 0x8023, 144, FromHex("060200004C2A00000045433100040000"), 128},
        PairCase{0xA04B, 1, 0x8023, 144, FromHex("060200004BA000000045433100040000"), 128}));

INSTANTIATE_TEST_SUITE_P(
    Rsa, Pairs,
    testing::Values(
        PairCase{0xA450, 2, CALG_SHA1, 148, FromHex("0602000050A400005253413100040000"), 128},
        PairCase{0xA451, 2, CALG_SHA_256, 212, FromHex("0602000051A400005253413100060000"), 192},
        PairCase{0xA452, 2, CALG_SHA_256, 276, FromHex("0602000052A400005253413100080000"), 256},
        PairCase{0xA453, 2, CALG_SHA_384, 404, FromHex("0602000053A4000052534131000C0000"), 384},
        PairCase{0xA454, 2, CALG_SHA_512, 532, FromHex("0602000054A400005253413100100000"), 512},
        PairCase{0xA050, 1, CALG_SHA1, 148, FromHex("0602000050A000005253413100040000"), 128},
        PairCase{0xA051, 1, CALG_SHA_256, 212, FromHex("0602000051A000005253413100060000"), 192},
        PairCase{0xA052, 1, CALG_SHA_256, 276, FromHex("0602000052A000005253413100080000"), 256},
        PairCase{0xA053, 1, CALG_SHA_384, 404, FromHex("0602000053A0000052534131000C0000"), 384},
        PairCase{0xA054, 1, CALG_SHA_512, 532, FromHex("0602000054A000005253413100100000"), 512}));

}  // namespace
}  // namespace zarext::test
