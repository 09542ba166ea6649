// What the codec leaves when it gets no memory.
#include <new>

#include "unit/asn1/counted_memory.h"
#include "unit/asn1/documents.h"

namespace zarext {
namespace {

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
  EXPECT_GT(allocations.largest, 32768U);
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

}  // namespace
}  // namespace zarext
