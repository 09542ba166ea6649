// What the codec allocates, and what it leaves when it cannot. The linker sends the allocations of
// this program through the functions below.

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "asn1/oid.h"
#include "unit/asn1/documents.h"

namespace {

struct Allocations {
  bool counting = false;
  std::size_t count = 0;
  std::size_t largest = 0;
  std::size_t failAt = 0;  // the number of the allocation that fails; 0 for none
};
Allocations allocations;
std::size_t held = 0;  // octets of all blocks of the program

// Four of these in a row are a secret.
constexpr std::uint8_t kSecret = 0xD5;
bool watching = false;
std::size_t secretsGivenBack = 0;

// Reads what may be poisoned.
__attribute__((no_sanitize("address"))) std::size_t CountSecrets(const void* block,
                                                                 std::size_t size) {
  const auto* octets = static_cast<const std::uint8_t*>(block);
  std::size_t found = 0;
  std::size_t run = 0;
  for (std::size_t i = 0; i < size; ++i) {
    run = octets[i] == kSecret ? run + 1 : 0;
    found += run == 4 ? 1 : 0;
  }
  return found;
}

bool Refuse(std::size_t size) {
  if (!allocations.counting) return false;
  allocations.largest = std::max(allocations.largest, size);
  return ++allocations.count == allocations.failAt;
}

void* Held(void* block) {
  held += malloc_usable_size(block);
  return block;
}

}  // namespace

// The names are the linker's. NOLINTBEGIN
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);
void* __real__Znwm(std::size_t size);

void* __wrap_malloc(std::size_t size) { return Refuse(size) ? nullptr : Held(__real_malloc(size)); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return Refuse(count * size) ? nullptr : Held(__real_calloc(count, size));
}
void __wrap_free(void* block) {
  if (watching) secretsGivenBack += CountSecrets(block, malloc_usable_size(block));
  held -= malloc_usable_size(block);
  __real_free(block);
}
void* __wrap__Znwm(std::size_t size) {
  if (Refuse(size)) throw std::bad_alloc();
  return __real__Znwm(size);
}
}
// NOLINTEND

namespace zarext {
namespace {

template <typename Act>
Allocations Counted(Act&& act) {
  allocations = {.counting = true};
  act();
  allocations.counting = false;
  return allocations;
}

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
        // One block for all the rest, up to 196,608 octets; long child arrays have their own.
        CountCase{"30 82 01 2C", "05 00", 150, 1}, CountCase{"30 82 0F A0", "05 00", 2000, 3},
        CountCase{"30 81 C8 04 81 C5", "01", 197, 0},
        CountCase{"30 82 40 04 04 82 40 00", "01", 16384, 1},
        CountCase{
            "30 82 7F 80",
            "04 7E 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 "
            "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01",
            255, 1}));

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
  EXPECT_LE(seen.largest, 65536U + kHead);
}

// What was expected is there once, in blocks of at most 192 KB: those that follow are as large as
// others.
TEST(MemoryTest, BlocksForWhatIsExpected) {
  const auto nextBlock = [](DocumentMemory& memory, int pieces) {
    return Counted([&] {
             for (int i = 0; i < pieces; ++i) memory.Take(9000);
           })
        .largest;
  };
  DocumentMemory memory(Release::kPlain);
  memory.Expect(150000);
  EXPECT_EQ(nextBlock(memory, 1), 150000U + kHead);
  EXPECT_LE(nextBlock(memory, 30), 65536U + kHead);

  DocumentMemory longer(Release::kPlain);
  longer.Expect(500000);
  EXPECT_EQ(nextBlock(longer, 1), 196608U + kHead);
  EXPECT_EQ(nextBlock(longer, 21), 196608U + kHead);
  EXPECT_EQ(nextBlock(longer, 21), 106784U + kHead);
  EXPECT_LE(nextBlock(longer, 30), 65536U + kHead);

  DocumentMemory cleared(Release::kPlain);
  cleared.Expect(200000);
  cleared.Clear();
  EXPECT_LE(nextBlock(cleared, 1), 9600U + kHead);
}

// A long content is a block of its own, which ends with it.
TEST(MemoryTest, LongContents) {
  const Octets value(20000, 0x11);
  TASN1 document(0x30);
  const std::size_t before = held;
  const Allocations seen = Counted([&] { document.AddChild(0x04, 20000, value.data(), 0xFFFFFF); });
  EXPECT_EQ(seen.count, 1U);
  EXPECT_EQ(seen.largest, 20000U + 5 + kHead);
  document.AddChild(0x04, 30000, Octets(30000, 0x22).data(), 0xFFFFFF);
  document.AddChild(0x04, 40000, Octets(40000, 0x33).data(), 0xFFFFFF);
  document.AddChild(0x04, 50000, Octets(50000, 0x44).data(), 0xFFFFFF);
  document.DeleteNode(1, 0, 0xFFFFFF);
  document.DeleteNode(0, 0, 0xFFFFFF);
  EXPECT_LT(held - before, 90000U + 1000);
  EXPECT_EQ(Seen(document, 0).value, Octets(40000, 0x33));
  EXPECT_EQ(Seen(document, 1).value, Octets(50000, 0x44));
  document.DeleteNode(0, 0xFFFFFF);
  EXPECT_EQ(held, before);
}

// One document, edited again and again in every way: what it holds is what it held at first.
TEST(MemoryTest, EditsWithoutEnd) {
  const Image image(Hex("30 3F 02 01 05 24 06 04 01 AA 04 01 BB 30 04 06 02 2A 03 04 28") +
                    Octets(40, 0x44) + Hex("05 00 05 00"));
  const Octets value(700, 0x11);
  TASN1 document(0x30);
  const std::size_t before = held;
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
    if (round == 99) afterThousand = held;
  }
  EXPECT_LE(held, afterThousand);
  document.Clear();
  EXPECT_EQ(held, before);
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

// Runs an act with its first allocation failing, then its second, and so on until it passes.
// After each failure the document must be in one piece and usable. Again and again, with less and
// less room left in the document, so that each piece in turn is the one that needs a block.
template <typename Prepare, typename Act>
void FailEveryAllocation(Prepare&& prepare, Act&& act) {
  const Octets filler(8200, 0x77);
  std::size_t failures = 0;
  for (std::uint32_t filled = 5800; filled < 8150; filled += 16) {
    for (std::size_t failAt = 1;; ++failAt) {
      TASN1 document(0x30);
      prepare(document);
      document.AddChild(0x04, filled, filler.data(), 0xFFFFFF);
      bool failed = false;
      allocations = {.counting = true, .failAt = failAt};
      try {
        act(document);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      allocations.counting = false;
      if (!failed) {
        EXPECT_LT(allocations.count, failAt);
        break;
      }
      ++failures;
      // Either nothing has happened or a part that is consistent: it reads back as it is.
      const Octets after = EncodingOf(document);
      TASN1 again(0x30);
      EXPECT_EQ(LoadOf(again, after), 0) << failAt << testing::PrintToString(after);
      EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0xFFFFFF), 0);
    }
  }
  EXPECT_GT(failures, 1U);
}

void Nothing(TASN1& /*document*/) {}
void FourChildren(TASN1& document) {
  for (int i = 0; i < 4; ++i) document.AddChild(0x30, 0, nullptr, 0xFFFFFF);
}

TEST(AllocationFailureTest, Add) {
  const Octets value(60, 0x11);
  FailEveryAllocation(Nothing, [&](TASN1& document) {
    for (int i = 0; i < 9; ++i) document.AddChild(0x04, 60, value.data(), 0xFFFFFF);
    document.AddChild(0x03, 60, value.data(), 0xFFFFFF);
    document.AddChild(0x06, 0, "1.2.3", 0xFFFFFF);
  });
  FailEveryAllocation(FourChildren, [&](TASN1& document) {
    for (int i = 0; i < 9; ++i) document.InsertBefore(0x04, 60, value.data(), 2, 0xFFFFFF);
  });
}

TEST(AllocationFailureTest, LoadAndParse) {
  const Image image(Nested(40, Hex("24 80 04 02 AA BB 04 01 CC 00 00 06 01 2A 30 0A 05 00 05 00 05 "
                                   "00 05 00 05 00") +
                                   Hex("04 28") + Octets(40, 1)));
  FailEveryAllocation(FourChildren, [&](TASN1& document) {
    document.Load(image.Data(), image.Size());
    document.Parse(image.Data(), 1, 0xFFFFFF);
  });
  FailEveryAllocation(FourChildren, [&](TASN1& document) {
    document.ParseInto(image.Data(), 0, 0xFFFFFF);
    document.ParseInto(image.Data(), 0, 0xFFFFFF);
    document.ParseInto(image.Data(), 0xFFFFFF);
  });
}

// Without room for a whole document there is still room for small ones.
TEST(AllocationFailureTest, ABlockThatIsRefusedIsNotAskedForAgain) {
  const Image image(Nested(1, Repeat(Hex("05 00"), 2000)));
  TASN1 document(0x30);
  ASSERT_EQ(document.Load(image.Data(), image.Size()), 0);
  allocations = {.counting = true, .failAt = 1};
  EXPECT_THROW(document.Parse(image.Data(), 0xFFFFFF), std::bad_alloc);
  EXPECT_GT(allocations.largest, 65536U);
  allocations.counting = false;
  const Octets value(900, 0x11);
  const Allocations seen = Counted([&] {
    for (int i = 0; i < 10; ++i) document.AddChild(0x04, 900, value.data(), 0xFFFFFF);
  });
  EXPECT_GT(seen.count, 0U);
  EXPECT_LT(seen.largest, 32768U);
}

TEST(AllocationFailureTest, FlattenAtEveryDepth) {
  // A string on each of 50 levels.
  Octets content;
  for (int level = 0; level < 50; ++level) content = Nested(1, Hex("23 04 03 02 01 AA") + content);
  const Image image(content);
  FailEveryAllocation(Nothing, [&](TASN1& document) { document.Parse(image.Data(), 0xFFFFFF); });
}

TEST(AllocationFailureTest, RetagReadAndEncode) {
  const Octets deep = Nested(40, Hex("06 01 2A"));
  const auto prepare = [&](TASN1& document) { document.ParseInto(Image(deep).Data(), 0xFFFFFF); };
  FailEveryAllocation(prepare, [](TASN1& document) {
    document.SetTag(0x04, 0, 0xFFFFFF);
    document.SetTag(0x30, 0, 0xFFFFFF);
  });
  FailEveryAllocation(prepare, [](TASN1& document) {
    Octets octets(10000);
    document.Encode(octets.data(), 0xFFFFFF);
  });
  FailEveryAllocation(
      [](TASN1& document) { document.AddChild(0x06, 0, "1.2.3.4.5.6.7.8.9.10.11", 0xFFFFFF); },
      [](TASN1& document) { document.GetNode(nullptr, nullptr, nullptr, nullptr, 0, 0xFFFFFF); });
}

class Wiped : public TASN1 {
 public:
  Wiped() : TASN1(0x30, Release::kWiped) {}
  const AsnNode& Top() const { return Root(); }
};

class Plain : public TASN1 {
 public:
  Plain() : TASN1(0x30) {}
};

// Secrets that a document leaves, in blocks that it gives back to the heap and, at its end, in
// itself.
template <typename Document, typename Act>
std::size_t Left(Act&& act) {
  alignas(Document) static std::uint8_t place[sizeof(Document)];
  std::fill(std::begin(place), std::end(place), std::uint8_t{0});
  secretsGivenBack = 0;
  watching = true;
  auto* document = new (place) Document;
  act(*document);
  document->~Document();
  watching = false;
  return secretsGivenBack + CountSecrets(place, sizeof(place));
}

const Octets kShort(20, kSecret);
const Octets kLong(60, kSecret);
const Image& Secrets() {
  // Short and long, joined, and below a further level.
  static const Image image(Hex("30 81 9A 04 14") + kShort + Hex("04 3C") + kLong +
                           Hex("24 16 04 14") + kShort + Hex("30 16 04 14") + kShort +
                           Hex("30 14 24 80 04 0C") + Octets(12, kSecret) + Hex("00 00 04 00"));
  return image;
}

void ParseSecrets(TASN1& document) {
  EXPECT_EQ(document.Load(Secrets().Data(), Secrets().Size()), 0);
  EXPECT_EQ(document.Parse(Secrets().Data(), 0xFFFFFF), 0);
}

TEST(WipeTest, OnlyWhatIsToBeWiped) {
  EXPECT_EQ(Left<Wiped>(ParseSecrets), 0U);
  // The short contents, the long one, both joined ones and their segments.
  EXPECT_EQ(Left<Plain>(ParseSecrets), 7U);
}

// The number that GetNode keeps behind an INTEGER is as secret as its content, inside the
// document's own root as in a record that goes back to the heap.
TEST(WipeTest, NumbersThatWereRead) {
  const Image number(Hex("02 05 00 D5 D5 D5 D5"));
  EXPECT_EQ(Left<Wiped>([&](TASN1& document) {
              for (int i = 0; i < 2; ++i) {
                document.ParseInto(number.Data(), 0xFFFFFF);
                EXPECT_EQ(Seen(document, i).value, Octets(4, kSecret));
              }
              document.DeleteNode(0, 0, 0xFFFFFF);
            }),
            0U);
  Wiped document;
  EXPECT_EQ(document.Parse(number.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(Seen(document).value, Octets(4, kSecret));
  EXPECT_EQ(document.DeleteNode(0, 0xFFFFFF), 0);
  EXPECT_EQ(Octets(document.Top().octets + 2, document.Top().octets + 40), Octets(38, 0));
}

// At once, and not only at the end. On the stack the document could lie on what earlier tests left.
TEST(WipeTest, WhileTheDocumentLives) {
  const auto secretsIn = [](const TASN1& document) {
    return CountSecrets(&document, sizeof(document));
  };
  alignas(Wiped) static std::uint8_t place[sizeof(Wiped)] = {};
  const std::unique_ptr<Wiped, void (*)(Wiped*)> owner(
      new (place) Wiped, [](Wiped* wiped) { std::destroy_at(wiped); });
  Wiped& document = *owner;
  ParseSecrets(document);
  EXPECT_EQ(secretsIn(document), 5U);
  document.DeleteNode(0, 0, 0xFFFFFF);
  EXPECT_EQ(secretsIn(document), 4U);
  document.SetTag(0x04, 2, 0xFFFFFF);
  EXPECT_EQ(secretsIn(document), 4U);
  document.Parse(Hex("05 00").data(), 0, 0xFFFFFF);
  EXPECT_EQ(secretsIn(document), 3U);
  document.Clear();
  EXPECT_EQ(secretsIn(document), 0U);
}

TEST(WipeTest, EveryWayOut) {
  const auto after = [](auto act) {
    return [act](TASN1& document) {
      ParseSecrets(document);
      act(document);
      // Whatever it left.
      document.DeleteNode(0, 0xFFFFFF);
    };
  };
  EXPECT_EQ(Left<Wiped>(after([](TASN1& document) { document.Clear(); })), 0U);
  EXPECT_EQ(Left<Wiped>(after([](TASN1& document) { document.DeleteNode(0, 1, 0xFFFFFF); })), 0U);
  EXPECT_EQ(Left<Wiped>(after([](TASN1& document) { document.DeleteNode(0, 3, 0xFFFFFF); })), 0U);
  EXPECT_EQ(Left<Wiped>(after([](TASN1& document) {
              document.Parse(Secrets().Data(), 3, 0xFFFFFF);
              document.Parse(Secrets().Data(), 3, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(Left<Wiped>(
                after([](TASN1& document) { document.ParseInto(Secrets().Data(), 3, 0xFFFFFF); })),
            0U);
  EXPECT_EQ(Left<Wiped>(after([](TASN1& document) {
              document.SetTag(0x04, 3, 0xFFFFFF);
              document.SetTag(0x30, 3, 0xFFFFFF);
              document.SetTag(0x04, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(Left<Wiped>([](TASN1& document) {
              document.AddChild(0x04, 60, kLong.data(), 0xFFFFFF);
              document.AddChild(0x03, 20, kShort.data(), 0xFFFFFF);
              document.InsertBefore(0x04, 20, kShort.data(), 0, 0xFFFFFF);
            }),
            0U);
}

TEST(WipeTest, WhenMemoryRunsOut) {
  const auto failing = [](auto act) {
    return [act](TASN1& document) {
      const Octets filler(8200, 0x77);
      for (std::uint32_t filled = 5800; filled < 8150; filled += 16) {
        for (std::size_t failAt = 1; failAt != 0;) {
          document.DeleteNode(0, 0xFFFFFF);
          ParseSecrets(document);
          document.AddChild(0x04, filled, filler.data(), 0xFFFFFF);
          allocations = {.counting = true, .failAt = failAt};
          try {
            act(document);
            failAt = 0;
          } catch (const std::bad_alloc&) {
            ++failAt;
          }
          allocations.counting = false;
        }
      }
    };
  };
  EXPECT_EQ(Left<Wiped>(failing([](TASN1& document) {
              for (int i = 0; i < 5; ++i) document.AddChild(0x04, 60, kLong.data(), 0xFFFFFF);
              for (int i = 0; i < 5; ++i)
                document.InsertBefore(0x04, 20, kShort.data(), 0, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(Left<Wiped>(failing([](TASN1& document) {
              for (int i = 0; i < 5; ++i) document.ParseInto(Secrets().Data(), 0xFFFFFF);
              document.Parse(Secrets().Data(), 0, 0xFFFFFF);
              document.SetTag(0x04, 0, 0xFFFFFF);
              document.SetTag(0x30, 0, 0xFFFFFF);
            })),
            0U);
}

}  // namespace
}  // namespace zarext
