// Replays the inputs of the fuzz targets: seeds, and whatever once found something.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "unit/outside_properties.h"

namespace zarext::test {
namespace {

struct Target {
  const char* name;
  std::string (*function)(std::span<const std::uint8_t>);
  std::size_t leastInputs;
};

class OutsideCorpus : public testing::TestWithParam<Target> {};

TEST_P(OutsideCorpus, FindsNothing) {
  std::size_t inputs = 0;
  const std::filesystem::path folder = std::filesystem::path(ZAREXT_CORPUS) / GetParam().name;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<std::uint8_t> octets{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ("", GetParam().function(octets)) << entry.path().filename();
    ++inputs;
  }
  EXPECT_GE(inputs, GetParam().leastInputs);
}

INSTANTIATE_TEST_SUITE_P(Targets, OutsideCorpus,
                         testing::Values(Target{"shared_block", CheckSharedBlock, 35},
                                         Target{"key_records", CheckKeyRecords, 30},
                                         Target{"key_blobs", CheckKeyBlobs, 60}),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace
}  // namespace zarext::test
