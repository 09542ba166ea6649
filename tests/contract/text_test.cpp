#include "frame/text.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "support/import_patch.h"

namespace zarext {
namespace {

using test::ImportPatch;

template <typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
  char text[256] = {};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int count = FormatText(text, format, arguments...);
#pragma GCC diagnostic pop
  EXPECT_EQ(static_cast<int>(std::string(text).size()), count);
  return text;
}

TEST(FormatText, FollowsThePlatformsRuntime) {
  EXPECT_EQ("00000000DEADBEEF", Formatted("%p", reinterpret_cast<void*>(0xDEADBEEF)));
  EXPECT_EQ("(null)", Formatted("%s", static_cast<const char*>(nullptr)));
  EXPECT_EQ("fffffffb", Formatted("%x", -5));
  EXPECT_EQ("1234", Formatted("%.19s.%.3hu", "1234", 7).substr(0, 4));
  EXPECT_EQ("1234.007", Formatted("%.19s.%.3hu", "1234", 7));
  EXPECT_EQ("1234.002", Formatted("%.19s.%.3hu", "1234", 65538));
}

TEST(FormatText, GivesMinusOneWhereFormattingFails) {
  char text[64] = {};
  EXPECT_EQ(-1, FormatText(text, "%ls", L"\u0416"));
}

TEST(Hex, ShowsTheLowHalf) {
  EXPECT_EQ(0x89ABCDEFu, Hex(0x0123456789ABCDEFull));
  EXPECT_EQ(0x89ABCDEFu, Hex(reinterpret_cast<void*>(0x0123456789ABCDEFull)));
  EXPECT_EQ(-1, Int(DWORD{0xFFFFFFFF}));
}

class LineTextLength : public testing::TestWithParam<std::size_t> {};

TEST_P(LineTextLength, IsNeverCut) {
  const std::string text(GetParam(), 'x');
  LineText line;
  line.Append("%s", text.c_str());
  EXPECT_EQ(text.size(), line.Length());
  EXPECT_EQ(text, line.Text());
  line.Append("%s", "end");
  EXPECT_EQ(text + "end", line.Text());
  EXPECT_EQ(text.size() + 3, line.Length());
  line.Clear();
  EXPECT_STREQ("", line.Text());
  EXPECT_EQ(0u, line.Length());
  line.Append("%i", 7);
  EXPECT_STREQ("7", line.Text());
}

// The room of a line that was longer is given back with it.
TEST(LineText, HasTheBuffersRoomAgainWhenCleared) {
  const std::string text(5000, 'y');
  LineText line;
  line.Append("%s", std::string(20000, 'x').c_str());
  line.Clear();
  line.Append("%s", text.c_str());
  EXPECT_EQ(text.size(), line.Length());
  ASSERT_EQ(text, line.Text());
}

INSTANTIATE_TEST_SUITE_P(AroundTheBuffer, LineTextLength,
                         testing::Values(0, 1, 4091, 4092, 4093, 4094, 4095, 4096, 4097, 20000,
                                         100000));

void* RefuseLong(std::size_t size) {
  return size > kLineBufferSize ? nullptr : std::calloc(size, 1);
}

// Four thousand characters are better than none.
TEST(LineText, IsCutWithoutMemory) {
  const std::string text(5000, 'x');
  LineText line;
  {
    const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "malloc", &RefuseLong);
    line.Append("%s", text.c_str());
    EXPECT_EQ(std::string(4095, 'x'), line.Text());
    EXPECT_EQ(4095u, line.Length());
    line.Append("%s", "end");
  }
  EXPECT_EQ(std::string(4095, 'x'), line.Text());
}

TEST(LineText, KeepsWhatWasThereWhereFormattingFails) {
  LineText line;
  line.Append("before ");
  line.Append("%ls", L"\u0416");
  line.Append(" after");
  EXPECT_STREQ("before  after", line.Text());
}

int ThrowFromFormatting(char*, std::size_t, const char*, std::va_list) { throw 5ul; }

TEST(LineText, WhatTheRuntimeThrowsComesToTheCaller) {
  LineText line;
  line.Append("before");
  unsigned long thrown = 0;
  try {
    const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "_vsnprintf",
                            &ThrowFromFormatting);
    line.Append(" after");
  } catch (unsigned long code) {
    thrown = code;
  }
  EXPECT_EQ(5u, thrown);
  EXPECT_STREQ("before", line.Text());
}

}  // namespace
}  // namespace zarext
