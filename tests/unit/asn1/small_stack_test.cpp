#include "asn1/small_stack.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace zarext {
namespace {

void PushUpTo(SmallStack<std::uint64_t>& stack, std::uint64_t from, std::uint64_t to) {
  for (std::uint64_t value = from; value < to; ++value) stack.Push(value);
}

void PopDownTo(SmallStack<std::uint64_t>& stack, std::uint64_t from, std::uint64_t to) {
  for (std::uint64_t value = from; value > to; stack.Pop()) ASSERT_EQ(stack.Top(), --value);
}

// Every depth up to 20,000 and back, past the ends of all pieces.
TEST(SmallStackTest, GivesBackInTheOrderOfAStack) {
  SmallStack<std::uint64_t> stack;
  EXPECT_TRUE(stack.IsEmpty());
  PushUpTo(stack, 0, 20000);
  EXPECT_FALSE(stack.IsEmpty());
  PopDownTo(stack, 20000, 0);
  EXPECT_TRUE(stack.IsEmpty());
}

// To and fro over each end of a piece: 32 entries, then 64, 128 and so on.
TEST(SmallStackTest, GoesToAndFroOverTheEndsOfItsPieces) {
  SmallStack<std::uint64_t> stack;
  std::uint64_t depth = 0;
  for (const std::uint64_t end : {32U, 96U, 224U, 480U, 992U, 2016U, 4064U, 8160U, 12256U}) {
    PushUpTo(stack, depth, end + 2);
    for (int times = 0; times < 3; ++times) {
      PopDownTo(stack, end + 2, end - 2);
      EXPECT_FALSE(stack.IsEmpty());
      PushUpTo(stack, end - 2, end + 2);
    }
    depth = end + 2;
  }
  PopDownTo(stack, depth, 0);
  EXPECT_TRUE(stack.IsEmpty());
}

}  // namespace
}  // namespace zarext
