// Adding and inserting nodes, and the lengths around them.

#include <cstring>
#include <limits>

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

constexpr std::int32_t kEnd = 0xFFFFFF;

// --- adding -------------------------------------------------------------------------------------

struct NumberCase {
  std::uint32_t number;
  const char* encoding;
};

class AddNumberTest : public testing::TestWithParam<NumberCase> {};

TEST_P(AddNumberTest, ShortestForm) {
  TASN1 document(0x30);
  EXPECT_EQ(document.AddChild(0x02, 4, &GetParam().number, kEnd), 0);
  EXPECT_EQ(EncodingOf(document, 0), Hex(GetParam().encoding));
  const NodeSeen seen = Seen(document, 0);
  EXPECT_EQ(seen.length, 4U);
  std::uint32_t number = 0;
  std::memcpy(&number, seen.value.data(), 4);
  EXPECT_EQ(number, GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, AddNumberTest,
    testing::Values(NumberCase{0, "02 01 00"}, NumberCase{1, "02 01 01"},
                    NumberCase{0x7F, "02 01 7F"}, NumberCase{0x80, "02 02 00 80"},
                    NumberCase{0xFF, "02 02 00 FF"}, NumberCase{0x100, "02 02 01 00"},
                    NumberCase{0x7FFF, "02 02 7F FF"}, NumberCase{0x8000, "02 03 00 80 00"},
                    NumberCase{0x10000, "02 03 01 00 00"}, NumberCase{0x7FFFFF, "02 03 7F FF FF"},
                    NumberCase{0x800000, "02 04 00 80 00 00"},
                    NumberCase{0x01000000, "02 04 01 00 00 00"},
                    NumberCase{0x7FFFFFFF, "02 04 7F FF FF FF"},
                    NumberCase{0x80000000, "02 05 00 80 00 00 00"},
                    NumberCase{0xFFFFFFFF, "02 05 00 FF FF FF FF"}));

struct AddCase {
  std::uint8_t tag;
  const char* value;
  const char* encoding;
};

class AddTest : public testing::TestWithParam<AddCase> {};

TEST_P(AddTest, Content) {
  TASN1 document(0x30);
  const Image value(Hex(GetParam().value));
  EXPECT_EQ(document.AddChild(GetParam().tag, value.Size(), value.Data(), kEnd), 0);
  EXPECT_EQ(EncodingOf(document, 0), Hex(GetParam().encoding));
}

INSTANTIATE_TEST_SUITE_P(
    Values, AddTest,
    testing::Values(
        // An INTEGER of another length is stored as given.
        AddCase{0x02, "", "02 00"}, AddCase{0x02, "FF", "02 01 FF"},
        AddCase{0x02, "00 00 05", "02 03 00 00 05"},
        AddCase{0x02, "FF FE FD FC FB", "02 05 FF FE FD FC FB"},
        // The number conversion is for the universal tag only.
        AddCase{0x82, "01 02 03 04", "82 04 01 02 03 04"},
        AddCase{0x42, "01 02 03 04", "42 04 01 02 03 04"},
        AddCase{0x0A, "01 00 00 00", "0A 04 01 00 00 00"}, AddCase{0x03, "", "03 01 00"},
        AddCase{0x03, "80", "03 02 07 80"}, AddCase{0x03, "01", "03 02 00 01"},
        AddCase{0x03, "B0", "03 02 04 B0"}, AddCase{0x03, "00", "03 02 00 00"},
        AddCase{0x03, "FF 00", "03 03 00 FF 00"}, AddCase{0x03, "80 40", "03 03 06 80 40"},
        AddCase{0x03, "01 02 04", "03 04 02 01 02 04"},
        AddCase{0x03, "01 02 03 08", "03 05 03 01 02 03 08"},
        // From five octets on no bits count as unused.
        AddCase{0x03, "01 02 03 04 80", "03 06 00 01 02 03 04 80"}, AddCase{0x83, "80", "83 01 80"},
        AddCase{0x04, "AA BB", "04 02 AA BB"}, AddCase{0x86, "31 2E 32", "86 03 31 2E 32"},
        AddCase{0x05, "", "05 00"}, AddCase{0x00, "01", "00 01 01"},
        AddCase{0x1F, "01", "1F 01 01"},
        // A constructed node takes no value.
        AddCase{0x30, "01 02", "30 00"}, AddCase{0x23, "01 02", "23 00"},
        AddCase{0x22, "01 02 03 04", "22 00"}, AddCase{0xA6, "01", "A6 00"}));

TEST(AddTest, ObjectIdentifierLengthIsNotUsed) {
  for (const std::uint32_t length : {0U, 1U, 14U, 0xFFFFFFFFU}) {
    TASN1 document(0x30);
    EXPECT_EQ(document.AddChild(0x06, length, "1.2.643.2.2.19", kEnd), 0);
    EXPECT_EQ(EncodingOf(document), Hex("30 08 06 06 2A 85 03 02 02 13"));
  }
}

TEST(AddTest, Failures) {
  TASN1 document(0x30);
  EXPECT_EQ(document.AddChild(0x04, 2, "ab", kEnd), 0);
  const Octets before = EncodingOf(document);
  EXPECT_EQ(document.AddChild(0x04, 1, "c", 0, kEnd), 1);
  EXPECT_EQ(document.AddChild(0x30, 0, nullptr, 0, kEnd), 1);
  EXPECT_EQ(document.AddChild(0x04, 1, "c", 1, kEnd), 20);
  EXPECT_EQ(document.AddChild(0x04, 1, "c", -1, kEnd), 20);
  EXPECT_EQ(document.AddChild(0x04, 1, "c", 0, 0, kEnd), 20);
  // The value comes before the path.
  EXPECT_EQ(document.AddChild(0x04, 3, nullptr, kEnd), 19);
  EXPECT_EQ(document.AddChild(0x04, 3, nullptr, 7, kEnd), 19);
  EXPECT_EQ(document.AddChild(0x30, 3, nullptr, kEnd), 19);
  EXPECT_EQ(document.AddChild(0x02, 4, nullptr, 0, kEnd), 19);
  EXPECT_EQ(document.AddChild(0x06, 0, nullptr, kEnd), 19);
  EXPECT_EQ(document.InsertBefore(0x04, 3, nullptr, 7, kEnd), 19);
  EXPECT_EQ(document.InsertBefore(0x06, 0, nullptr, 0, kEnd), 19);
  EXPECT_EQ(EncodingOf(document), before);
  EXPECT_EQ(document.AddChild(0x86, 0, nullptr, kEnd), 0);
  EXPECT_EQ(EncodingOf(document, 1), Hex("86 00"));
}

TEST(AddTest, MoreThanCanBeEncoded) {
  TASN1 document(0x30);
  EXPECT_THROW(document.AddChild(0x04, 0xFFFFFFFF, "a", kEnd), std::bad_alloc);
  EXPECT_THROW(document.AddChild(0x03, 0xFFFFFFFF, "a", kEnd), std::bad_alloc);
  EXPECT_THROW(document.AddChild(0x04, 0xFFFFFF00, "a", kEnd), std::bad_alloc);
  EXPECT_EQ(document.AddChild(0x30, 0xFFFFFFFF, "a", kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 02 30 00"));
}

// Without any path an operation does not compile.
template <typename T>
constexpr bool kParses = requires(T t, const std::uint8_t* image) {
  t.Parse(image);
};
template <typename T>
constexpr bool kParsesInto = requires(T t, const std::uint8_t* image) {
  t.ParseInto(image);
};
template <typename T>
constexpr bool kAdds = requires(T t) {
  t.AddChild(0x05, 0, nullptr);
};
template <typename T>
constexpr bool kInserts = requires(T t) {
  t.InsertBefore(0x05, 0, nullptr);
};
template <typename T>
constexpr bool kReads = requires(T t) {
  t.GetNode(nullptr, nullptr, nullptr, nullptr);
};
template <typename T>
constexpr bool kRetags = requires(T t) {
  t.SetTag(0x31);
};
template <typename T>
constexpr bool kMeasures = requires(T t) {
  t.GetEncodedSize(nullptr);
};
template <typename T>
constexpr bool kEncodes = requires(T t) {
  t.Encode(nullptr);
};
template <typename T>
constexpr bool kDeletes = requires(T t) {
  t.DeleteNode(0);
};
static_assert(!kParses<TASN1> && !kParsesInto<TASN1> && !kAdds<TASN1> && !kInserts<TASN1> &&
              !kReads<TASN1> && !kRetags<TASN1> && !kMeasures<TASN1> && !kEncodes<TASN1> &&
              !kDeletes<TASN1>);

TEST(AddTest, PathTypes) {
  TASN1 document(0x30);
  EXPECT_EQ(document.AddChild(0x30, 0, nullptr, 0xFFFFFFU), 0);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, std::uint8_t{0}, std::int64_t{0xFFFFFF}), 0);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, std::size_t{0}, kPathEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 06 30 04 05 00 05 00"));
  // Numbers that a 32-bit index cannot hold are no index 0.
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, std::uint64_t{1} << 32, kEnd), 20);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, std::int64_t{-1} << 32, kEnd), 20);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0xFFFFFFFFU, kEnd), 20);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, std::numeric_limits<int>::min(), kEnd), 20);
  // What stands behind the end is not looked at.
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0, kEnd, -5, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).count, 3U);
}

template <std::size_t... Zeros>
std::int32_t AddBelow(TASN1& document, std::index_sequence<Zeros...>) {
  return document.AddChild(0x30, 0, nullptr, (static_cast<int>(Zeros) * 0)..., kEnd);
}

TEST(AddTest, LongestPath) {
  Parsed document(Nested(70, {}));
  // 63 and 64 indices lead to a node, 65 are too many.
  EXPECT_EQ(AddBelow(document, std::make_index_sequence<63>()), 0);
  EXPECT_EQ(AddBelow(document, std::make_index_sequence<64>()), 0);
  EXPECT_EQ(AddBelow(document, std::make_index_sequence<65>()), 20);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0), 20);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0, 0, 0), 20);
  EXPECT_EQ(SizeOf(document), 152U);
}

TEST(InsertTest, PushesTheFollowingUp) {
  TASN1 document(0x30);
  for (int i = 1; i <= 3; ++i) document.AddChild(0x02, 4, &i, kEnd);
  const std::uint32_t number = 9;
  EXPECT_EQ(document.InsertBefore(0x02, 4, &number, 1, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 0C 02 01 01 02 01 09 02 01 02 02 01 03"));
  EXPECT_EQ(document.InsertBefore(0x30, 0, nullptr, 0, kEnd), 0);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0, kEnd), 0);
  EXPECT_EQ(document.InsertBefore(0x06, 0, "1.2", 0, 0, kEnd), 0);
  EXPECT_EQ(EncodingOf(document),
            Hex("30 13 30 05 06 01 2A 05 00 02 01 01 02 01 09 02 01 02 02 01 03"));
}

TEST(InsertTest, NeedsAnExistingNode) {
  TASN1 document(0x30);
  EXPECT_EQ(document.InsertBefore(0x05, 0, nullptr, kEnd), 20);
  EXPECT_EQ(document.InsertBefore(0x05, 0, nullptr, 0, kEnd), 20);
  document.AddChild(0x05, 0, nullptr, kEnd);
  EXPECT_EQ(document.InsertBefore(0x05, 0, nullptr, 1, kEnd), 20);
  EXPECT_EQ(document.InsertBefore(0x05, 0, nullptr, 0, 0, kEnd), 20);
  EXPECT_EQ(document.InsertBefore(0x05, 0, nullptr, -1, kEnd), 20);
  EXPECT_EQ(EncodingOf(document), Hex("30 02 05 00"));
}

// --- lengths ------------------------------------------------------------------------------------

// Three levels whose lengths all pass a boundary at once: an inner SEQUENCE with a filler and,
// when full, eleven octets more.
struct BoundaryCase {
  std::uint32_t filler;  // octets of content of the filler
  const char* fillerHeader;
  const char* before;  // headers from the outermost in, without the eleven octets
  const char* after;   // and with them
};

class BoundaryTest : public testing::TestWithParam<BoundaryCase> {
 protected:
  Octets Filler() const { return Hex(GetParam().fillerHeader) + Octets(GetParam().filler, 0x55); }
  Octets Before() const { return Hex(GetParam().before) + Filler(); }
  Octets After() const { return Hex(GetParam().after) + Filler() + Eleven(); }
  static Octets Eleven() { return Hex("04 09 01 02 03 04 05 06 07 08 09"); }

  TASN1 document_{0x30};
  void SetUp() override {
    document_.AddChild(0x30, 0, nullptr, kEnd);
    document_.AddChild(0x30, 0, nullptr, 0, kEnd);
    const Octets filler(GetParam().filler, 0x55);
    document_.AddChild(0x04, GetParam().filler, filler.data(), 0, 0, kEnd);
    ASSERT_TRUE(EncodingOf(document_) == Before());
  }
};

TEST_P(BoundaryTest, AddAndDelete) {
  const Octets value = Hex("01 02 03 04 05 06 07 08 09");
  EXPECT_EQ(document_.AddChild(0x04, 9, value.data(), 0, 0, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == After());
  EXPECT_EQ(document_.DeleteNode(0, 0, 0, 1, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == Before());
}

TEST_P(BoundaryTest, InsertAndParse) {
  const Octets value = Hex("01 02 03 04 05 06 07 08 09");
  EXPECT_EQ(document_.InsertBefore(0x04, 9, value.data(), 0, 0, 0, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == Hex(GetParam().after) + Eleven() + Filler());
  EXPECT_EQ(document_.DeleteNode(0, 0, 0, 0, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == Before());
  EXPECT_EQ(document_.ParseInto(Image(Eleven()).Data(), 0, 0, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == After());
  // An image read back, and a node replaced by a smaller one: eleven octets by two.
  Parsed parsed(After());
  EXPECT_TRUE(EncodingOf(parsed) == After());
  const Image null(Hex("05 00"));
  EXPECT_EQ(parsed.Load(null.Data(), null.Size()), 0);
  EXPECT_EQ(parsed.Parse(null.Data(), 0, 0, 1, kEnd), 0);
  EXPECT_EQ(parsed.DeleteNode(0, 0, 0, 1, kEnd), 0);
  EXPECT_TRUE(EncodingOf(parsed) == Before());
}

TEST_P(BoundaryTest, Retag) {
  // 33 octets of content that a change to 24 joins to nine: 24 octets less in every length.
  const Octets segments =
      Hex("04 01 01 04 01 02 04 01 03 04 01 04 04 01 05 04 01 06 04 01 07 04 01 08 04 01 09 04 00 "
          "04 00 "
          "04 00");
  EXPECT_EQ(document_.AddChild(0x04, 33, segments.data(), 0, 0, kEnd), 0);
  EXPECT_EQ(document_.SetTag(0x24, 0, 0, 1, kEnd), 0);
  EXPECT_TRUE(EncodingOf(document_) == After());
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, BoundaryTest,
    testing::Values(BoundaryCase{121, "04 79", "30 7F 30 7D 30 7B", "30 81 8C 30 81 89 30 81 86"},
                    BoundaryCase{246, "04 81 F6", "30 81 FF 30 81 FC 30 81 F9",
                                 "30 82 01 0C 30 82 01 08 30 82 01 04"},
                    BoundaryCase{0xFFF3, "04 82 FF F3", "30 82 FF FF 30 82 FF FB 30 82 FF F7",
                                 "30 83 01 00 0C 30 83 01 00 07 30 83 01 00 02"},
                    BoundaryCase{0xFFFFF0, "04 83 FF FF F0",
                                 "30 83 FF FF FF 30 83 FF FF FA 30 83 FF FF F5",
                                 "30 84 01 00 00 0C 30 84 01 00 00 06 30 84 01 00 00 00"}));

struct LengthCase {
  std::uint32_t length;
  const char* header;
};

class LengthTest : public testing::TestWithParam<LengthCase> {};

TEST_P(LengthTest, Header) {
  TASN1 document(0x30);
  const Octets value(GetParam().length, 0x11);
  EXPECT_EQ(document.AddChild(0x04, GetParam().length, value.data(), kEnd), 0);
  EXPECT_TRUE(EncodingOf(document, 0) == Hex(GetParam().header) + value);
  const NodeSeen seen = Seen(document, 0);
  EXPECT_EQ(seen.length, GetParam().length);
  EXPECT_TRUE(seen.value == value);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, LengthTest,
    testing::Values(LengthCase{0, "04 00"}, LengthCase{127, "04 7F"}, LengthCase{128, "04 81 80"},
                    LengthCase{200, "04 81 C8"}, LengthCase{255, "04 81 FF"},
                    LengthCase{256, "04 82 01 00"}, LengthCase{300, "04 82 01 2C"},
                    LengthCase{65535, "04 82 FF FF"}, LengthCase{65536, "04 83 01 00 00"},
                    LengthCase{16777215, "04 83 FF FF FF"},
                    LengthCase{16777216, "04 84 01 00 00 00"}));

}  // namespace
}  // namespace zarext
