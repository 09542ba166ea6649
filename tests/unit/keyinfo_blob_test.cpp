// Blob octets, the algorithm tables and the import blob.
#include <gmock/gmock.h>

#include <algorithm>
#include <new>

#include "asn1/tasn1.h"
#include "frame/wipe.h"
#include "keyinfo/algorithm_map.h"
#include "keyinfo/import_blob.h"
#include "keyinfo/key_blob.h"
#include "keyinfo/secret_buffer.h"
#include "support/export_table.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {
namespace {

using testing::Each;

TEST(KeyBlob, OctetsAndWordsThatAreNotThereAreZero) {
  const Octets octets = Hex("0102030405");
  EXPECT_EQ(1, OctetAt(octets, 0));
  EXPECT_EQ(5, OctetAt(octets, 4));
  EXPECT_EQ(0, OctetAt(octets, 5));
  EXPECT_EQ(0, OctetAt({}, 0));
  EXPECT_EQ(5, OctetFromEnd(octets, 1));
  EXPECT_EQ(1, OctetFromEnd(octets, 5));
  EXPECT_EQ(0, OctetFromEnd(octets, 6));
  EXPECT_EQ(0, OctetFromEnd({}, 1));
  EXPECT_EQ(0x04030201u, WordAt(octets, 0));
  EXPECT_EQ(0x05040302u, WordAt(octets, 1));
  EXPECT_EQ(0u, WordAt(octets, 2));
  EXPECT_EQ(0u, WordAt(octets, static_cast<std::size_t>(-1)));
  EXPECT_EQ(0u, WordAt(Hex("010203"), 0));
  EXPECT_EQ(0xFFFFFFFFu, WordAt(Hex("ffffffff"), 0));
}

TEST(KeyBlob, NoDataIsNoOctetsWhateverTheSize) {
  EXPECT_TRUE(OctetsOf(nullptr, 5).empty());
  const Octets octets = Hex("0102");
  EXPECT_EQ(2u, OctetsOf(octets.data(), 2).size());
}

TEST(AlgorithmMap, ExportsEveryAlgorithmUnderItsOid) {
  std::uint32_t named = 0;
  for (std::uint32_t algorithm = 0; algorithm < 0x20000; ++algorithm) {
    const auto row = std::find_if(kExportTable.begin(), kExportTable.end(),
                                  [&](const auto& r) { return r.first == algorithm; });
    const bool isNamed = row != kExportTable.end();
    named += isNamed;
    ASSERT_STREQ(isNamed ? row->second : kDefaultExportOid, OidOfAlgorithm(algorithm));
  }
  EXPECT_EQ(32u, named);
  EXPECT_STREQ("1.3.6.1.4.1.32473.1.2.2", OidOfAlgorithm(0xFFFFAA3A));
}

TEST(AlgorithmMap, ImportsByTheFirstHit) {
  const auto rule = [](const char* oid) {
    const ImportRule& found = ImportRuleOf(oid);
    return std::make_pair(found.aiKeyAlg, found.bitLength);
  };
  EXPECT_EQ(std::make_pair(0x2A4Au, 512u), rule("1.2.398.3.10.1.1.2.1.1"));
  EXPECT_EQ(std::make_pair(0xA055u, 512u), rule("1.2.398.3.10.1.4.1.1.1"));
  EXPECT_EQ(std::make_pair(0x2A4Cu, 1024u), rule("1.2.398.3.10.1.1.2.2.1"));
  EXPECT_EQ(std::make_pair(0xA04Bu, 1024u), rule("1.2.398.3.10.1.4.1.2.1"));
  EXPECT_EQ(std::make_pair(0xAA3Au, 512u), rule("1.2.398.3.10.1.1.1.1.2"));
  EXPECT_EQ(std::make_pair(0xAA3Au, 512u), rule("1.2.643.2.2.19"));
  EXPECT_EQ(std::make_pair(0xAA3Au, 512u), rule(""));
  EXPECT_EQ(std::make_pair(0x2A4Au, 512u), rule("1.2.398.3.10.1.1.2.2 1.2.398.3.10.1.1.2.1"));
}

TEST(AlgorithmMap, TwoArcsTravelAsOctetStrings) {
  EXPECT_TRUE(TravelsAsOctetString("1.2.643.2.2"));
  EXPECT_TRUE(TravelsAsOctetString("1.2.643.2.2.19"));
  EXPECT_TRUE(TravelsAsOctetString("1.2.398.3.10.1"));
  EXPECT_TRUE(TravelsAsOctetString("1.3.6.1.4.1.32473.1.2.643.2.2"));
  EXPECT_FALSE(TravelsAsOctetString("1.3.6.1.4.1.32473.1.5.8"));
  EXPECT_FALSE(TravelsAsOctetString("1.2.643.2.1"));
  EXPECT_FALSE(TravelsAsOctetString("1.2.398.3.10.2"));
}

TEST(ImportBlob, HeadAndKey) {
  const Octets key = Hex("a1b2c3");
  EXPECT_EQ("06020000 4c2a0000 00454331 00040000 a1b2c3", [&] {
    std::string text = HexText(BuildImportBlob(ImportRuleOf("1.2.398.3.10.1.1.2.2"), key));
    for (const std::size_t at : {32u, 24u, 16u, 8u}) {
      text.insert(at, " ");
    }
    return text;
  }());
  EXPECT_EQ(80u, BuildImportBlob(ImportRuleOf(""), Octets(64)).size());
  EXPECT_EQ(16u, BuildImportBlob(ImportRuleOf(""), {}).size());
}

TEST(ImportBlob, ALengthThatDoesNotFitIsRefusedBeforeAnythingIsRead) {
  const Octets octets(1);
  for (const std::size_t size : {std::size_t{0xFFFFFFF0}, std::size_t{0xFFFFFFFF}}) {
    EXPECT_THROW(BuildImportBlob(ImportRuleOf(""), OctetSpan(octets.data(), size)), std::bad_alloc);
  }
}

// The key in hexadecimal, or "none". The octets stand alone in their block, so that the sanitizer
// sees a read behind them.
std::string Extract(const Octets& bits) {
  const std::vector<std::uint8_t> alone(bits.begin(), bits.end());
  TASN1 document(0x30);
  const std::optional<OctetSpan> key = ExtractKey(document, alone);
  return key ? HexText(key->data(), key->size()) : "none";
}

TEST(ExtractKey, FromADocumentOrDirectly) {
  EXPECT_EQ("aabb", Extract(Hex("0402aabb")));
  EXPECT_EQ("aabb", Extract(Hex("048102aabb")));
  EXPECT_EQ("aabb", Extract(Hex("030300aabb")));
  EXPECT_EQ("", Extract(Hex("0400")));
  EXPECT_EQ("", Extract(Hex("0300")));
  EXPECT_EQ("", Extract(Hex("30040402aabb")));
  EXPECT_EQ("aabbcc", Extract(Hex("2480 0402aabb 0401cc 0000")));
  EXPECT_EQ("aabbcc", Extract(Hex("044103aabbcc")));
  EXPECT_EQ("none", Extract({}));
  EXPECT_EQ("none", Extract(Hex("04")));
  EXPECT_EQ("none", Extract(Hex("0401")));
  EXPECT_EQ("none", Extract(Hex("044102aabbcc")));
  EXPECT_EQ("none", Extract(Hex("034103aabbcc")));
  EXPECT_EQ("none", Extract(Hex("048003aabb")));
  Octets direct(0x87, 0xAB);
  direct[0] = 0x04;
  direct[1] = 0x85;
  EXPECT_EQ(HexText(Octets(0x85, 0xAB)), Extract(direct));
}

TEST(Wiping, LeavesZeroes) {
  Octets octets = Hex("0102030405");
  WipeOctets(octets.data() + 1, 3);
  EXPECT_EQ(Hex("0100000005"), octets);
  WipeOctets(nullptr, 0);
}

TEST(SecretBuffer, StartsZeroed) {
  SecretBuffer buffer(64);
  EXPECT_EQ(64u, buffer.Size());
  EXPECT_THAT(Octets(buffer.Data(), buffer.Data() + 64), Each(0));
}

}  // namespace
}  // namespace zarext::test
