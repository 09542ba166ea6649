#include "frame/trace.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <ctime>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/debug_channel.h"
#include "support/import_patch.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

const std::regex kPrefix(
    "^id=(-?[0-9]+) : tm=(Mon|Tue|Wed|Thu|Fri|Sat|Sun) "
    "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
    "[ 0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3} : (.*)$");

TEST(Trace, PutsThreadAndTimeInFrontAndNothingBehind) {
  TraceCapture capture;
  Trace("EXT : Name : value = %x.", 0xABCu);
  const auto lines = capture.Lines();
  ASSERT_EQ(1u, lines.size());
  std::smatch match;
  ASSERT_TRUE(std::regex_match(lines[0], match, kPrefix)) << lines[0];
  EXPECT_EQ(std::to_string(GetCurrentThreadId()), match[1]);
  EXPECT_EQ("EXT : Name : value = abc.", match[4]);
}

TEST(Trace, ShowsTheLocalTime) {
  const std::time_t before = std::time(nullptr);
  TraceCapture capture;
  Trace("x");
  const std::time_t after = std::time(nullptr);
  const std::string line = capture.Lines().at(0);
  const std::string shown = line.substr(line.find("tm=") + 3, 19);
  bool found = false;
  for (std::time_t second = before; second <= after; ++second) {
    found = found || shown == std::string(std::ctime(&second)).substr(0, 19);
  }
  EXPECT_TRUE(found) << line;
}

TEST(Trace, ShowsTheMillisecondsOfTheClock) {
  std::set<std::string> shown;
  for (int line = 0; line < 40; ++line) {
    SYSTEMTIME before = {};
    SYSTEMTIME after = {};
    TraceCapture capture;
    GetLocalTime(&before);
    Trace("x");
    GetLocalTime(&after);
    const std::string text = capture.Lines().at(0);
    const std::string milliseconds = text.substr(text.find("tm=") + 23, 3);
    shown.insert(milliseconds);
    const int value = std::stoi(milliseconds);
    if (before.wMilliseconds <= after.wMilliseconds) {
      EXPECT_LE(before.wMilliseconds, value) << text;
      EXPECT_GE(after.wMilliseconds, value) << text;
    }
    Sleep(7);
  }
  EXPECT_GT(shown.size(), 10u);
}

// The system clock moves from 00:00:01.999 to 00:00:03.001 between two readings.
void WINAPI LateSecond(FILETIME* time) {
  static bool isSecond = false;
  constexpr unsigned long long kUntil1970 = 116'444'736'000'000'000;
  const unsigned long long units = kUntil1970 + (isSecond ? 30'010'000 : 19'990'000);
  isSecond = !isSecond;
  *time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32U)};
}

TEST(Trace, TakesSecondsAndMillisecondsFromTwoReadingsOfTheClock) {
  const ImportPatch clock(GetModuleHandleA(nullptr), "KERNEL32.dll", "GetSystemTimeAsFileTime",
                          &LateSecond);
  TraceCapture capture;
  Trace("x");
  const std::string line = capture.Lines().at(0);
  EXPECT_EQ(":01.001 : x", line.substr(line.size() - 11)) << line;
}

class TraceLength : public testing::TestWithParam<std::size_t> {};

TEST_P(TraceLength, WritesTheWholeLine) {
  const std::string text(GetParam(), 'y');
  TraceCapture capture;
  Trace("%s", text.c_str());
  EXPECT_THAT(capture.Messages(), ElementsAre(text));
}

INSTANTIATE_TEST_SUITE_P(AroundTheBuffer, TraceLength,
                         testing::Values(0, 4000, 4095, 4096, 20000, 100000));

TEST(Trace, SeveralThreadsDoNotMixLines) {
  TraceCapture capture;
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([number] {
      for (int line = 0; line < 100; ++line) {
        Trace("thread %i line %i id %i", number, line, Int(GetCurrentThreadId()));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto lines = capture.Lines();
  ASSERT_EQ(800u, lines.size());
  std::map<int, int> next;
  for (const std::string& line : lines) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, kPrefix)) << line;
    int number = 0;
    int index = 0;
    unsigned long id = 0;
    ASSERT_EQ(3, sscanf(match[4].str().c_str(), "thread %d line %d id %lu", &number, &index, &id));
    EXPECT_EQ(next[number]++, index);
    EXPECT_EQ(std::to_string(id), match[1]);
  }
}

TEST(Trace, LeavesTheLastErrorWithAndWithoutADebugger) {
  SetLastError(1234);
  Trace("no debugger");
  EXPECT_EQ(1234u, GetLastError());
  TraceCapture capture;
  SetLastError(1235);
  Trace("captured");
  EXPECT_EQ(1235u, GetLastError());
}

ZAREXT_CHILD(TraceToTheChannel) {
  // Through a variable: the compiler would refuse the constant.
  const char* volatile missing = nullptr;
  SetLastError(77);
  Trace("EXT : Child : first = %i.", 1);
  Trace("EXT : Child : second = %s.", missing);
  return GetLastError() == 77 ? 0 : 1;
}

TEST(Trace, ReachesADebuggerProcess) {
  DebugChannel channel;
  const ChildProcess child("TraceToTheChannel");
  ASSERT_EQ(0u, child.Wait());
  Sleep(100);
  std::vector<std::string> messages;
  for (const std::string& line : channel.Lines(child.Id())) {
    messages.push_back(WithoutPrefix(line));
  }
  // The frame is linked into this program, whose start is not a module's attach.
  EXPECT_THAT(messages, ElementsAre("EXT : Child : first = 1.", "EXT : Child : second = (null)."));
}

}  // namespace
}  // namespace zarext::test
