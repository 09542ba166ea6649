// Which codes building and reading key documents give at all. The tree reads, measures, encodes and
// retags every node that is there; the only failures of these are paths that lead nowhere. It adds
// everything but a value that is missing. So codes for a node that is missing where the number of
// its parent's elements was checked just before cannot come, nor those for changing a node that was
// just read, nor those for adding an element whose value stands in the code or was checked:
//   reading   103, 105, 107, 109, 110, 112, 114 to 117, 120, 122, 126, 128, 130, 132, 134, 137,
//   139,
//             141, 143, 145, 147, 149, 160, 162, 164, 167
//   building  2, 3, 5 to 8, 20, 21, 23 to 29, 31, 33 to 36, 41 to 43
// They stay in the code as the numbers of the steps, and are asserted not to come. All others are
// asserted to come, here or in the tests of reading.
#include <gtest/gtest.h>

#include <set>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_bags.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {
namespace {

using CodeSet = std::set<std::int32_t>;

const std::string kKey =
    "3024 02020102 300d 06062a8503020213 3003020107 0403a1b2c3 a00a 3008 0602 2a03 3102 0500";
const std::string kPbe = "301c 3016 060a2a864886f70d010c0103 3008 04025a5b 02020800 0402dddd";
const std::string kPbes2 =
    "304a 3044 06092a864886f70d01050d 3037 3023 06092a864886f70d01050c 3016 04025a5b 02020800"
    "300c 06082a864886f70d0209 0500 3010 060960864801650304012a 04031f2f3f 0402dddd";
const std::string kX509Bag = "3012 060a2a864886f70d01091601 a004 0402c0c1";
const std::string kSdsiBag = "3012 060a2a864886f70d01091602 a004 1e02c0c1";
// Its value becomes constructed by another tag.
const std::string kOtherBag = "300a 06022a03 a004 0c020500";
const std::string kCrlBag = "3012 060a2a864886f70d01091701 a004 0402c0c1";

std::int32_t CodeOf(std::uint32_t kind, const Octets& octets) {
  TPKCS8 document;
  return document.Read(kind, octets);
}

// The codes of a document and of all that differ from it in one octet; also of the document cut off
// at every place, with the outermost length made to fit and one octet changed to a small number.
CodeSet CodesAround(std::uint32_t kind, const std::string& text) {
  const Octets good = Hex(text);
  EXPECT_EQ(0, CodeOf(kind, good)) << text;
  CodeSet codes;
  for (std::size_t size = good.size(); size >= 2; --size) {
    Octets octets(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    octets[1] = static_cast<std::uint8_t>(size - 2);
    const int values = size == good.size() ? 256 : 9;
    for (std::size_t place = 0; place < size; ++place) {
      const std::uint8_t before = octets[place];
      for (int value = 0; value < values; ++value) {
        octets[place] = static_cast<std::uint8_t>(value);
        codes.insert(CodeOf(kind, octets));
      }
      octets[place] = before;
    }
  }
  return codes;
}

CodeSet Join(CodeSet one, const CodeSet& other) {
  one.insert(other.begin(), other.end());
  return one;
}

TEST(ReadCodes, OfKeysComeOnlyFromChecksThatCanFail) {
  const CodeSet possible = {0, 2, 3, 4, 102, 104, 106, 108, 111, 113};
  EXPECT_EQ(possible, CodesAround(1, kKey));
}

TEST(ReadCodes, OfEncryptedKeysComeOnlyFromChecksThatCanFail) {
  const CodeSet possible = {0,   2,   3,   4,   121, 123, 124, 125, 127, 129, 131,
                            133, 135, 136, 138, 140, 142, 144, 146, 148, 150};
  EXPECT_EQ(possible, Join(CodesAround(2, kPbe), CodesAround(2, kPbes2)));
}

TEST(ReadCodes, OfBagsComeOnlyFromChecksThatCanFail) {
  const CodeSet possible = {0, 2, 3, 4, 161, 163, 165, 166, 168, 169, 170, 171, 172, 173};
  CodeSet codes = Join(CodesAround(3, kX509Bag), CodesAround(3, kSdsiBag));
  codes = Join(Join(codes, CodesAround(4, kCrlBag)), CodesAround(5, kOtherBag));
  EXPECT_EQ(possible, codes);
}

// Every part given, empty and, for what is parsed, not parseable.
class BuildCodes : public testing::Test {
 protected:
  void Build(const Pkcs8Record& input) {
    TPKCS8 document;
    codes.insert(document.Build(&input));
  }

  const Octets element = Hex("3003020107");
  const Octets mixed = Hex("2403020105");
  const Octets broken = Hex("30 05 0285 0000 00");
  const Octets garbage = Hex("c0c1");
  const std::vector<OctetSpan> parts = {
      {},
      {element.data(), 5},
      {element.data(), 0},
      {mixed.data(), 5},
      {broken.data(), 7},
      {garbage.data(), 2},
  };
  const std::vector<const char*> texts = {nullptr,
                                          "",
                                          "x",
                                          "1",
                                          "1.2.3",
                                          "1.2.840.10045.2.1",
                                          "2.16.840.1.101.3.4.1.42",
                                          "1.4294967296.99999999999999999999"};
  CodeSet codes;
};

TEST_F(BuildCodes, OfKeys) {
  for (const char* const algorithm : texts) {
    for (const OctetSpan& parameters : parts) {
      for (const OctetSpan& key : parts) {
        for (const OctetSpan& attributes : parts) {
          Build(PrivateKeyRecord{0xFFFFFFFF, algorithm, parameters, key, attributes});
        }
      }
    }
  }
  EXPECT_EQ((CodeSet{0, 4, 9}), codes);
}

TEST_F(BuildCodes, OfEncryptedKeys) {
  for (const char* const algorithm : texts) {
    for (const OctetSpan& salt : parts) {
      for (const OctetSpan& iv : parts) {
        for (const OctetSpan& data : parts) {
          for (const std::uint32_t iterations : {0u, 1u, 0xFFFFFFFFu}) {
            Build(EncryptedKeyRecord{algorithm, salt, iterations, iv, data});
          }
        }
      }
    }
  }
  EXPECT_EQ((CodeSet{0, 22, 30, 32}), codes);
}

TEST_F(BuildCodes, OfBags) {
  for (const char* const type : texts) {
    for (const OctetSpan& value : parts) {
      for (int tag = 0; tag < 256; ++tag) {
        for (const std::uint32_t kind : {3u, 4u, 5u}) {
          Build(BagOf(kind, {type, value, static_cast<std::uint8_t>(tag)}));
        }
      }
    }
  }
  EXPECT_EQ((CodeSet{0, 40}), codes);
}

TEST_F(BuildCodes, OfAdoptedDocuments) {
  for (const OctetSpan& octets : parts) {
    Build(EncodedDocument{octets});
  }
  EXPECT_EQ((CodeSet{0, 50, 51, 52}), codes);
}

}  // namespace
}  // namespace zarext::test
