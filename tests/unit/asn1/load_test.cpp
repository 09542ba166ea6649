// Checking of images, and the reading of headers.

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

struct LoadCase {
  const char* image;
  std::int32_t result;
};

class LoadTest : public testing::TestWithParam<LoadCase> {};

TEST_P(LoadTest, GivesResultAndBuildsNothing) {
  TASN1 document(0x30);
  EXPECT_EQ(LoadOf(document, Hex(GetParam().image)), GetParam().result);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));
}

INSTANTIATE_TEST_SUITE_P(
    Definite, LoadTest,
    testing::Values(
        LoadCase{"30 00", 0}, LoadCase{"04 00", 0}, LoadCase{"00 00", 0},
        LoadCase{"30 03 02 01 05", 0}, LoadCase{"30 82 00 03 02 01 05", 0},
        LoadCase{"30 84 00 00 00 03 02 01 05", 0}, LoadCase{"1F 03 1F 01 05", 0},
        // Header and content are not as long as the image.
        LoadCase{"30 03 02 01", 10}, LoadCase{"30 02 02 01 05", 10}, LoadCase{"04 01", 10},
        LoadCase{"30 84 FF FF FF FF", 10}, LoadCase{"30 84 FF FF FF FC 00 00", 10},
        // The root check comes first; inside, the same length octet is unreadable.
        LoadCase{"30 85 00 00 00 00 00", 10}, LoadCase{"30 FF", 10}, LoadCase{"30 02 30 85", 1},
        LoadCase{"30 06 30 04 02 00 04 FF", 1}, LoadCase{"30 07 02 85 00 00 00 00 01", 1},
        // Nothing, and parts of a header.
        LoadCase{"", 10}, LoadCase{"30", 10}, LoadCase{"30 81", 10}, LoadCase{"30 82 01", 10},
        // A header that ends beyond the image, or would.
        LoadCase{"30 01 02", 2}, LoadCase{"30 04 02 01 05 02", 2},
        LoadCase{"30 05 02 01 05 02 82", 2}, LoadCase{"30 06 04 01 AA 04 84 00", 2},
        LoadCase{"30 02 30 01", 2}, LoadCase{"30 06 30 84 80 00 00 00", 2},
        LoadCase{"30 04 30 05 02 00", 2},
        // Children beyond the end of their element; a length that must not wrap.
        LoadCase{"30 04 02 03 05 06", 4}, LoadCase{"30 06 04 84 FF FF FF FA", 4},
        LoadCase{"30 06 04 84 FF FF FF FF", 4}, LoadCase{"30 06 04 84 7F FF FF FF", 4},
        LoadCase{"30 07 30 02 02 02 05 06 07", 4}, LoadCase{"30 04 30 03 02 01", 4},
        LoadCase{"30 06 30 02 04 02 AA BB", 4}));

INSTANTIATE_TEST_SUITE_P(
    Indefinite, LoadTest,
    testing::Values(LoadCase{"30 80 00 00", 0}, LoadCase{"30 80 02 01 05 00 00", 0},
                    LoadCase{"30 80 30 80 00 00 00 00", 0}, LoadCase{"30 06 30 80 05 00 00 00", 0},
                    // Any tag opens: a primitive element with indefinite length is skipped whole.
                    LoadCase{"04 80 04 01 AA 00 00", 0},
                    LoadCase{"30 80 04 80 01 01 AA 00 00 00 00", 0}, LoadCase{"00 80 00 00", 0},
                    // Constructed elements are entered: a pair inside one closes what is around it.
                    LoadCase{"30 80 30 02 00 00", 0}, LoadCase{"30 80 30 02 00 00 00 00", 10},
                    // Primitive ones are not.
                    LoadCase{"30 80 04 02 00 00 00 00", 0},
                    // Not closed.
                    LoadCase{"30 80", 10}, LoadCase{"30 80 00", 10}, LoadCase{"30 80 02 01 05", 10},
                    LoadCase{"30 80 30 80 00 00", 10}, LoadCase{"30 80 04 05 00 00", 10},
                    LoadCase{"30 80 02 85 00 00", 10}, LoadCase{"30 80 02 82 00 00 00", 10},
                    LoadCase{"30 02 04 80", 4}, LoadCase{"30 02 30 80", 2},
                    LoadCase{"30 05 30 80 30 85 00", 1}));

TEST(LoadTest, NoImage) {
  TASN1 document(0x30);
  EXPECT_EQ(document.Load(nullptr, 0), 10);
  EXPECT_EQ(document.Load(nullptr, 4), 10);
}

// The closing pair is looked for in the first 65,535 octets.
TEST(LoadTest, ClosingPairAtTheEndOfTheSearch) {
  TASN1 document(0x30);
  // 2 + (4 + n) octets before the pair.
  const auto image = [](std::size_t pair) {
    const std::size_t filler = pair - 6;
    return Hex("30 80 04 82") +
           Octets{static_cast<std::uint8_t>(filler >> 8), static_cast<std::uint8_t>(filler)} +
           Octets(filler, 0x55) + Hex("00 00");
  };
  EXPECT_EQ(LoadOf(document, image(65533)), 0);
  EXPECT_EQ(LoadOf(document, image(65534)), 0);
  // One further, and the length is the limit: 2 + 65,535 octets, which is one more than the image.
  EXPECT_EQ(LoadOf(document, image(65535)), 0);
  EXPECT_EQ(LoadOf(document, image(65536)), 10);
}

// An image that is exactly as long as the limit makes it is accepted without a closing pair.
TEST(LoadTest, UnclosedImageOfTheLimitsSize) {
  TASN1 document(0x30);
  const Octets content = Hex("04 82 FF F7") + Octets(65527, 0x55);
  EXPECT_EQ(LoadOf(document, Hex("30 80") + content + Hex("02 02 01 02")), 0);
  EXPECT_EQ(LoadOf(document, Hex("30 80") + content + Hex("02 01 01")), 10);
  EXPECT_EQ(LoadOf(document, Hex("30 80") + content + Hex("02 03 01 02 03")), 10);
}

// A primitive element that begins at `position` of a SEQUENCE which ends at `end`.
Octets ImageUpTo(std::size_t position, const Octets& rest) {
  const std::size_t filler = position - 5 - 5;
  const std::size_t content = position - 5 + rest.size();
  const auto length = [](std::size_t value) {
    return Octets{0x83, static_cast<std::uint8_t>(value >> 16),
                  static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  };
  return Octets{0x30} + length(content) + Octets{0x04} + length(filler) + Octets(filler, 0x55) +
         rest;
}

// From position 65,535 on it is looked for in 15 octets, the header's two included; at 65,534 and
// before, up to position 65,534.
TEST(LoadTest, ClosingPairBeyondTheFirst65535Octets) {
  TASN1 document(0x30);
  const Octets close = Hex("00 00");
  for (const std::size_t position : {std::size_t{65535}, std::size_t{65600}, std::size_t{200000}}) {
    SCOPED_TRACE(position);
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("30 80 00 00"))), 0);
    // The pair begins at offset 14: the last that is found. At 15 the length is the limit, which
    // here comes to the same size.
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("30 80 04 0A") + Octets(10, 1) + close)), 0);
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("30 80 04 0B") + Octets(11, 1) + close)), 0);
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("30 80 04 0C") + Octets(12, 1) + close)), 4);
    // Not closed, but exactly 2 + 15 octets.
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("30 80 04 0D") + Octets(13, 1))), 0);
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("04 80") + Octets(15, 1))), 0);
    EXPECT_EQ(LoadOf(document, ImageUpTo(position, Hex("04 80") + Octets(14, 1))), 4);
  }
  // At 65,532 and 65,533 the pair would have to begin at 65,534 at the latest. Otherwise the
  // element reaches to 65,537.
  EXPECT_EQ(LoadOf(document, ImageUpTo(65532, Hex("30 80 00 00"))), 0);
  EXPECT_EQ(LoadOf(document, ImageUpTo(65533, Hex("04 80 00 00"))), 0);
  EXPECT_EQ(LoadOf(document, ImageUpTo(65534, Hex("04 80 01"))), 0);
  EXPECT_EQ(LoadOf(document, ImageUpTo(65534, Hex("04 80 00 00"))), 2);
  EXPECT_EQ(LoadOf(document, ImageUpTo(65530, Hex("04 80 05 03 01 02 03"))), 0);
  EXPECT_EQ(LoadOf(document, ImageUpTo(65530, Hex("04 80 05 03 01 02 03 00 00"))), 0);
}

TEST(LoadTest, HugeImagesOfNothingButHeaders) {
  TASN1 document(0x30);
  EXPECT_EQ(LoadOf(document, Repeat(Hex("30 80"), 32768)), 10);
  const Octets open = Repeat(Hex("30 80"), 16000);
  EXPECT_EQ(LoadOf(document, open + Repeat(Hex("00 00"), 16000)), 0);
  EXPECT_EQ(LoadOf(document, Hex("30 83 00 FA 00") + open + Repeat(Hex("00 00"), 16000)), 0);
  // One closing pair is missing.
  EXPECT_EQ(LoadOf(document, Hex("30 83 00 F9 FE") + open + Repeat(Hex("00 00"), 15999)), 2);
}

TEST(LoadTest, HugeDepthOfDefiniteLengths) {
  Octets image = Nested(200000, Hex("04 01 AA"));
  TASN1 document(0x30);
  EXPECT_EQ(LoadOf(document, image), 0);
  image[image.size() - 2] = 2;
  EXPECT_EQ(LoadOf(document, image), 4);
  image[image.size() - 2] = 0x85;
  EXPECT_EQ(LoadOf(document, image), 1);
}

struct HeaderCase {
  const char* octets;
  std::int32_t size;
  std::uint8_t tag;
  std::uint32_t length;
};

class HeaderTest : public testing::TestWithParam<HeaderCase> {};

TEST_P(HeaderTest, ReadHeader) {
  const TASN1 document(0x30);
  const Image image(Hex(GetParam().octets));
  std::uint8_t tag = 0xEE;
  std::uint32_t length = 0xEEEE;
  EXPECT_EQ(document.ReadHeader(image.Data(), &tag, &length), GetParam().size);
  EXPECT_EQ(tag, GetParam().tag);
  EXPECT_EQ(length, GetParam().length);
  tag = 0xEE;
  length = 0xEEEE;
  EXPECT_EQ(document.ReadHeader({image.Data(), image.Size()}, &tag, &length), GetParam().size);
  EXPECT_EQ(tag, GetParam().tag);
  EXPECT_EQ(length, GetParam().length);
  EXPECT_EQ(document.ReadHeader(image.Data(), nullptr, nullptr), GetParam().size);
  EXPECT_EQ(document.ReadHeader({image.Data(), image.Size()}, nullptr, nullptr), GetParam().size);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, HeaderTest,
    testing::Values(HeaderCase{"30 00", 2, 0x30, 0}, HeaderCase{"04 7F", 2, 0x04, 127},
                    HeaderCase{"04 81 05", 3, 0x04, 5}, HeaderCase{"04 81 FF", 3, 0x04, 255},
                    HeaderCase{"04 82 01 02", 4, 0x04, 0x102},
                    HeaderCase{"04 83 01 02 03", 5, 0x04, 0x10203},
                    HeaderCase{"BF 84 FE 02 03 04", 6, 0xBF, 0xFE020304},
                    HeaderCase{"04 85", 0, 0x04, 0}, HeaderCase{"30 FF", 0, 0x30, 0},
                    // The length counts the header, so that it reaches behind the closing pair.
                    HeaderCase{"30 80 00 00", 2, 0x30, 2},
                    HeaderCase{"30 80 02 01 05 00 00", 2, 0x30, 5},
                    HeaderCase{"30 80 30 80 00 00 00 00", 2, 0x30, 6},
                    HeaderCase{"30 80 30 85 00 00", 2, 0x30, 65535},
                    // A zero octet alone closes nothing, neither as identifier nor as length.
                    HeaderCase{"30 80 00 01 AA 05 00 00 00", 2, 0x30, 7}));

TEST(HeaderTest, OfImagesTooShort) {
  const TASN1 document(0x30);
  std::uint32_t length = 1;
  for (const char* text : {"", "30", "30 81", "30 82 00", "30 84 00 00 00"}) {
    const Image image(Hex(text));
    length = 1;
    EXPECT_EQ(document.ReadHeader({image.Data(), image.Size()}, nullptr, &length), 0) << text;
    EXPECT_EQ(length, 0U) << text;
  }
  // Not closed: at the end of the image, and where half a header is left.
  for (const char* text : {"30 80 02 01 05", "30 80 05", "30 80 00", "30 80 02 82 01"}) {
    const Image open(Hex(text));
    EXPECT_EQ(document.ReadHeader({open.Data(), open.Size()}, nullptr, &length), 2) << text;
    EXPECT_EQ(length, 65535U) << text;
  }
}

}  // namespace
}  // namespace zarext
