// The guard that the handed-out module is compiled with. This file is compiled with the same
// option.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <optional>

#include "support/child_process.h"

// The compiler's name for the value.
extern "C" std::uintptr_t
    __stack_chk_guard;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace zarext::test {
namespace {

// Writes `count` octets into a buffer of 16, however many they are.
[[gnu::noinline]] int FillSixteen(std::size_t count) {
  char buffer[16] = {};
  volatile char* const octets = buffer;
  for (std::size_t i = 0; i < count; ++i) {
    octets[i] = 'A';
  }
  return octets[0];
}

ZAREXT_CHILD(FillTheBuffer) { return FillSixteen(16) == 'A' ? 0 : 1; }
ZAREXT_CHILD(RunOver) { return FillSixteen(48) == 'A' ? 0 : 1; }

TEST(StackGuard, AnOverrunEndsTheProcessAtOnce) {
  EXPECT_EQ(0u, ChildProcess("FillTheBuffer").Wait());
  EXPECT_EQ(0xC0000409u, ChildProcess("RunOver").Wait());
}

TEST(StackGuard, BeginsWithAZeroOctet) {
  unsigned char octets[sizeof __stack_chk_guard];
  std::memcpy(octets, &__stack_chk_guard, sizeof octets);
  EXPECT_EQ(0, octets[0]);
  EXPECT_NE(0u, __stack_chk_guard);
}

// Eight bits of it; three processes with the same ones are one run in 65,536.
ZAREXT_CHILD(ShowGuard) { return static_cast<int>((__stack_chk_guard >> 32U) & 0xFFU); }

TEST(StackGuard, DiffersFromProcessToProcess) {
  const auto first = ChildProcess("ShowGuard").Wait();
  const auto second = ChildProcess("ShowGuard").Wait();
  const auto third = ChildProcess("ShowGuard").Wait();
  EXPECT_TRUE(first != second || second != third);
}

}  // namespace
}  // namespace zarext::test
