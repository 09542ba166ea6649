// Building trees from images, and making constructed strings primitive.

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

struct ParseCase {
  const char* image;
  std::int32_t result;
  const char* encoding;
};

class ParseTest : public testing::TestWithParam<ParseCase> {};

// Every image here passes Load.
TEST_P(ParseTest, LoadThenParse) {
  TASN1 document(0x30);
  const Image image(Hex(GetParam().image));
  EXPECT_EQ(document.Load(image.Data(), image.Size()), 0);
  EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), GetParam().result);
  EXPECT_EQ(EncodingOf(document), Hex(GetParam().encoding));
}

// The same under another node, whose place it takes.
TEST_P(ParseTest, IntoTheMiddle) {
  Parsed document("30 09 02 01 01 02 01 02 02 01 03");
  const Image image(Hex(GetParam().image));
  EXPECT_EQ(document.Load(image.Data(), image.Size()), 0);
  EXPECT_EQ(document.Parse(image.Data(), 1, 0xFFFFFF), GetParam().result);
  const Octets content = Hex("02 01 01") + Hex(GetParam().encoding) + Hex("02 01 03");
  EXPECT_EQ(EncodingOf(document),
            (Octets{0x30, static_cast<std::uint8_t>(content.size())} + content));
}

INSTANTIATE_TEST_SUITE_P(
    Elements, ParseTest,
    testing::Values(ParseCase{"30 00", 0, "30 00"}, ParseCase{"04 00", 0, "04 00"},
                    ParseCase{"04 03 01 02 03", 0, "04 03 01 02 03"},
                    ParseCase{"30 03 02 01 05", 0, "30 03 02 01 05"},
                    ParseCase{"31 07 30 03 02 01 05 A0 00", 0, "31 07 30 03 02 01 05 A0 00"},
                    ParseCase{"61 07 30 05 A1 03 82 01 FF", 0, "61 07 30 05 A1 03 82 01 FF"},
                    // Every length becomes the shortest definite one.
                    ParseCase{"30 82 00 05 02 83 00 00 00", 0, "30 02 02 00"},
                    ParseCase{"30 80 02 01 05 00 00", 0, "30 03 02 01 05"},
                    ParseCase{"30 80 30 80 02 01 05 00 00 30 80 00 00 00 00", 0,
                              "30 07 30 03 02 01 05 30 00"},
                    ParseCase{"30 07 30 80 02 01 05 00 00", 0, "30 05 30 03 02 01 05"},
                    // A pair in a definite element closes the indefinite one around it.
                    ParseCase{"30 80 30 02 00 00", 0, "30 02 30 00"},
                    ParseCase{"30 04 00 00 05 00", 0, "30 02 05 00"},
                    // The outermost element is kept whatever it is.
                    ParseCase{"00 00", 0, "00 00"},
                    // A primitive element with an indefinite length takes the pair as content.
                    ParseCase{"04 80 02 01 05 00 00", 0, "04 05 02 01 05 00 00"},
                    ParseCase{"30 80 04 80 AA 00 00 00 00 00", 0, "30 06 04 04 AA 00 00 00"},
                    // An end-of-contents element is always two octets long for the builder.
                    ParseCase{"30 06 00 81 00 02 01 05", 0, "30 04 00 02 01 05"},
                    // An indefinite length that only it meets, for that reason.
                    ParseCase{"30 08 00 81 00 80 03 00 00 00", 0, "30 06 00 04 03 00 00 00"}));

INSTANTIATE_TEST_SUITE_P(
    Strings, ParseTest,
    testing::Values(
        ParseCase{"24 80 04 02 AA BB 04 01 CC 00 00", 0, "04 03 AA BB CC"},
        ParseCase{"24 00", 0, "04 00"}, ParseCase{"24 80 00 00", 0, "04 00"},
        ParseCase{"24 04 04 00 04 00", 0, "04 00"},
        ParseCase{"24 07 04 00 04 01 AA 04 00", 0, "04 01 AA"},
        ParseCase{"24 06 04 01 AA 02 01 05", 21, "24 06 04 01 AA 02 01 05"},
        ParseCase{"24 06 04 01 AA 03 01 00", 21, "24 06 04 01 AA 03 01 00"},
        // A constructed segment is none, and is not joined itself.
        ParseCase{"24 05 24 03 04 01 AA", 21, "24 05 24 03 04 01 AA"},
        ParseCase{"23 08 03 02 00 AA 03 02 04 B0", 0, "03 04 04 00 AA B0"},
        ParseCase{"23 0C 03 02 01 AA 03 02 02 BB 03 02 04 B0", 0, "03 06 04 01 AA 02 BB B0"},
        ParseCase{"23 06 03 02 04 B0 03 00", 0, "03 02 04 B0"},
        ParseCase{"23 06 03 00 03 02 04 B0", 0, "03 02 04 B0"},
        ParseCase{"23 08 03 02 04 B0 03 00 03 00", 0, "03 02 04 B0"},
        ParseCase{"23 03 03 01 07", 0, "03 01 07"}, ParseCase{"23 00", 0, "03 00"},
        // None of the segments has an unused-bits octet.
        ParseCase{"23 04 03 00 03 00", 21, "23 04 03 00 03 00"},
        ParseCase{"23 06 03 01 00 04 01 AA", 21, "23 06 03 01 00 04 01 AA"},
        // Other constructed elements are descended into; context tags are not strings.
        ParseCase{"30 0C A0 0A 24 03 04 01 AA 23 03 03 01 00", 0, "30 08 A0 06 04 01 AA 03 01 00"},
        ParseCase{"30 07 24 03 04 01 AA 30 00", 0, "30 05 04 01 AA 30 00"},
        ParseCase{"A4 03 04 01 AA", 0, "A4 03 04 01 AA"},
        ParseCase{"A3 03 03 01 00", 0, "A3 03 03 01 00"},
        ParseCase{"30 05 63 03 03 01 00", 0, "30 05 63 03 03 01 00"},
        ParseCase{"30 0A 64 03 04 01 AA 24 03 04 01 AA", 0, "30 08 64 03 04 01 AA 04 01 AA"},
        // The pass stops at the first failure: what comes before is joined, what follows is not.
        ParseCase{"30 0F 24 03 04 01 AA 24 03 02 01 05 24 03 04 01 BB", 21,
                  "30 0D 04 01 AA 24 03 02 01 05 24 03 04 01 BB"}));

TEST(ParseTest, BadPathChangesNothing) {
  Parsed document("30 05 30 03 02 01 05");
  const Image image(Hex("04 01 AA"));
  EXPECT_EQ(document.Load(image.Data(), image.Size()), 0);
  EXPECT_EQ(document.Parse(image.Data(), 1, 0xFFFFFF), 20);
  EXPECT_EQ(document.Parse(image.Data(), -1, 0xFFFFFF), 20);
  EXPECT_EQ(document.Parse(image.Data(), 0, 0, 0, 0xFFFFFF), 20);
  EXPECT_EQ(document.ParseInto(image.Data(), 0, 1, 0xFFFFFF), 20);
  EXPECT_EQ(EncodingOf(document), Hex("30 05 30 03 02 01 05"));
}

// Images that Load has not seen, or has refused.
struct RefusedCase {
  const char* image;
  std::int32_t load;
  std::int32_t result;
  const char* encoding;
};

class RefusedImageTest : public testing::TestWithParam<RefusedCase> {};

TEST_P(RefusedImageTest, ParseStaysInside) {
  Parsed document("30 03 02 01 05");
  const Image image(Hex(GetParam().image));
  EXPECT_EQ(document.Load(image.Data(), image.Size()), GetParam().load);
  EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), GetParam().result);
  EXPECT_EQ(EncodingOf(document), Hex(GetParam().encoding));
}

INSTANTIATE_TEST_SUITE_P(
    Images, RefusedImageTest,
    testing::Values(
        // The outermost header: nothing is changed.
        RefusedCase{"30", 10, 1, "30 03 02 01 05"},
        RefusedCase{"30 82 00", 10, 1, "30 03 02 01 05"},
        RefusedCase{"30 85 00 00 00 00 00", 10, 1, "30 03 02 01 05"},
        RefusedCase{"04 05 AA", 10, 1, "30 03 02 01 05"},
        RefusedCase{"04 80 AA BB", 10, 1, "30 03 02 01 05"},
        // A header directly inside, and one further down.
        RefusedCase{"30 05 02 01 06 04 85", 1, 2, "30 03 02 01 06"},
        RefusedCase{"30 04 02 01 06 04", 2, 2, "30 03 02 01 06"},
        RefusedCase{"30 7F 02 01 06", 10, 2, "30 03 02 01 06"},
        RefusedCase{"30 07 30 05 02 01 06 04 85", 1, 3, "30 05 30 03 02 01 06"},
        RefusedCase{"30 06 30 04 02 01 06 04", 2, 3, "30 05 30 03 02 01 06"},
        // Content beyond the image.
        RefusedCase{"30 05 02 01 06 04 01", 4, 3, "30 03 02 01 06"},
        RefusedCase{"30 06 04 84 FF FF FF FA", 4, 3, "30 00"},
        RefusedCase{"30 06 30 05 02 01 06 04", 2, 3, "30 05 30 03 02 01 06"},
        // Content beyond its element, but inside the image: it is built.
        RefusedCase{"30 08 30 02 04 04 AA BB CC DD", 4, 0, "30 08 30 06 04 04 AA BB CC DD"}));

TEST(ParseTest, ImageThatTheModuleMade) {
  TASN1 made(0x30);
  std::uint32_t number = 7;
  made.AddChild(0x02, 4, &number, 0xFFFFFF);
  const Image image(EncodingOf(made));
  TASN1 document(0x30);
  EXPECT_EQ(document.Parse(image.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 03 02 01 07"));
  // Without Load the image ends where its element ends.
  const Image beyond(Hex("30 03 04 05 AA"));
  EXPECT_EQ(document.Parse(beyond.Data(), 0xFFFFFF), 3);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));
  EXPECT_EQ(document.Parse(nullptr, 0xFFFFFF), 1);
}

// What Load was given bounds one Parse. The next image at that address may be another one.
TEST(ParseTest, NextImageAtTheSameAddress) {
  Octets block = Hex("30 03 02 01 05 00 00");
  TASN1 document(0x30);
  EXPECT_EQ(document.Load(block.data(), 5), 0);
  EXPECT_EQ(document.Parse(block.data(), 0xFFFFFF), 0);
  const Octets next = Hex("30 05 02 03 01 02 03");
  std::copy(next.begin(), next.end(), block.begin());
  EXPECT_EQ(document.Parse(block.data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), block);
}

// What the builder reads differently from the checker does not lead it out of the image.
TEST(ParseTest, ShiftedReadingStaysInside) {
  TASN1 document(0x30);
  const Octets octets = Hex("30 03 00 81 00");
  EXPECT_EQ(LoadOf(document, octets), 0);
  EXPECT_EQ(ParseOf(document, octets), 2);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));
}

TEST(ParseTest, RootTakesTagAndKindOfTheImage) {
  Parsed document("31 03 02 01 05");
  EXPECT_EQ(Seen(document).tag, 0x31);
  EXPECT_EQ(ParseOf(document, Hex("04 02 AA BB")), 0);
  const NodeSeen root = Seen(document);
  EXPECT_EQ(root.tag, 0x04);
  EXPECT_EQ(root.count, 0U);
  EXPECT_EQ(root.value, Hex("AA BB"));
  EXPECT_EQ(ParseOf(document, Hex("30 03 02 01 05")), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 03 02 01 05"));
}

// The octets to parse lie in the node that they replace.
TEST(ParseTest, ImageInsideTheReplacedNode) {
  for (const std::size_t size : {std::size_t{3}, std::size_t{60}}) {
    const Octets inner = Octets{0x04, static_cast<std::uint8_t>(size)} + Octets(size, 0x77);
    const Octets middle = Octets{0x30, static_cast<std::uint8_t>(inner.size())} + inner;
    Parsed document(Octets{0x04, static_cast<std::uint8_t>(middle.size())} + middle);
    const std::uint8_t* value = nullptr;
    ASSERT_EQ(document.GetNode(nullptr, nullptr, nullptr, &value, 0xFFFFFF), 0);
    EXPECT_EQ(document.Parse(value, 0xFFFFFF), 0);
    EXPECT_EQ(EncodingOf(document), middle);
  }
}

struct IntoCase {
  const char* image;
  const char* encoding;  // of a SEQUENCE that held INTEGER 5
};

class ParseIntoTest : public testing::TestWithParam<IntoCase> {};

TEST_P(ParseIntoTest, AppendsAndGives0) {
  Parsed document("30 03 02 01 05");
  const Image image(Hex(GetParam().image));
  EXPECT_EQ(document.ParseInto({image.Data(), image.Size()}, 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex(GetParam().encoding));
}

INSTANTIATE_TEST_SUITE_P(
    Images, ParseIntoTest,
    testing::Values(IntoCase{"02 01 06", "30 06 02 01 05 02 01 06"},
                    IntoCase{"30 80 02 01 06 00 00", "30 08 02 01 05 30 03 02 01 06"},
                    IntoCase{"24 05 04 01 AA 04 00", "30 06 02 01 05 04 01 AA"},
                    // An end-of-contents pair is no node.
                    IntoCase{"00 00", "30 03 02 01 05"}, IntoCase{"00 81 00", "30 03 02 01 05"},
                    // Nothing can be built.
                    IntoCase{"", "30 03 02 01 05"}, IntoCase{"30", "30 03 02 01 05"},
                    IntoCase{"30 85", "30 03 02 01 05"}, IntoCase{"04 03 AA", "30 03 02 01 05"},
                    // Only the first element, even if there is more.
                    IntoCase{"02 01 06 02 01 07", "30 06 02 01 05 02 01 06"},
                    // What was built before the failure stays; the image ends with its element.
                    IntoCase{"30 05 02 01 06 04 85", "30 08 02 01 05 30 03 02 01 06"},
                    IntoCase{"30 06 30 04 02 01 06 04", "30 0A 02 01 05 30 05 30 03 02 01 06"},
                    IntoCase{"30 05 02 01 06 04 01 AA", "30 08 02 01 05 30 03 02 01 06"},
                    IntoCase{"30 7F 02 01 06", "30 08 02 01 05 30 03 02 01 06"},
                    // Flattening stops without a word.
                    IntoCase{"24 03 02 01 06", "30 08 02 01 05 24 03 02 01 06"}));

TEST(ParseIntoTest, ImageEndsWhereItsElementEnds) {
  // An exact heap block, and an inner length that reaches beyond.
  Parsed document("30 03 02 01 05");
  const Image image(Hex("30 04 04 03 AA BB"));
  EXPECT_EQ(document.ParseInto(image.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 05 02 01 05 30 00"));
  // A Load of something shorter, at whatever place, does not cut it off.
  const Image longer(Hex("04 05 AA BB CC DD EE"));
  EXPECT_EQ(document.Load(longer.Data(), 3), 10);
  EXPECT_EQ(document.ParseInto(longer.Data(), 1, 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 0C 02 01 05 30 07 04 05 AA BB CC DD EE"));
  EXPECT_EQ(document.ParseInto(static_cast<const std::uint8_t*>(nullptr), 0xFFFFFF), 0);
}

TEST(ParseIntoTest, PrimitiveParentStaysAsItIs) {
  Parsed document("30 03 02 01 05");
  const Image image(Hex("02 01 06"));
  EXPECT_EQ(document.ParseInto(image.Data(), 0, 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 03 02 01 05"));
}

// The pass runs over the addressed node with all that it held before.
TEST(ParseIntoTest, FlattensTheAddressedNode) {
  TASN1 document(0x30);
  document.AddChild(0x24, 0, nullptr, 0xFFFFFF);
  document.AddChild(0x04, 2, "\xAA\xBB", 0, 0xFFFFFF);
  EXPECT_EQ(EncodingOf(document), Hex("30 06 24 04 04 02 AA BB"));
  const Image null(Hex("05 00"));
  EXPECT_EQ(document.ParseInto(null.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 06 04 02 AA BB 05 00"));
  // The addressed node itself is a string.
  document.AddChild(0x24, 0, nullptr, 0xFFFFFF);
  const Image segment(Hex("04 01 CC"));
  EXPECT_EQ(document.ParseInto(segment.Data(), 2, 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 09 04 02 AA BB 05 00 04 01 CC"));
}

TEST(ParseIntoTest, FlattensAfterEveryWayAStringCanAppear) {
  const Image null(Hex("05 00"));
  TASN1 root(0x24);
  EXPECT_EQ(root.ParseInto(null.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(root), Hex("24 02 05 00"));
  root.DeleteNode(0, 0, 0xFFFFFF);
  const Image end(Hex("00 00"));
  EXPECT_EQ(root.ParseInto(end.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(root), Hex("04 00"));

  Parsed retagged("30 05 30 03 04 01 AA");
  EXPECT_EQ(retagged.SetTag(0x24, 0, 0xFFFFFF), 0);
  EXPECT_EQ(retagged.ParseInto(null.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(retagged), Hex("30 05 04 01 AA 05 00"));

  Parsed inserted("30 03 02 01 05");
  EXPECT_EQ(inserted.InsertBefore(0x23, 0, nullptr, 0, 0xFFFFFF), 0);
  EXPECT_EQ(inserted.ParseInto(null.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(inserted), Hex("30 07 03 00 02 01 05 05 00"));

  // Left by a parse that failed before its flattening.
  Parsed left("30 02 05 00");
  const Image failing(Hex("30 07 24 03 04 01 AA 04 85"));
  EXPECT_EQ(left.Load(failing.Data(), failing.Size()), 1);
  EXPECT_EQ(left.Parse(failing.Data(), 0, 0xFFFFFF), 2);
  EXPECT_EQ(EncodingOf(left), Hex("30 07 30 05 24 03 04 01 AA"));
  EXPECT_EQ(left.ParseInto(null.Data(), 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(left), Hex("30 07 30 03 04 01 AA 05 00"));
}

TEST(ParseTest, HugeDepth) {
  const Octets open = Repeat(Hex("30 80"), 16000);
  Parsed indefinite(open + Repeat(Hex("00 00"), 16000));
  EXPECT_EQ(Seen(indefinite, 0, 0, 0, 0).count, 1U);

  const Octets image = Nested(200000, Hex("04 01 AA"));
  Parsed document(image);
  EXPECT_EQ(EncodingOf(document), image);
  // A change below many ancestors, and the release of a subtree.
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0, 0, 0, 0, 0, 0xFFFFFF), 0);
  EXPECT_EQ(SizeOf(document), image.size() + 2);
  EXPECT_EQ(document.DeleteNode(0, 0, 0, 0xFFFFFF), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 02 30 00"));
}

// Each level holds one string to be joined, so that the length of every level changes, and
// indefinite lengths besides: 14 octets a level.
TEST(ParseTest, HugeDepthOfStrings) {
  constexpr std::size_t kLevels = 4600;
  const Octets image =
      Repeat(Hex("30 80 24 80 04 01 AA 00 00 02 00"), kLevels) + Repeat(Hex("00 00"), kLevels);
  Parsed document(image);
  EXPECT_EQ(Seen(document, 0).tag, 0x04);
  EXPECT_EQ(Seen(document, 2, 2, 2, 0).value, Hex("AA"));
  EXPECT_EQ(Seen(document, 2, 2, 2).count, 3U);
  TASN1 again(0x30);
  const Octets encoding = EncodingOf(document);
  EXPECT_EQ(ParseOf(again, encoding), 0);
  EXPECT_EQ(EncodingOf(again), encoding);
}

TEST(ParseTest, ManySmallElements) {
  const Octets image = Hex("30 83 10 00 00") + Repeat(Hex("05 00"), 0x80000);
  Parsed document(image);
  EXPECT_EQ(Seen(document).count, 0x80000U);
  EXPECT_EQ(EncodingOf(document), image);
}

}  // namespace
}  // namespace zarext
