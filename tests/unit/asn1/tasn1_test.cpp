#include <cstring>
#include <memory>
#include <stdexcept>

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

struct LoadCase {
  const char* image;
  std::int32_t result;
};

class LoadTest : public testing::TestWithParam<LoadCase> {};

TEST_P(LoadTest, Result) {
  TASN1 document(0x30);
  EXPECT_EQ(LoadOf(document, Hex(GetParam().image)), GetParam().result);
  EXPECT_EQ(EncodingOf(document), Hex("30 00"));  // nothing is built
}

INSTANTIATE_TEST_SUITE_P(
    Images, LoadTest,
    testing::Values(LoadCase{"30 00", 0}, LoadCase{"30 03 02 01", 10},
                    LoadCase{"30 03 02 01 05", 0},
                    // The root check comes first; inside, the same length octet is unreadable.
                    LoadCase{"30 85 00 00 00 00 00", 10}, LoadCase{"30 02 30 85", 1},
                    // Nothing, and half a header.
                    LoadCase{"", 10}, LoadCase{"30", 10}, LoadCase{"30 82 01", 10},
                    // A header that ends beyond the image.
                    LoadCase{"30 04 02 01 05 02", 2}, LoadCase{"30 05 02 01 05 02 82", 2},
                    LoadCase{"30 06 04 01 AA 04 84 00", 2},
                    // Content that ends beyond its element, and a length that must not wrap.
                    LoadCase{"30 04 02 03 05 06", 4}, LoadCase{"30 06 04 84 FF FF FF FA", 4},
                    LoadCase{"30 07 30 02 02 02 05 06 07", 4}));

struct ParseCase {
  const char* image;
  const char* encoding;
};

class ParseTest : public testing::TestWithParam<ParseCase> {};

TEST_P(ParseTest, Encoding) {
  TASN1 document(0x30);
  const Octets octets = Hex(GetParam().image);
  EXPECT_EQ(LoadOf(document, octets), 0);
  EXPECT_EQ(ParseOf(document, octets), 0);
  EXPECT_EQ(EncodingOf(document), Hex(GetParam().encoding));
}

INSTANTIATE_TEST_SUITE_P(
    Images, ParseTest,
    testing::Values(ParseCase{"30 80 02 01 05 00 00", "30 03 02 01 05"},
                    ParseCase{"24 80 04 02 AA BB 04 01 CC 00 00", "04 03 AA BB CC"},
                    ParseCase{"23 08 03 02 00 AA 03 02 04 B0", "03 04 04 00 AA B0"},
                    ParseCase{"30 82 00 03 02 01 05", "30 03 02 01 05"}));

}  // namespace
}  // namespace zarext
