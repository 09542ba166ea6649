// Known answers for the hashes, signatures and agreements of the development provider.
#include <gtest/gtest.h>

#include <string>

#include "provider/gost.h"
#include "provider/hash.h"
#include "provider/key.h"
#include "provider_hex.h"
#include "support/openssl_fixtures.h"

namespace zarext::provider {
namespace {

using test::Ascii;
using test::HashHex;
using test::Hex;
using test::ToHex;

struct HashCase {
  std::uint32_t algId;
  Bytes data;
  std::string value;
};

class Hashes : public testing::TestWithParam<HashCase> {};

TEST_P(Hashes, GiveTheKnownValue) {
  EXPECT_EQ(HashHex(GetParam().algId, GetParam().data), GetParam().value);
}

TEST_P(Hashes, GiveTheSameValueForDataInPieces) {
  Hash hash(*FindHashAlgorithm(GetParam().algId));
  for (const std::uint8_t octet : GetParam().data) hash.Update(View(&octet, 1));
  EXPECT_EQ(ToHex(hash.Value()), GetParam().value);
}

// RFC 6986 and public test collections.
INSTANTIATE_TEST_SUITE_P(
    Streebog256, Hashes,
    testing::Values(
        HashCase{0x8022,
                 Hex("3031323334353637383930313233343536373839303132333435363738393031"
                     "32333435363738393031323334353637383930313233343536373839303132"),
                 "9d151eefd8590b89daa6ba6cb74af9275dd051026bb149a452fd84e5e57b5500"},
        HashCase{0x8022,
                 Hex("d1e520e2e5f2f0e82c20d1f2f0e8e1eee6e820e2edf3f6e82c20e2e5fef2fa20f120"
                     "eceef0ff20f1f2f0e5ebe0ece820ede020f5f0e0e1f0fbff20efebfaeafb20c8e3ee"
                     "f0e5e2fb"),
                 "9dd2fe4e90409e5da87f53976d7405b0c0cac628fc669a741d50063c557e8f50"},
        HashCase{0x8022, {}, "3f539a213e97c802cc229d474c6aa32a825a360b2a933a949fd925208d9ce1bb"},
        HashCase{0x8022, Hex("c6"),
                 "d907b672d09f48d27ad06c26647921c9e25d063c038eaaefac81e749dc1d98b5"},
        HashCase{0x8022, Hex("8456"),
                 "cdda073c862905d97fe4eaf9a67278d730a357d94069b1ccb7b2b097e1459416"},
        HashCase{0x8022,
                 Hex("47a712c40cfed1f329282ce473f22208a709e77800913a95db08204ebeddb239bb667541"
                     "ea2163002534c20e7b3b15f3d01ee4498bff"),
                 "b99095c0865c853fcc6646fa49276b6a3fa726e3f535d32ea4ddd81fc541c256"}));

// OpenSSL 3.0 with its GOST engine: openssl dgst -engine gost -md_gost12_512.
INSTANTIATE_TEST_SUITE_P(
    Streebog512, Hashes,
    testing::Values(HashCase{0x8023,
                             {},
                             "8e945da209aa869f0455928529bcae4679e9873ab707b55315f56ceb98bef0a7"
                             "362f715528356ee83cda5f2aac4c6ad2ba3a715c1bcd81cb8e9f90bf4c1c1a8a"},
                    HashCase{0x8023, Ascii("abc"),
                             "28156e28317da7c98f4fe2bed6b542d0dab85bb224445fcedaf75d46e26d7eb8"
                             "d5997f3e0915dd6b7f0aab08d9c8beb0d8c64bae2ab8b3c8c6bc53b3bf0db728"},
                    HashCase{0x8023, Bytes(200, 'U'),
                             "49d9d3fdeb656059a40154b195cc0885aba08bbd35773c9267bd6ac35e5b766f"
                             "b3540bbdaec5d4076d9cd437f7624f2b0ef5b744329750afbaf9bd2bfa690fb2"}));

// Public test collections of the CryptoPro parameter set (RFC 4357, 11.2); the last one is
// OpenSSL's md_gost94.
INSTANTIATE_TEST_SUITE_P(
    GostR341194, Hashes,
    testing::Values(
        HashCase{0x8015, {}, "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
        HashCase{0x8015, Ascii("abc"),
                 "b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c"},
        HashCase{0x8015, Hex("730b3a80e44ddb0ad9a04d990d22f84009a86e5e8a2e00164eb168ceb279"),
                 "df252a7f37ebdcf4995b5419394a6d3d2c782d30ab5fae89f3665f86a4bbf78f"},
        HashCase{0x8015, Hex("12fc7387466c9687ef618eb38bee08d4f67564bc48dfde8a477ebbbc425c2c54"),
                 "d1e138cd1db357091037e6041e6bbc7f58e32c4294f938868a9ff5e66e174ea0"},
        HashCase{0x8015, Hex("a040ee298c760cd98eb6467bc03d839a31598922758d475aa389881f465a8be79b"),
                 "6ae26456d06c682ab63de2de3d0a8a932370b12204bac4b04f78472665a350d7"},
        HashCase{0x8015, Bytes(200, 'U'),
                 "9225e7caa6470c07902e89d4e6fcb4460c7e862e779fc3b368d8dde61213500f"}));

// The worked examples of RFC 5831, 7.3, with the parameter set of the standard's annex.
INSTANTIATE_TEST_SUITE_P(
    NationalForm, Hashes,
    testing::Values(HashCase{0x801D, Ascii("This is message, length=32 bytes"),
                             "b1c466d37519b82e8319819ff32595e047a28cb6f83eff1c6916a815a637fffa"},
                    HashCase{0x801D, Ascii("Suppose the original message has length = 50 bytes"),
                             "471aba57a60a770d3a76130635c1fbea4ef14de51f78b4ae57dd893b62f55208"}));

// FIPS 180-4 examples ("abc"); the longer ones are OpenSSL's.
INSTANTIATE_TEST_SUITE_P(
    Sha, Hashes,
    testing::Values(HashCase{0x8004, Ascii("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d"},
                    HashCase{0x8004, Bytes(200, 'U'), "8f2a4e8b7667dc07377f848635b29ec61e797bd1"},
                    HashCase{0x800C, Ascii("abc"),
                             "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
                    HashCase{0x800C, Bytes(200, 'U'),
                             "8d0da01949ca937fe72102d511382e10828dd39eefdf8c2601cc5f909cbeb969"},
                    HashCase{0x800D, Ascii("abc"),
                             "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded163"
                             "1a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
                    HashCase{0x800E, Ascii("abc"),
                             "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                             "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"}));

TEST(Hash, RefusesDataBehindItsValueAndCopiesItsState) {
  Hash hash(*FindHashAlgorithm(0x800C));
  hash.Update(Ascii("a"));
  Hash copy(hash);
  copy.Update(Ascii("bc"));
  EXPECT_EQ(ToHex(copy.Value()),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(test::CodeOf([&] { copy.Update(Ascii("d")); }), 0x8009000C);
  EXPECT_EQ(test::CodeOf([&] { hash.SetValue(Bytes(32)); }), 0x8009000C);
  Hash other(*FindHashAlgorithm(0x800C));
  EXPECT_EQ(test::CodeOf([&] { other.SetValue(Bytes(31)); }), 0x80090004);
  other.SetValue(Bytes(32, 7));
  EXPECT_EQ(other.Value(), Bytes(32, 7));
}

// GOST R 34.10 -------------------------------------------------------------------------------

TEST(GostSignature, VerifiesTheExampleOfTheStandard) {
  // RFC 5832, 7.1, on the test curve. Numbers there are big-endian, here little-endian.
  const Curve& curve = *FindCurve("1.2.643.2.2.35.0");
  const Bytes x = Hex("7F2B49E270DB6D90D8595BEC458B50C58585BA1D4E9B788F6689DBD8E56FD80B");
  const Bytes y = Hex("26F1B489D6701DD185C8413A977B3CBBAF64D1C593D26627DFFB101A87FF77DA");
  const Bytes digest = Hex("E53E042B67E6EC678E2E02B12A0352CE1FC6EEE0529CC088119AD872B3C1FB2D");
  const Bytes r = Hex("41AA28D2F1AB148280CD9ED56FEDA41974053554A42767B83AD043FD39DC0493");
  const Bytes s = Hex("01456C64BA4642A1653C235A98A60249BCD6D3F746B631DF928014F6C5BF9C40");
  Bytes publicValue = Reversed(x);
  Append(publicValue, Reversed(y));
  Bytes signature = Reversed(r);
  Append(signature, Reversed(s));
  EXPECT_TRUE(IsGostPublicValue(curve, publicValue));
  EXPECT_TRUE(VerifyGost(curve, publicValue, digest, signature));
  for (std::size_t i = 0; i < signature.size(); ++i) {
    Bytes wrong = signature;
    wrong[i] ^= 0x10;
    EXPECT_FALSE(VerifyGost(curve, publicValue, digest, wrong)) << i;
  }
  Bytes otherDigest = digest;
  otherDigest[31] ^= 1;
  EXPECT_FALSE(VerifyGost(curve, publicValue, otherDigest, signature));
  EXPECT_FALSE(VerifyGost(curve, publicValue, digest, Bytes(64)));
  EXPECT_FALSE(VerifyGost(curve, publicValue, digest, View(signature).first(63)));
}

struct AgreementCase {
  const char* curve;
  Bytes private1, public1, private2, public2;
  std::string shared;
};

class Agreement : public testing::TestWithParam<AgreementCase> {};

TEST_P(Agreement, GivesBothSidesTheKnownSecret) {
  const AgreementCase& row = GetParam();
  const Curve& curve = *FindCurve(row.curve);
  EXPECT_EQ(ToHex(GostPublicValue(curve, row.private1)), ToHex(row.public1));
  EXPECT_EQ(ToHex(GostPublicValue(curve, row.private2)), ToHex(row.public2));
  const Bytes ukm = Hex("0102030405060708");
  EXPECT_EQ(ToHex(AgreeGost(curve, row.private1, row.public2, ukm)), row.shared);
  EXPECT_EQ(ToHex(AgreeGost(curve, row.private2, row.public1, ukm)), row.shared);
  EXPECT_NE(ToHex(AgreeGost(curve, row.private2, row.public1, Hex("0102030405060709"))),
            row.shared);
}

// OpenSSL 3.0 with its GOST engine: openssl pkeyutl -derive -pkeyopt vko:256
// -pkeyopt ukmhex:0102030405060708, with keys of gost2012_256 and gost2012_512, set A.
INSTANTIATE_TEST_SUITE_P(
    OpenSsl, Agreement,
    testing::Values(
        AgreementCase{
            "1.2.643.2.2.35.1",
            Hex("9695b6703a2d1a97a4590326fb393e07ccaee0988507b24d1914ddee3743a9ba"),
            Hex("8f7455e2e17459f61c57be4c6b6f0ebfd35cedd53bcc8c96a43ae5406329f5433b1b162414c5"
                "5c00123e4bb563d7eafa31fe29d4bf4883f5dc48ca874544e4aa"),
            Hex("6b5a09ded5edadf8df7e6a9804ad5faea955f644c55d66684870b4e9867b38bb"),
            Hex("2480a3f2c3c3b457080fde64856196154b5aecdf57a5379ece126e18bf352b08ccb23ae03de7"
                "540ca7c7ebef05adbab121ebb0371ba1ad45c5fd88e9d6238c09"),
            "dbab5bd673883e6ae92f9859e7be54db37ab97c0d1c14b47fa95f3a9d1d0774a"},
        AgreementCase{
            "1.2.643.7.1.2.1.2.1",
            Hex("280fa8b39f4552b1bdfd846a9dcecf64c8158a935e4280df38c73cbccace66638151eb61f247"
                "b2189dd7ce60f5d90a397e0d7e6517884c6ccdbdac4a5e491871"),
            Hex("8a9f26452c59a51e5b912ac54396b37e7ef7b60b86c1f2bfcaf5bf3f29f7421b64462391c608"
                "c747111394e428b9b18a075b7a986fc7b721e3f48afab46fd4f54b92435eae385646ef5d6b58"
                "5f190b126d99065ee1f48220bf3e5406286b06b6cdcab6b29eebb584522e53f9ebbe80182e38"
                "f018ecf03cb57fc5260e03e449d0"),
            Hex("f3f32b9b1cad50f900e4cd367494ae885a116cdfd751cf64741b2e9fc5febb01e5280b6115c8"
                "11fe215c93700a97e8c75eba91dbb559daa427e2a545eb89bb4e"),
            Hex("a33161688cca7886db213547ead8cd69c86035e4b455c014e24077223f4744868a06c58563ce"
                "dde0662c7d37afecb48f9af393e6d2465a38e67a023a3aabafe76a2557e9f8071c9b67e07ccf"
                "d386301f960b579b83ee2ec926bf526ac1b0388a6f22969224805f8ed009989be751504e27b1"
                "a8220c0d1ee597804de5c614bdf7"),
            "a40da2af7fcd2b127758ad0f4fb313e5cedabef2bc72ee2cac932d55bb74fde9"}));

TEST(GostPublicValues, AreRefusedOffTheirCurve) {
  const Curve& curve = *FindCurve("1.2.643.2.2.35.1");
  const Bytes good = GostPublicValue(curve, Bytes(32, 1));
  EXPECT_TRUE(IsGostPublicValue(curve, good));
  for (const std::size_t at : {0U, 31U, 32U, 63U}) {
    Bytes wrong = good;
    wrong[at] ^= 1;
    EXPECT_FALSE(IsGostPublicValue(curve, wrong)) << at;
  }
  EXPECT_FALSE(IsGostPublicValue(curve, Bytes(64)));
  EXPECT_FALSE(IsGostPublicValue(curve, View(good).first(63)));
  EXPECT_FALSE(IsGostPublicValue(*FindCurve("1.2.643.2.2.35.2"), good));
}

TEST(GostPublicValues, MustNotSpellACoordinateTwice) {
  // The point with X = 0 of set A, and the same point written with X = p.
  const Curve& curve = *FindCurve("1.2.643.2.2.35.0");
  Bytes base = Reversed(Hex("0000000000000000000000000000000000000000000000000000000000000002"));
  Append(base, Reversed(Hex("08E2A8A0E65147D4BD6316030E16D19C85C97F0A9CA267122B96ABBCEA7E8FC8")));
  EXPECT_TRUE(IsGostPublicValue(curve, base));
  Bytes again = Reversed(Hex("8000000000000000000000000000000000000000000000000000000000000433"));
  again.insert(again.end(), base.begin() + 32, base.end());
  EXPECT_FALSE(IsGostPublicValue(curve, again));
}

TEST(GostPublicValues, LieInTheSubgroupOfTheBasePoint) {
  // Set A of 256 bits has a cofactor of 4: a point of order 4, and one of four times the order.
  const Curve& curve = *FindCurve("1.2.643.7.1.2.1.1.1");
  EXPECT_FALSE(IsGostPublicValue(
      curve, Hex("77592f8c11c5e7acc09d6af3d1805dbc5393c3955d5ab43875003505c6807f7f"
                 "cd0e8ea4344fb70642d93fda75821835fbb94ac1180f1daa5f019f0f52827e7e")));
  EXPECT_FALSE(IsGostPublicValue(
      curve, Hex("0d00000000000000000000000000000000000000000000000000000000000000"
                 "a3a6bb4ca6c634dbd507c651cad14df420b53a49cd5de491a789f5a6d9c22975")));
  EXPECT_TRUE(IsGostPublicValue(curve, GostPublicValue(curve, Bytes(32, 1))));
}

TEST(GostPrivateValues, LieBetweenOneAndTheOrder) {
  const Curve& curve = *FindCurve("1.2.643.2.2.35.1");
  EXPECT_EQ(test::CodeOf([&] { GostPublicValue(curve, Bytes(32)); }), 0x80090003);
  EXPECT_EQ(test::CodeOf([&] { GostPublicValue(curve, Bytes(32, 0xFF)); }), 0x80090003);
  EXPECT_EQ(test::CodeOf([&] { GostPublicValue(curve, Bytes(31, 1)); }), 0x80090003);
}

// RSA ------------------------------------------------------------------------------------------

struct RsaCase {
  std::uint32_t hash;
  const char* signature;  // as OpenSSL writes it, big-endian
};

class RsaSignatures : public testing::TestWithParam<RsaCase> {};

TEST_P(RsaSignatures, EqualOpenSsls) {
  const PrivateKey key = ReadPrivateKeyInfo(Hex(test::openssl::kRsaKey));
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  const Bytes digest = HashOf(hash, Ascii("abc"));
  const Bytes signature = Sign(key, hash, digest);
  EXPECT_EQ(ToHex(Reversed(signature)), GetParam().signature);
  EXPECT_TRUE(Verify(key.publicKey, hash, digest, signature));
  for (const std::size_t at : {std::size_t{0}, signature.size() - 1}) {
    Bytes wrong = signature;
    wrong[at] ^= 1;
    EXPECT_FALSE(Verify(key.publicKey, hash, digest, wrong)) << at;
  }
  EXPECT_FALSE(Verify(key.publicKey, hash, digest, View(signature).first(127)));
}

// printf abc | openssl dgst -HASH -sign KEY
INSTANTIATE_TEST_SUITE_P(
    OpenSsl, RsaSignatures,
    testing::Values(
        RsaCase{0x8004,
                "2623bb77e8a647ce8194aafa9fa7f8b5a5a0548009ea5d408036a563b91be739c0c96bedabdd"
                "2995a0624fa79194ebaa659840fc40605013d48e199bacfbc4592ba370f5437084544de0546b"
                "73b6f6cd1fdb2701653541abf93289980bdd9c9d15577a1b303f4b71278e7578dd5ccf5d0ef1"
                "2763aeddc40c7abf6745ce064e41"},
        RsaCase{0x800C,
                "30add4fe27ef6908b1bbc6ec40b472b6b379639d3e1a4aab7ed229ea52943a93d2adbe929735"
                "82619ba26ab2761309846cb0ae223a97b370ddb1fb8e1cc3f0b6373f3a0833b61e430ca68b0d"
                "c5d4dfc0a73fabe5830f60c6fbf9cb17a72bb678a2ea9e4a296b3b58dcc116b319c9a74626d6"
                "e60b7416f5be72418fe138eb0c15"},
        RsaCase{0x800D,
                "3ef4e407f5d5338f360b4dffb332b5790383ef9294ae48f802c9996b17b56b360d6c2d6e3a48"
                "039feef18894b9f15ce27e40033e55b1e93a8ee4b195448d9d1d883fa17a8d2df5b32cc0c71d"
                "c461d5c151a6e2fb9a83df2dced01ad0e632a3095394553dcd11991a6b6a89c57a9ee2e68d1b"
                "b0a0b035f7942ffc5e721e1c0e73"},
        RsaCase{0x800E,
                "80362f89f8b89a18289a808c1f5a575a9f024a6af56a83e3a66c0dcaeef63e88c057beaf7eb0"
                "b4a0ffd1b75c29d2ddfc6e32b1acb4a04e8c84f0c03368d3082d959be80782779e281cf29d74"
                "499eef456c423c01e98021f7a90beb1f0664593f134451a0f9c2efa4798c3b6dca9a8d952ce7"
                "9a7f88c76943f06390adfcf45753"}));

}  // namespace
}  // namespace zarext::provider
