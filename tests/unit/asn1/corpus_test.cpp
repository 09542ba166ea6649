// Replays the inputs of the fuzz targets: seeds, and whatever once found something.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "unit/asn1/differential.h"

namespace zarext {
namespace {

struct Target {
  const char* name;
  std::string (*function)(std::span<const std::uint8_t>);
  std::size_t leastInputs;
};

class Asn1Corpus : public testing::TestWithParam<Target> {};

TEST_P(Asn1Corpus, FindsNothing) {
  std::size_t inputs = 0;
  const std::filesystem::path folder = std::filesystem::path(ZAREXT_CORPUS) / GetParam().name;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const oracle::Octets octets{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(GetParam().function(octets), "") << entry.path().filename();
    ++inputs;
  }
  EXPECT_GE(inputs, GetParam().leastInputs);
}

INSTANTIATE_TEST_SUITE_P(Targets, Asn1Corpus,
                         testing::Values(Target{"asn1_image", CompareImage, 40},
                                         Target{"asn1_script", CompareScript, 12},
                                         Target{"asn1_oid", CompareOid, 15}),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace
}  // namespace zarext
