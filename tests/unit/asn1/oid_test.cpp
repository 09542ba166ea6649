#include "asn1/oid.h"

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

Octets ContentOf(const char* text) {
  std::uint8_t out[kMaxOidContent + 4];
  std::fill(std::begin(out), std::end(out), std::uint8_t{0xEE});
  const std::int32_t length = OidTextToContent(text, out);
  EXPECT_GE(length, 1);
  EXPECT_LE(length, 249);
  for (std::int32_t i = length; i < length + 4; ++i) EXPECT_EQ(out[i], 0xEE);
  return {out, out + length};
}

struct ContentCase {
  const char* text;
  const char* content;
};

class OidContentTest : public testing::TestWithParam<ContentCase> {};

TEST_P(OidContentTest, FromText) { EXPECT_EQ(ContentOf(GetParam().text), Hex(GetParam().content)); }

INSTANTIATE_TEST_SUITE_P(
    Texts, OidContentTest,
    testing::Values(
        ContentCase{"1.2", "2A"}, ContentCase{"1.2.840.113549", "2A 86 48 86 F7 0D"},
        ContentCase{"1.2.643.2.2.19", "2A 85 03 02 02 13"},
        ContentCase{"1.3.6.1.4.1.32473.1.5.8", "2B 06 01 04 01 81 FD 59 01 05 08"},
        ContentCase{"1.2.398.3.10.1.1.1.1", "2A 83 0E 03 0A 01 01 01 01"},
        // One arc, or none.
        ContentCase{"1", "28"}, ContentCase{"", "00"}, ContentCase{".", "00"},
        // Base 128.
        ContentCase{"1.2.0", "2A 00"}, ContentCase{"1.2.127", "2A 7F"},
        ContentCase{"1.2.128", "2A 81 00"}, ContentCase{"1.2.16383", "2A FF 7F"},
        ContentCase{"1.2.16384", "2A 81 80 00"}, ContentCase{"1.2.2097151", "2A FF FF 7F"},
        ContentCase{"1.2.2097152", "2A 81 80 80 00"},
        ContentCase{"1.2.268435455", "2A FF FF FF 7F"},
        // From 2^28 on the upper bits are lost.
        ContentCase{"1.2.268435456", "2A 80 80 80 00"},
        ContentCase{"1.2.268435457", "2A 80 80 80 01"},
        ContentCase{"1.2.2147483647", "2A FF FF FF 7F"},
        // Out of range: the nearest number.
        ContentCase{"1.2.2147483648", "2A FF FF FF 7F"},
        ContentCase{"1.2.99999999999999999999", "2A FF FF FF 7F"},
        ContentCase{"1.2.-2147483648", "2A 80 80 80 00"},
        ContentCase{"1.2.-99999999999999999999", "2A 80 80 80 00"},
        ContentCase{"1.2.-1", "2A FF FF FF 7F"}, ContentCase{"1.2.-5", "2A FF FF FF 7B"},
        // The first octet is taken modulo 256 and not checked.
        ContentCase{"2.5", "55"}, ContentCase{"3.0", "78"}, ContentCase{"2.100", "B4"},
        ContentCase{"2.999.3", "37 03"}, ContentCase{"6.15", "FF"}, ContentCase{"6.16", "00"},
        ContentCase{"0.-1", "FF"}, ContentCase{"2147483647.2147483647", "D7"},
        // Dots.
        ContentCase{".1.2.3", "2A 03"}, ContentCase{"..1...2..3..", "2A 03"},
        ContentCase{"1.2.3.", "2A 03"},
        // Numbers as the platform reads them.
        ContentCase{"1.2. 3", "2A 03"}, ContentCase{"1.2.\t\n\v\f\r 3", "2A 03"},
        ContentCase{"1.2.+3", "2A 03"}, ContentCase{"1.2.3x.4", "2A 03 04"},
        ContentCase{"1.2.x.4", "2A 00 04"}, ContentCase{"1.2.+-3", "2A 00"},
        ContentCase{"1.2.3 4", "2A 03"}, ContentCase{"1.2.0x10", "2A 00"},
        ContentCase{"1.2.\x08 3", "2A 00"}, ContentCase{"1.2.\x0E 3", "2A 00"},
        ContentCase{"1.2.+", "2A 00"}, ContentCase{"1.2. ", "2A 00"},
        ContentCase{"1.2.007", "2A 07"}, ContentCase{"1,2.3", "2B"}));

TEST(OidContentTest, NoText) { EXPECT_EQ(ContentOf(nullptr), Hex("00")); }

TEST(OidContentTest, SixtyFourArcs) {
  std::string text = "1.2";
  Octets content = Hex("2A");
  for (int arc = 3; arc <= 64; ++arc) {
    text += ".268435455";
    content = content + Hex("FF FF FF 7F");
  }
  EXPECT_EQ(content.size(), 249U);
  EXPECT_EQ(kMaxOidContent, 249);
  EXPECT_EQ(ContentOf(text.c_str()), content);
  EXPECT_EQ(ContentOf((text + ".1").c_str()), content);
  EXPECT_EQ(ContentOf((text + ".1.2.3.4").c_str()), content);
}

class OidTextTest : public testing::TestWithParam<ContentCase> {};

TEST_P(OidTextTest, FromContent) {
  const Image content(Hex(GetParam().content));
  EXPECT_EQ(OidContentToText(content.Data(), content.Size()), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, OidTextTest,
    testing::Values(ContentCase{"", ""}, ContentCase{"1.2", "2A"},
                    ContentCase{"1.2.840.113549", "2A 86 48 86 F7 0D"},
                    ContentCase{"1.3.6.1.4.1.32473.1.5.8", "2B 06 01 04 01 81 FD 59 01 05 08"},
                    // The first octet alone, always as 40 times the first arc.
                    ContentCase{"0.0", "00"}, ContentCase{"0.39", "27"}, ContentCase{"1.0", "28"},
                    ContentCase{"2.0", "50"}, ContentCase{"2.39", "77"}, ContentCase{"3.0", "78"},
                    ContentCase{"6.15", "FF"}, ContentCase{"3.8.55", "80 37"},
                    ContentCase{"1.2.127", "2A 7F"}, ContentCase{"1.2.128", "2A 81 00"},
                    ContentCase{"1.2.0.5", "2A 80 00 05"},
                    ContentCase{"1.2.268435455", "2A FF FF FF 7F"},
                    // An arc that does not end is dropped.
                    ContentCase{"1.2", "2A 81"}, ContentCase{"1.2.5", "2A 05 FF FF"},
                    // 32 bits with a sign.
                    ContentCase{"1.2.2147483647", "2A 87 FF FF FF 7F"},
                    ContentCase{"1.2.-2147483648", "2A 88 80 80 80 00"},
                    ContentCase{"1.2.-1", "2A 8F FF FF FF 7F"},
                    ContentCase{"1.2.0", "2A 90 80 80 80 00"},
                    ContentCase{"1.2.-1", "2A FF FF FF FF FF FF 7F"}));

TEST(OidTextTest, SixtyThreeArcs) {
  const auto arcs = [](std::size_t count) {
    const Octets content = Hex("2A") + Octets(count - 2, 0x01);
    return OidContentToText(content.data(), static_cast<std::uint32_t>(content.size()));
  };
  std::string text = "1.2";
  for (int arc = 3; arc <= 63; ++arc) text += ".1";
  EXPECT_EQ(arcs(63), text);
  EXPECT_EQ(arcs(64), text);
  EXPECT_EQ(arcs(200), text);
  EXPECT_EQ(arcs(62) + ".1", text);
}

TEST(OidTextTest, EndsWithTheArcThatExceeds256Characters) {
  // 3 + 23 * 11 = 256 characters are not longer than 256: one arc more, and no further.
  const Octets big = Hex("84 80 80 80 00");  // 2^30, eleven characters with its dot
  const Octets content = Hex("2A") + Repeat(big, 23);
  std::string text = "1.2";
  for (int i = 0; i < 23; ++i) text += ".1073741824";
  ASSERT_EQ(text.size(), 256U);
  const auto convert = [](const Octets& octets) {
    return OidContentToText(octets.data(), static_cast<std::uint32_t>(octets.size()));
  };
  EXPECT_EQ(convert(content), text);
  EXPECT_EQ(convert(content + big), text + ".1073741824");
  EXPECT_EQ(convert(content + big + Hex("05")), text + ".1073741824");
  EXPECT_EQ(convert(content + Hex("05")), text + ".5");
  EXPECT_EQ(convert(content + Hex("05 06")), text + ".5");
  // 257 characters: nothing more.
  const Octets exact = Hex("5A") + Repeat(big, 23);
  EXPECT_EQ(convert(exact).size(), 257U);
  EXPECT_EQ(convert(exact + Hex("05")), "2.10" + text.substr(3));
  // Nor behind 259.
  const Octets longer = Hex("78") + Repeat(big, 22) + Hex("8F FF FF FF 7F 83 FF FF FF 7F");
  const std::string longerText = convert(longer);
  EXPECT_EQ(longerText.substr(longerText.size() - 3), "823");
  EXPECT_EQ(longerText.size(), 3U + 22 * 11 + 3 + 11);
  EXPECT_EQ(convert(longer + Hex("05")), longerText);
}

TEST(OwnAlgorithmTest, ThreeArcsAnywhereInTheText) {
  for (const char* own : {"1.2.643.2.2.19", "1.3.6.1.4.1.32473.1.5.8", "1.2.398.3.10.1.1.1.2",
                          "1.2.398.3.10.1", "1.2.398.3.10.10", "1.2.643.2.2.", "1.3.6.1.4.1.32473.",
                          "2.1.2.643.2.2.3", "x1.2.398.3.10.1", "11.3.6.1.4.1.32473.5"}) {
    EXPECT_TRUE(IsOwnAlgorithmOid(own)) << own;
  }
  for (const char* other :
       {"", "1.2.643.2.2", "1.2.643.7.1.1.1.1", "1.2.840.113549.1.1.1", "1.3.6.1.4.1.32473",
        "1.3.6.1.4.1.324730.1", "1.2.398.3.10", "1.2.398.3.10.2", "1.2.643.2.20.1", "1.2.643.2."}) {
    EXPECT_FALSE(IsOwnAlgorithmOid(other)) << other;
  }
  EXPECT_FALSE(IsOwnAlgorithmOid(nullptr));
}

}  // namespace
}  // namespace zarext
