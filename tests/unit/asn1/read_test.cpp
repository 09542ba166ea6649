// Reading, retagging, deleting and encoding nodes.

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

constexpr std::int32_t kEnd = 0xFFFFFF;

// --- reading ------------------------------------------------------------------------------------

struct ReadCase {
  const char* element;
  std::uint32_t length;
  const char* value;
};

class GetNodeTest : public testing::TestWithParam<ReadCase> {};

TEST_P(GetNodeTest, PrimitiveValue) {
  const Octets element = Hex(GetParam().element);
  Parsed document(Octets{0x30, static_cast<std::uint8_t>(element.size())} + element);
  // Twice: reading keeps a number and a text in the node.
  for (int i = 0; i < 2; ++i) {
    const NodeSeen seen = Seen(document, 0);
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(seen.tag, element[0]);
    EXPECT_EQ(seen.count, 0U);
    EXPECT_EQ(seen.length, GetParam().length);
    EXPECT_EQ(seen.value, Hex(GetParam().value));
    EXPECT_EQ(EncodingOf(document, 0), element);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, GetNodeTest,
    testing::Values(
        // Numbers of the machine: least significant octet first.
        ReadCase{"02 01 05", 4, "05 00 00 00"}, ReadCase{"02 01 7F", 4, "7F 00 00 00"},
        ReadCase{"02 02 01 02", 4, "02 01 00 00"}, ReadCase{"02 03 01 02 03", 4, "03 02 01 00"},
        ReadCase{"02 04 7F 02 03 04", 4, "04 03 02 7F"},
        ReadCase{"02 05 00 FF FF FF FF", 4, "FF FF FF FF"},
        ReadCase{"02 05 00 01 02 03 04", 4, "04 03 02 01"},
        ReadCase{"02 03 00 00 05", 4, "05 00 00 00"}, ReadCase{"02 00", 0, ""},
        // Negative or longer ones come as they are.
        ReadCase{"02 01 80", 1, "80"}, ReadCase{"02 02 FF 7F", 2, "FF 7F"},
        ReadCase{"02 04 80 00 00 00", 4, "80 00 00 00"},
        ReadCase{"02 05 01 00 00 00 00", 5, "01 00 00 00 00"},
        ReadCase{"02 06 00 00 00 00 00 05", 6, "00 00 00 00 00 05"},
        ReadCase{"03 03 04 AA B0", 2, "AA B0"}, ReadCase{"03 01 00", 0, ""},
        ReadCase{"03 00", 0, ""}, ReadCase{"06 03 2A 86 48", 7, "31 2E 32 2E 38 34 30"},
        ReadCase{"06 00", 0, ""}, ReadCase{"04 02 AA BB", 2, "AA BB"}, ReadCase{"04 00", 0, ""},
        ReadCase{"05 00", 0, ""}, ReadCase{"0A 01 05", 1, "05"},
        // Conversions are for universal tags.
        ReadCase{"82 01 05", 1, "05"}, ReadCase{"42 01 05", 1, "05"},
        ReadCase{"83 02 04 B0", 2, "04 B0"}, ReadCase{"86 02 2A 03", 2, "2A 03"},
        ReadCase{"C6 02 2A 03", 2, "2A 03"}));

TEST(GetNodeTest, ConstructedNode) {
  Parsed document("30 0A 22 03 02 01 05 A6 03 06 01 2A");
  const NodeSeen root = Seen(document);
  EXPECT_EQ(root.tag, 0x30);
  EXPECT_EQ(root.count, 2U);
  EXPECT_EQ(root.length, 10U);
  EXPECT_FALSE(root.hasValue);
  EXPECT_EQ(Seen(document, 0).count, 1U);
  EXPECT_EQ(Seen(document, 0).length, 3U);
  EXPECT_EQ(Seen(document, 1).tag, 0xA6);
}

TEST(GetNodeTest, ResultsMayBeLeftOut) {
  Parsed document("30 03 02 01 05");
  EXPECT_EQ(document.GetNode(nullptr, nullptr, nullptr, nullptr, 0, kEnd), 0);
  std::uint8_t tag = 0;
  EXPECT_EQ(document.GetNode(&tag, nullptr, nullptr, nullptr, 0, kEnd), 0);
  EXPECT_EQ(tag, 0x02);
  EXPECT_EQ(document.GetEncodedSize(nullptr, 0, kEnd), 0);
}

TEST(GetNodeTest, BadPathWritesNothing) {
  Parsed document("30 03 02 01 05");
  std::uint8_t tag = 0x11;
  std::uint32_t count = 2;
  std::uint32_t length = 3;
  const std::uint8_t* value = &tag;
  EXPECT_EQ(document.GetNode(&tag, &count, &length, &value, 1, kEnd), 20);
  EXPECT_EQ(document.GetNode(&tag, &count, &length, &value, 0, 0, kEnd), 20);
  EXPECT_EQ(document.GetNode(&tag, &count, &length, &value, 0), 20);
  EXPECT_EQ(tag, 0x11);
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(value, &tag);
  std::uint32_t size = 77;
  EXPECT_EQ(document.GetEncodedSize(&size, 1, kEnd), 20);
  EXPECT_EQ(size, 77U);
  std::uint8_t octet = 0x22;
  EXPECT_EQ(document.Encode(&octet, 1, kEnd), 20);
  EXPECT_EQ(octet, 0x22);
}

TEST(GetNodeTest, TextEndsWithNulAndNoBitsHaveAPlace) {
  Parsed document("30 05 06 03 2A 86 48");
  const std::uint8_t* value = nullptr;
  EXPECT_EQ(document.GetNode(nullptr, nullptr, nullptr, &value, 0, kEnd), 0);
  EXPECT_STREQ(reinterpret_cast<const char*>(value), "1.2.840");
  const std::uint8_t* again = nullptr;
  EXPECT_EQ(document.GetNode(nullptr, nullptr, nullptr, &again, 0, kEnd), 0);
  EXPECT_EQ(value, again);
  // A bit string of no bits: the place behind its unused-bits octet.
  Parsed bits("30 03 03 01 00");
  EXPECT_EQ(bits.GetNode(nullptr, nullptr, nullptr, &value, 0, kEnd), 0);
  EXPECT_NE(value, nullptr);
  // An identifier without content is an empty text, not none.
  Parsed empty("06 00");
  EXPECT_EQ(empty.GetNode(nullptr, nullptr, nullptr, &value, kEnd), 0);
  ASSERT_NE(value, nullptr);
  EXPECT_STREQ(reinterpret_cast<const char*>(value), "");
}

TEST(GetNodeTest, KeptTextGoesWithTagContentAndPlace) {
  Parsed document("30 06 06 01 2A 06 01 2B");
  EXPECT_EQ(Seen(document, 0).Text(), "1.2");
  EXPECT_EQ(document.SetTag(0x86, 0, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).value, Hex("2A"));
  EXPECT_EQ(document.SetTag(0x06, 0, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).Text(), "1.2");
  const Image other(Hex("06 02 2A 05"));
  EXPECT_EQ(document.Load(other.Data(), other.Size()), 0);
  EXPECT_EQ(document.Parse(other.Data(), 0, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).Text(), "1.2.5");
  EXPECT_EQ(Seen(document, 1).Text(), "1.3");
  EXPECT_EQ(document.DeleteNode(0, 0, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).Text(), "1.3");
  EXPECT_EQ(document.InsertBefore(0x06, 0, "2.5", 0, kEnd), 0);
  EXPECT_EQ(Seen(document, 0).Text(), "2.5");
  EXPECT_EQ(Seen(document, 1).Text(), "1.3");
}

// --- retagging ----------------------------------------------------------------------------------

struct RetagCase {
  const char* image;
  std::uint8_t tag;
  const char* encoding;
};

class SetTagTest : public testing::TestWithParam<RetagCase> {};

TEST_P(SetTagTest, OfTheRoot) {
  Parsed document(GetParam().image);
  EXPECT_EQ(document.SetTag(GetParam().tag, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex(GetParam().encoding));
}

TEST_P(SetTagTest, OfAChild) {
  const Octets child = Hex(GetParam().image);
  Parsed document(Octets{0x30, static_cast<std::uint8_t>(child.size() + 4)} + Hex("05 00") + child +
                  Hex("05 00"));
  EXPECT_EQ(document.SetTag(GetParam().tag, 1, kEnd), 0);
  const Octets content = Hex("05 00") + Hex(GetParam().encoding) + Hex("05 00");
  EXPECT_EQ(EncodingOf(document),
            (Octets{0x30, static_cast<std::uint8_t>(content.size())} + content));
}

INSTANTIATE_TEST_SUITE_P(
    Tags, SetTagTest,
    testing::Values(
        RetagCase{"30 03 02 01 05", 0xA0, "A0 03 02 01 05"},
        RetagCase{"30 03 04 01 05", 0x24, "24 03 04 01 05"},  // not flattened by the change alone
        RetagCase{"04 01 05", 0x80, "80 01 05"}, RetagCase{"04 01 05", 0x02, "02 01 05"},
        RetagCase{"30 03 02 01 05", 0x80, "80 03 02 01 05"}, RetagCase{"30 00", 0x04, "04 00"},
        RetagCase{"80 03 02 01 05", 0x30, "30 03 02 01 05"}, RetagCase{"04 00", 0x30, "30 00"},
        RetagCase{"04 06 30 80 05 00 00 00", 0x31, "31 04 30 02 05 00"},
        RetagCase{"04 03 04 01 AA", 0x24, "04 01 AA"},
        RetagCase{"04 06 24 04 04 02 AA BB", 0x30, "30 04 04 02 AA BB"},
        // What cannot be built is left out.
        RetagCase{"04 02 AA 85", 0x30, "30 00"},
        RetagCase{"04 04 02 01 05 04", 0x30, "30 03 02 01 05"},
        RetagCase{"04 05 02 01 05 04 01", 0x30, "30 03 02 01 05"},
        RetagCase{"04 05 30 05 02 01 05", 0x30, "30 05 30 03 02 01 05"},
        RetagCase{"04 03 02 01 05", 0x24, "24 03 02 01 05"}));

TEST(SetTagTest, Failures) {
  Parsed document("30 03 02 01 05");
  EXPECT_EQ(document.SetTag(0xA0, 1, kEnd), 20);
  EXPECT_EQ(document.SetTag(0xA0, 0, 0, kEnd), 20);
  EXPECT_EQ(EncodingOf(document), Hex("30 03 02 01 05"));
}

// A retagged string is joined by the next pass over it, also when others have been retagged since.
TEST(SetTagTest, StringsAreJoinedByTheNextPass) {
  Parsed document("30 0C 30 03 04 01 AA 30 03 04 01 BB 30 00");
  EXPECT_EQ(document.SetTag(0x24, 0, kEnd), 0);
  EXPECT_EQ(document.SetTag(0x24, 1, kEnd), 0);
  EXPECT_EQ(document.SetTag(0x31, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 0C 24 03 04 01 AA 24 03 04 01 BB 30 00"));
  const Image null(Hex("05 00"));
  EXPECT_EQ(document.ParseInto(null.Data(), 2, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 0E 24 03 04 01 AA 24 03 04 01 BB 30 02 05 00"));
  EXPECT_EQ(document.ParseInto(null.Data(), kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 0C 04 01 AA 04 01 BB 30 02 05 00 05 00"));
}

// A joined string has just its content on the heap; a number read from it needs room.
TEST(SetTagTest, NumberFromAJoinedString) {
  Parsed document("24 80 04 01 01 04 02 02 03 00 00");
  EXPECT_EQ(document.SetTag(0x02, kEnd), 0);
  EXPECT_EQ(Seen(document).value, Hex("03 02 01 00"));
  EXPECT_EQ(EncodingOf(document), Hex("02 03 01 02 03"));
}

// --- deleting -----------------------------------------------------------------------------------

TEST(DeleteTest, FollowingSiblingsMoveDown) {
  Parsed document("30 0B 30 09 02 01 01 02 01 02 02 01 03");
  EXPECT_EQ(document.DeleteNode(0, 0, 1, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 08 30 06 02 01 01 02 01 03"));
  EXPECT_EQ(Seen(document, 0, 1).value, Hex("03 00 00 00"));
  EXPECT_EQ(Seen(document, 0, 2).result, 20);
  EXPECT_EQ(document.DeleteNode(12345, 0, 1, kEnd), 0);
  EXPECT_EQ(document.DeleteNode(0, 0, 0, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 02 30 00"));
  EXPECT_EQ(document.DeleteNode(0, 0, 0, kEnd), 20);
  EXPECT_EQ(document.DeleteNode(0, 1, kEnd), 20);
  EXPECT_EQ(document.DeleteNode(0, -1, kEnd), 20);
  EXPECT_EQ(document.DeleteNode(0, 0, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));
}

// What goes has headers of every length.
TEST(DeleteTest, LongNodes) {
  TASN1 document(0x30);
  document.AddChild(0x30, 0, nullptr, kEnd);
  for (const std::uint32_t length : {127U, 128U, 256U, 65536U}) {
    const Octets value(length, 0x11);
    EXPECT_EQ(document.AddChild(0x04, length, value.data(), 0, kEnd), 0);
    EXPECT_EQ(document.DeleteNode(0, 0, 0, kEnd), 0);
    EXPECT_EQ(EncodingOf(document), Hex("30 02 30 00")) << length;
  }
}

TEST(DeleteTest, RootKeepsItsTag) {
  Parsed document("31 05 30 03 02 01 05");
  EXPECT_EQ(document.DeleteNode(0, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 00"));
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 02 05 00"));
  Parsed primitive("04 02 AA BB");
  EXPECT_EQ(primitive.DeleteNode(0, kEnd), 0);
  EXPECT_EQ(EncodingOf(primitive), Hex("04 00"));
}

// Clear leaves the root's header, and with it the length of what it has released.
TEST(ClearTest, HeaderStays) {
  Parsed document("30 05 30 03 02 01 05");
  document.Clear();
  EXPECT_EQ(SizeOf(document), 7U);
  EXPECT_EQ(Seen(document).length, 5U);
  EXPECT_EQ(Seen(document).count, 0U);
  Octets octets(7, 0xEE);
  EXPECT_EQ(document.Encode(octets.data(), kEnd), 0);
  EXPECT_EQ(octets, Hex("30 05 EE EE EE EE EE"));
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, kEnd), 0);
  EXPECT_EQ(SizeOf(document), 9U);
  EXPECT_EQ(document.DeleteNode(0, 0, kEnd), 0);
  EXPECT_EQ(SizeOf(document), 7U);
  // Retagged, the octets that are gone are zero.
  EXPECT_EQ(document.SetTag(0x04, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("04 05 00 00 00 00 00"));
  // A primitive root has nothing below it.
  document.Clear();
  EXPECT_EQ(EncodingOf(document), Hex("04 05 00 00 00 00 00"));
}

// Nor does anything come back of a content that does not fit into the record.
TEST(ClearTest, RetaggedRootIsZero) {
  TASN1 document(0x30);
  const Octets value(100, 0x11);
  EXPECT_EQ(document.AddChild(0x04, 100, value.data(), kEnd), 0);
  document.Clear();
  EXPECT_EQ(document.SetTag(0x04, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("04 66") + Octets(102, 0));
}

TEST(ClearTest, DocumentIsUsedAgain) {
  Parsed document("30 05 30 03 02 01 05");
  document.Clear();
  EXPECT_EQ(document.DeleteNode(0, kEnd), 0);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));
  EXPECT_EQ(ParseOf(document, Hex("30 02 05 00")), 0);
  document.Clear();
  EXPECT_EQ(ParseOf(document, Hex("31 02 05 00")), 0);
  EXPECT_EQ(EncodingOf(document), Hex("31 02 05 00"));
}

// A constructed string whose children are gone: the length that is left does not become content.
TEST(ClearTest, StringRootWithoutChildren) {
  for (const std::uint8_t kind : {std::uint8_t{0x04}, std::uint8_t{0x03}}) {
    TASN1 document(kind | 0x20U);
    EXPECT_EQ(document.AddChild(kind, 3, "abcdef", kEnd), 0);
    const std::uint32_t size = SizeOf(document);
    document.Clear();
    EXPECT_EQ(SizeOf(document), size);
    EXPECT_EQ(document.ParseInto(Image(Hex("00 00")).Data(), kEnd), 0);
    EXPECT_EQ(EncodingOf(document), (Octets{kind, 0}));
  }
}

TEST(EncodeTest, Subtrees) {
  Parsed document("30 0A 30 03 02 01 05 A0 03 04 01 AA");
  EXPECT_EQ(EncodingOf(document, 0), Hex("30 03 02 01 05"));
  EXPECT_EQ(EncodingOf(document, 0, 0), Hex("02 01 05"));
  EXPECT_EQ(EncodingOf(document, 1), Hex("A0 03 04 01 AA"));
  EXPECT_EQ(SizeOf(document, 1, 0), 3U);
}

}  // namespace
}  // namespace zarext
