#include "store/cache_block.h"

#include <gtest/gtest.h>

#include <random>

namespace zarext {
namespace {

using Octets = std::vector<std::uint8_t>;

void Add(KeyRecordList& list, const char* name, Octets serial, Octets certificate,
         std::uint32_t algorithm = 1) {
  CNT_KEY_INFO record = {};
  record.pszContainer = const_cast<char*>(name);
  record.cbSerial = static_cast<std::uint32_t>(serial.size());
  record.pbSerial = serial.data();
  record.cbCert = static_cast<std::uint32_t>(certificate.size());
  record.pbCert = certificate.data();
  record.algId = algorithm;
  list.Add(record);
}

// A list whose block has this length, which must be 65,536 or more.
Octets BlockOfLength(std::size_t length) {
  KeyRecordList list;
  Add(list, "c", {9}, Octets(length - 5 - 5 - 5 - 3 - 3 - 6, 0xC5));
  return BuildCacheBlock(list);
}

TEST(CacheBlock, IsASequenceOfEntries) {
  KeyRecordList list;
  Add(list, "ab", {0x01, 0x80}, {0xFF}, 0x8001A2B3);
  Add(list, nullptr, {0x05}, {0x06, 0x07}, 0);
  EXPECT_EQ((Octets{0x30, 0x24,                                //
                    0x30, 0x11, 0x04, 0x02, 'a',  'b',         //
                    0x04, 0x02, 0x01, 0x80, 0x04, 0x01, 0xFF,  //
                    0x04, 0x04, 0xB3, 0xA2, 0x01, 0x80,        //
                    0x30, 0x0F, 0x05, 0x00,                    //
                    0x04, 0x01, 0x05, 0x04, 0x02, 0x06, 0x07,  //
                    0x04, 0x04, 0x00, 0x00, 0x00, 0x00}),
            BuildCacheBlock(list));
}

TEST(CacheBlock, OfNothingIsAnEmptySequence) {
  EXPECT_EQ((Octets{0x30, 0x00}), BuildCacheBlock(KeyRecordList()));
}

TEST(CacheBlock, AnEmptyNameIsAnEmptyString) {
  KeyRecordList list;
  Add(list, "", {1}, {2});
  const Octets block = BuildCacheBlock(list);
  ASSERT_LT(6u, block.size());
  EXPECT_EQ(0x04, block[4]);
  EXPECT_EQ(0x00, block[5]);
}

TEST(CacheBlock, WritesLongLengthsInDer) {
  KeyRecordList list;
  Add(list, "c", Octets(200, 1), Octets(300, 2));
  const Octets block = BuildCacheBlock(list);
  // 3 + 203 + 304 + 6 octets in the entry.
  EXPECT_EQ((Octets{0x30, 0x82, 0x02, 0x08, 0x30, 0x82, 0x02, 0x04, 0x04, 0x01, 'c', 0x04, 0x81,
                    0xC8, 0x01}),
            Octets(block.begin(), block.begin() + 15));
}

TEST(CacheBlock, IsBuiltUpToTheWritersBound) {
  EXPECT_EQ(262136u, BlockOfLength(262136).size());
  EXPECT_EQ(262137u, BlockOfLength(262137).size());
  EXPECT_EQ(262152u, BlockOfLength(262152).size());
  EXPECT_EQ(0u, BlockOfLength(262153).size());
  EXPECT_EQ(0u, BlockOfLength(3000000).size());
}

TEST(CacheBlock, ALongListIsGivenUpWithoutBeingBuilt) {
  KeyRecordList list;
  for (int number = 0; number < 20000; ++number) {
    Add(list, "container", Octets(16, 1), Octets(800, 2));
  }
  EXPECT_TRUE(BuildCacheBlock(list).empty());
}

struct UsableCase {
  std::uint32_t stamp;
  std::uint32_t size;
  std::int64_t now;
  bool isUsable;
};

TEST(CacheHeader, IsUsableFor60Seconds) {
  constexpr UsableCase kCases[] = {
      {1000, 1, 1000, true},
      {1000, 1, 1060, true},
      {1000, 1, 1061, false},
      {1001, 1, 1000, false},
      {1000, 0, 1000, false},
      {1000, 262136, 1000, true},
      {1000, 262137, 1000, false},
      {1000, 0xFFFFFFFF, 1000, false},
      {0, 0, 0, false},
      {0xFFFFFFF0, 1, 0x10000002C, true},
      {0xFFFFFFF0, 1, 0x10000002D, false},
      {0xFFFFFFFF, 1, -1, true},
  };
  for (const UsableCase& test : kCases) {
    EXPECT_EQ(test.isUsable, IsBlockUsable({test.stamp, test.size}, test.now))
        << test.stamp << " " << test.size << " " << test.now;
  }
}

TEST(CacheBlock, NoEntryOfAnyBlockIsRead) {
  const Octets blocks[] = {
      {},
      {0x30},
      {0x30, 0x00},
      {0x30, 0x00, 0x00},
      {0x31, 0x00},
      {0x30, 0x80},
      {0x30, 0x80, 0x00, 0x00},
      {0x30, 0x85, 1, 1, 1, 1, 1},
      // Entries of three and of four elements, of none and of five.
      {0x30, 0x0B, 0x30, 0x09, 0x04, 0x01, 'n', 0x04, 0x01, 0x01, 0x04, 0x01, 0x02},
      {0x30, 0x11, 0x30, 0x0F, 0x04, 0x01, 'n', 0x04, 0x01, 0x01, 0x04, 0x01, 0x02, 0x04, 0x04, 1,
       0, 0, 0},
      {0x30, 0x02, 0x30, 0x00},
      {0x30, 0x13, 0x30, 0x11, 0x04, 0x01, 'n', 0x04, 0x01, 0x01, 0x04,
       0x01, 0x02, 0x04, 0x04, 1,    0,    0,   0,    0x05, 0x00},
      // An entry that is no SEQUENCE.
      {0x30, 0x03, 0x04, 0x01, 0x00},
  };
  for (const Octets& block : blocks) {
    EXPECT_EQ(0, ReadCacheBlock(block));
  }
}

TEST(CacheBlock, ReadsNoEntryOfWhatItBuilt) {
  KeyRecordList list;
  Add(list, "container", {1, 2, 3}, Octets(500, 7));
  EXPECT_EQ(0, ReadCacheBlock(BuildCacheBlock(list)));
}

TEST(CacheBlock, Survives100000AlteredBlocks) {
  KeyRecordList source;
  Add(source, "container", {1, 2, 3}, Octets(150, 7));
  Add(source, "other", {4}, Octets(20, 8));
  const Octets good = BuildCacheBlock(source);
  std::mt19937 random(6);
  for (int round = 0; round < 100000; ++round) {
    Octets block = good;
    for (auto change = 1 + random() % 5; change != 0; --change) {
      block[random() % block.size()] = static_cast<std::uint8_t>(random());
    }
    block.resize(random() % 16 == 0 ? random() % block.size() : block.size());
    ASSERT_EQ(0, ReadCacheBlock(block)) << round;
  }
}

}  // namespace
}  // namespace zarext
