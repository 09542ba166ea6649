// Replays the inputs of a fuzz target: seeds, and whatever once found something.
#ifndef ZAREXT_TESTS_UNIT_CORPUS_REPLAY_H_
#define ZAREXT_TESTS_UNIT_CORPUS_REPLAY_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace zarext::test {

struct FuzzTarget {
  const char* name;
  std::string (*function)(std::span<const std::uint8_t>);  // what is wrong, or nothing
  std::size_t leastInputs;
};

class CorpusReplay : public testing::TestWithParam<FuzzTarget> {
 protected:
  static void FindNothing() {
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
};

inline std::string TargetName(const testing::TestParamInfo<FuzzTarget>& target) {
  return target.param.name;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_CORPUS_REPLAY_H_
