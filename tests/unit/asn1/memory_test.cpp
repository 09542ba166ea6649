// What the codec allocates, and what it leaves when it cannot. The linker sends the allocations of
// this program through the functions below.

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
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

// Four of these in a row are a secret.
constexpr std::uint8_t kSecret = 0xD5;
bool watching = false;
std::size_t secretsGivenBack = 0;

bool HoldsSecret(void* block) {
  const auto* octets = static_cast<const std::uint8_t*>(block);
  const std::uint8_t* end = octets + malloc_usable_size(block);
  return std::search_n(octets, end, 4, kSecret) != end;
}

bool Refuse(std::size_t size) {
  if (!allocations.counting) return false;
  allocations.largest = std::max(allocations.largest, size);
  return ++allocations.count == allocations.failAt;
}

}  // namespace

// The names are the linker's. NOLINTBEGIN
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __real__Znwm(std::size_t size);

void* __wrap_malloc(std::size_t size) { return Refuse(size) ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return Refuse(count * size) ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  return Refuse(size) ? nullptr : __real_realloc(block, size);
}
void __wrap_free(void* block) {
  if (watching && block != nullptr && HoldsSecret(block)) ++secretsGivenBack;
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
  std::size_t allocations;
};

class ParseCountTest : public testing::TestWithParam<CountCase> {};

TEST_P(ParseCountTest, LoadAndParse) {
  const Image image(Hex(GetParam().image));
  TASN1 document(0x30);
  const Allocations seen = Counted([&] {
    document.Load(image.Data(), image.Size());
    document.Parse(image.Data(), 0xFFFFFF);
  });
  EXPECT_EQ(seen.count, GetParam().allocations);
}

INSTANTIATE_TEST_SUITE_P(
    Images, ParseCountTest,
    testing::Values(
        // One for each node below the root, and nothing else for short values.
        CountCase{"30 00", 0}, CountCase{"04 03 01 02 03", 0},
        CountCase{"30 09 02 01 05 05 00 30 02 05 00", 4},
        // The fourth child needs an array.
        CountCase{"30 06 05 00 05 00 05 00", 3}, CountCase{"30 08 05 00 05 00 05 00 05 00", 5},
        // A content of 38 octets is a block of its own.
        CountCase{
            "30 27 04 25 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 "
            "18 19 1A 1B 1C 1D 1E 1F 20 21 22 23 24 25",
            1},
        CountCase{
            "30 28 04 26 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 "
            "18 19 1A 1B 1C 1D 1E 1F 20 21 22 23 24 25 26",
            2},
        // A joined string is a block, whatever its size.
        CountCase{"24 06 04 01 AA 04 01 BB", 3}));

TEST(MemoryTest, AddingOneNodeIsOneAllocation) {
  TASN1 document(0x30);
  const std::uint32_t number = 5;
  EXPECT_EQ(Counted([&] { document.AddChild(0x30, 0, nullptr, 0xFFFFFF); }).count, 1U);
  EXPECT_EQ(Counted([&] { document.AddChild(0x02, 4, &number, 0, 0xFFFFFF); }).count, 1U);
  EXPECT_EQ(Counted([&] { document.AddChild(0x06, 0, "1.2.643.2.2.19", 0, 0xFFFFFF); }).count, 1U);
  EXPECT_EQ(
      Counted([&] { document.GetNode(nullptr, nullptr, nullptr, nullptr, 0, 0, 0xFFFFFF); }).count,
      0U);
}

TEST(MemoryTest, BlockSizes) {
  const Octets value(100, 0x11);
  TASN1 document(0x30);
  // One octet behind the content, five behind that of an INTEGER which is added; for the bit string
  // one more in front.
  EXPECT_EQ(Counted([&] { document.AddChild(0x04, 100, value.data(), 0xFFFFFF); }).largest, 101U);
  EXPECT_EQ(Counted([&] { document.AddChild(0x02, 100, value.data(), 0xFFFFFF); }).largest, 105U);
  EXPECT_EQ(Counted([&] { document.AddChild(0x03, 100, value.data(), 0xFFFFFF); }).largest, 102U);
  for (const std::uint8_t tag : {std::uint8_t{0x04}, std::uint8_t{0x02}}) {
    const Image image(Octets{0x30, 102, tag, 100} + value);
    TASN1 parsed(0x30);
    EXPECT_EQ(Counted([&] { parsed.Parse(image.Data(), 0xFFFFFF); }).largest, 101U);
  }
  const Image bits(Octets{0x23, 102, 0x03, 100} + value);
  TASN1 parsed(0x30);
  EXPECT_EQ(Counted([&] { parsed.Parse(bits.Data(), 0xFFFFFF); }).largest, 104U);
}

// A record has 80 octets, as ten slots have; eighteen have 144, and thirty-four 272.
TEST(MemoryTest, ChildArraySizes) {
  TASN1 document(0x30);
  for (std::size_t child = 1; child <= 17; ++child) {
    const Allocations made = Counted([&] { document.AddChild(0x05, 0, nullptr, 0xFFFFFF); });
    EXPECT_EQ(child == 4 || child == 8 || child == 16 ? 2U : 1U, made.count) << child;
    EXPECT_EQ(child == 8 ? 144U : child == 16 ? 272U : 80U, made.largest) << child;
  }
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
// After each failure the document must be in one piece and usable.
template <typename Prepare, typename Act>
void FailEveryAllocation(Prepare&& prepare, Act&& act) {
  for (std::size_t failAt = 1;; ++failAt) {
    TASN1 document(0x30);
    prepare(document);
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
      EXPECT_GT(failAt, 1U);
      return;
    }
    // Either nothing has happened or a part that is consistent: it reads back as it is.
    const Octets after = EncodingOf(document);
    TASN1 again(0x30);
    EXPECT_EQ(LoadOf(again, after), 0) << failAt << testing::PrintToString(after);
    EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0xFFFFFF), 0);
  }
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
    Octets octets(200);
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

// What a document gives back to the heap between its beginning and its end with a secret in it.
template <typename Document, typename Act>
std::size_t GivenBack(Act&& act) {
  secretsGivenBack = 0;
  watching = true;
  {
    Document document;
    act(document);
  }
  watching = false;
  return secretsGivenBack;
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
  EXPECT_EQ(GivenBack<Wiped>(ParseSecrets), 0U);
  // The records of the short contents, the long one, both joined ones and their segments.
  EXPECT_EQ(GivenBack<Plain>(ParseSecrets), 7U);
}

// The number that GetNode keeps behind an INTEGER is as secret as its content, inside the
// document's own root as in a record that goes back to the heap.
TEST(WipeTest, NumbersThatWereRead) {
  const Image number(Hex("02 05 00 D5 D5 D5 D5"));
  EXPECT_EQ(GivenBack<Wiped>([&](TASN1& document) {
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

TEST(WipeTest, EveryWayOut) {
  const auto after = [](auto act) {
    return [act](TASN1& document) {
      ParseSecrets(document);
      act(document);
      // Whatever it left.
      document.DeleteNode(0, 0xFFFFFF);
    };
  };
  EXPECT_EQ(GivenBack<Wiped>(after([](TASN1& document) { document.Clear(); })), 0U);
  EXPECT_EQ(GivenBack<Wiped>(after([](TASN1& document) { document.DeleteNode(0, 1, 0xFFFFFF); })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>(after([](TASN1& document) { document.DeleteNode(0, 3, 0xFFFFFF); })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>(after([](TASN1& document) {
              document.Parse(Secrets().Data(), 3, 0xFFFFFF);
              document.Parse(Secrets().Data(), 3, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>(
                after([](TASN1& document) { document.ParseInto(Secrets().Data(), 3, 0xFFFFFF); })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>(after([](TASN1& document) {
              document.SetTag(0x04, 3, 0xFFFFFF);
              document.SetTag(0x30, 3, 0xFFFFFF);
              document.SetTag(0x04, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>([](TASN1& document) {
              document.AddChild(0x04, 60, kLong.data(), 0xFFFFFF);
              document.AddChild(0x03, 20, kShort.data(), 0xFFFFFF);
              document.InsertBefore(0x04, 20, kShort.data(), 0, 0xFFFFFF);
            }),
            0U);
}

TEST(WipeTest, WhenMemoryRunsOut) {
  const auto failing = [](auto act) {
    return [act](TASN1& document) {
      for (std::size_t failAt = 1;; ++failAt) {
        document.DeleteNode(0, 0xFFFFFF);
        ParseSecrets(document);
        allocations = {.counting = true, .failAt = failAt};
        try {
          act(document);
          allocations.counting = false;
          return;
        } catch (const std::bad_alloc&) {
          allocations.counting = false;
        }
      }
    };
  };
  EXPECT_EQ(GivenBack<Wiped>(failing([](TASN1& document) {
              for (int i = 0; i < 5; ++i) document.AddChild(0x04, 60, kLong.data(), 0xFFFFFF);
              for (int i = 0; i < 5; ++i)
                document.InsertBefore(0x04, 20, kShort.data(), 0, 0xFFFFFF);
            })),
            0U);
  EXPECT_EQ(GivenBack<Wiped>(failing([](TASN1& document) {
              for (int i = 0; i < 5; ++i) document.ParseInto(Secrets().Data(), 0xFFFFFF);
              document.Parse(Secrets().Data(), 0, 0xFFFFFF);
              document.SetTag(0x04, 0, 0xFFFFFF);
              document.SetTag(0x30, 0, 0xFFFFFF);
            })),
            0U);
}

}  // namespace
}  // namespace zarext
