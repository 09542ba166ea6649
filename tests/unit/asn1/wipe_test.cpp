// What of its contents a document leaves in memory.
#include <algorithm>
#include <memory>
#include <new>

#include "unit/asn1/counted_memory.h"
#include "unit/asn1/documents.h"

namespace zarext {
namespace {

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
