// What the codec allocates.
#include <new>

#include "unit/asn1/counted_memory.h"
#include "unit/asn1/documents.h"

namespace zarext {
namespace {

struct CountCase {
  const char* image;
  const char* repeated;  // behind the image so many times
  std::size_t times;
  std::size_t allocations;
};

class ParseCountTest : public testing::TestWithParam<CountCase> {};

TEST_P(ParseCountTest, LoadAndParse) {
  const Image image(Hex(GetParam().image) + Repeat(Hex(GetParam().repeated), GetParam().times));
  TASN1 document(0x30);
  const Allocations seen = Counted([&] {
    EXPECT_EQ(document.Load(image.Data(), image.Size()), 0);
    EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), 0);
  });
  EXPECT_EQ(seen.count, GetParam().allocations);
}

const char kOctets37[] =
    "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F "
    "20 21 22 23 24 25";

INSTANTIATE_TEST_SUITE_P(
    Images, ParseCountTest,
    testing::Values(
        // The first 8,192 octets are in the document itself.
        CountCase{"30 00", "", 0, 0}, CountCase{"04 03 01 02 03", "", 0, 0},
        CountCase{"30 09 02 01 05 05 00 30 02 05 00", "", 0, 0},
        CountCase{"30 28 04 26 00", kOctets37, 1, 0},
        CountCase{"24 06 04 01 AA 04 01 BB", "", 0, 0}, CountCase{"30 50", "05 00", 40, 0},
        // Blocks of at most 32,768 octets for all the rest; long child arrays have their own.
        CountCase{"30 82 01 2C", "05 00", 150, 1}, CountCase{"30 82 09 60", "05 00", 1200, 5},
        CountCase{"30 81 C8 04 81 C5", "01", 197, 0},
        CountCase{"30 82 40 04 04 82 40 00", "01", 16384, 1},
        CountCase{
            "30 82 7F 80",
            "04 7E 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01",
            255, 2}));

// What a block has before its pieces.
constexpr std::size_t kHead = 32;

// A block is made when there is no room for the next piece.
TEST(MemoryTest, AddedNodesFillBlocks) {
  TASN1 document(0x30);
  const std::uint32_t number = 5;
  const Allocations seen = Counted([&] {
    for (int i = 0; i < 1000; ++i) document.AddChild(0x02, 4, &number, 0xFFFFFF);
  });
  EXPECT_LE(seen.count, 8U);
  EXPECT_LE(seen.largest, 16384U + kHead);
}

// What was expected is there once, in blocks of at most 32 KB: those that follow are as large as
// others.
TEST(MemoryTest, BlocksForWhatIsExpected) {
  const auto nextBlock = [](DocumentMemory& memory, int pieces) {
    return Counted([&] {
             for (int i = 0; i < pieces; ++i) memory.Take(9000);
           })
        .largest;
  };
  DocumentMemory memory(Release::kPlain);
  memory.Expect(30000);
  EXPECT_EQ(nextBlock(memory, 1), 30000U + kHead);
  EXPECT_LE(nextBlock(memory, 30), 16384U + kHead);

  DocumentMemory longer(Release::kPlain);
  longer.Expect(90000);
  EXPECT_EQ(nextBlock(longer, 1), 32768U + kHead);
  EXPECT_EQ(nextBlock(longer, 3), 32768U + kHead);
  EXPECT_EQ(nextBlock(longer, 3), 24464U + kHead);
  EXPECT_LE(nextBlock(longer, 30), 16384U + kHead);

  DocumentMemory cleared(Release::kPlain);
  cleared.Expect(200000);
  cleared.Clear();
  EXPECT_LE(nextBlock(cleared, 1), 9600U + kHead);
}

// A long content is a block of its own, which ends with it.
TEST(MemoryTest, LongContents) {
  const Octets value(20000, 0x11);
  TASN1 document(0x30);
  const std::size_t before = heldOctets;
  const Allocations seen = Counted([&] { document.AddChild(0x04, 20000, value.data(), 0xFFFFFF); });
  EXPECT_EQ(seen.count, 1U);
  EXPECT_EQ(seen.largest, 20000U + 5 + kHead);
  document.AddChild(0x04, 30000, Octets(30000, 0x22).data(), 0xFFFFFF);
  document.AddChild(0x04, 40000, Octets(40000, 0x33).data(), 0xFFFFFF);
  document.AddChild(0x04, 50000, Octets(50000, 0x44).data(), 0xFFFFFF);
  // One between two others, then its older neighbour.
  document.DeleteNode(0, 1, 0xFFFFFF);
  document.DeleteNode(0, 0, 0xFFFFFF);
  EXPECT_LT(heldOctets - before, 90000U + 1000);
  EXPECT_EQ(Seen(document, 0).value, Octets(40000, 0x33));
  EXPECT_EQ(Seen(document, 1).value, Octets(50000, 0x44));
  document.DeleteNode(0, 0xFFFFFF);
  EXPECT_EQ(heldOctets, before);
}

// One document, edited again and again in every way: what it holds is what it held at first.
TEST(MemoryTest, EditsWithoutEnd) {
  const Image image(Hex("30 3F 02 01 05 24 06 04 01 AA 04 01 BB 30 04 06 02 2A 03 04 28") +
                    Octets(40, 0x44) + Hex("05 00 05 00"));
  const Octets value(700, 0x11);
  TASN1 document(0x30);
  const std::size_t before = heldOctets;
  std::size_t afterThousand = 0;
  const auto edit = [&](std::uint32_t round) {
    const std::uint32_t size = round * 7 % 700;
    document.AddChild(0x04, size, value.data(), 0xFFFFFF);
    document.InsertBefore(0x30, 0, nullptr, 0, 0xFFFFFF);
    document.ParseInto(image.Data(), 0, 0xFFFFFF);
    document.GetNode(nullptr, nullptr, nullptr, nullptr, 0, 0, 2, 0, 0xFFFFFF);
    document.SetTag(0x04, 0, 0, 0xFFFFFF);
    document.SetTag(0x30, 0, 0, 0xFFFFFF);
    document.Load(image.Data(), image.Size());
    document.Parse(image.Data(), 0, 0xFFFFFF);
    document.DeleteNode(0, 0, 0xFFFFFF);
    document.DeleteNode(0, 0, 0xFFFFFF);
  };
  for (std::uint32_t round = 0; round < 100000; ++round) {
    edit(round);
    if (round % 50 == 49) {
      document.Load(image.Data(), image.Size());
      EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), 0);
      EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), 0);
    }
    if (round == 99) afterThousand = heldOctets;
  }
  EXPECT_LE(heldOctets, afterThousand);
  document.Clear();
  EXPECT_EQ(heldOctets, before);
}

// A cleared document that still counts so many octets, of which it has none.
class Claiming : public TASN1 {
 public:
  explicit Claiming(std::uint32_t length) : TASN1(0x30) {
    WriteHeader(const_cast<AsnNode*>(&Root()), 0x30, length);
  }
};

// What is replaced takes no part of the 4 GiB.
TEST(MemoryTest, ReplacedContentsLeaveTheirRoom) {
  const Image image(Hex("04 82 75 30") + Octets(30000, 0x11));
  Claiming document(0xFFFFFFFF - 50000);
  ASSERT_EQ(document.AddChild(0x04, 20000, image.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(document.Parse(image.Data(), 0, 0xFFFFFF), 0);
  EXPECT_EQ(SizeOf(document), 0xFFFFFFFF - 50000 + 30004 + 6);
  EXPECT_EQ(document.Parse(image.Data(), 0, 0xFFFFFF), 0);
  EXPECT_THROW(document.ParseInto(image.Data(), 0xFFFFFF), std::bad_alloc);
  EXPECT_THROW(document.AddChild(0x04, 20000, image.Data(), 0xFFFFFF), std::bad_alloc);
  EXPECT_EQ(SizeOf(document), 0xFFFFFFFF - 50000 + 30004 + 6);

  Claiming root(0xFFFFFFFF - 10000);
  EXPECT_EQ(root.Parse(image.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(SizeOf(root), 30004U);

  // Without room for what is longer than what it replaces.
  Claiming full(0xFFFFFFFF - 11000);
  ASSERT_EQ(full.AddChild(0x04, 10000, image.Data(), 0xFFFFFF), 0);
  EXPECT_THROW(full.Parse(image.Data(), 0, 0xFFFFFF), std::bad_alloc);
  EXPECT_EQ(Seen(full, 0).length, 10000U);
}

// A length that the image does not hold asks for nothing.
TEST(MemoryTest, NoAllocationIsLargerThanTheImageJustifies) {
  for (const char* text :
       {"30 06 04 84 FF FF FF FA", "30 06 04 84 7F FF FF FF", "30 84 7F FF FF FF 04 00",
        "04 84 7F FF FF FF 00", "30 80 04 84 7F FF FF FF 00 00", "30 06 30 84 7F FF FF FF"}) {
    const Image image(Hex(text));
    TASN1 document(0x30);
    const Allocations seen = Counted([&] {
      document.Load(image.Data(), image.Size());
      document.Parse(image.Data(), 0xFFFFFF);
      document.ParseInto({image.Data(), image.Size()}, 0xFFFFFF);
    });
    EXPECT_LE(seen.largest, 80U) << text;
  }
  // Nested indefinite lengths: two octets for each octet of the image.
  const Image open(Repeat(Hex("30 80"), 1000));
  TASN1 document(0x30);
  EXPECT_LE(Counted([&] { document.Load(open.Data(), open.Size()); }).largest, 4000U);
}

}  // namespace
}  // namespace zarext
