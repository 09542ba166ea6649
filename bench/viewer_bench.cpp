// What a line of the module costs its writer: with nobody listening, with a viewer that only gives
// the buffer back, and with zarextctl trace.
//
// Run as viewer_bench.exe --child=Bench: the test support's entry point is linked in.
#include <windows.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <vector>

#include "bench/support/ratio.h"
#include "support/child_process.h"
#include "support/debug_channel.h"
#include "support/module_under_test.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

constexpr int kRounds = 7;
constexpr int kLines = 1000;

using Encode = BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*);

bool IsAnybodyListening() {
  const UniqueKernelObject ready(OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_DATA_READY"));
  return static_cast<bool>(ready);
}

void WaitUntilListening(bool listening) {
  for (int i = 0; i < 1000 && IsAnybodyListening() != listening; ++i) {
    Sleep(10);
  }
  if (IsAnybodyListening() != listening) {
    throw std::runtime_error("the viewer did not start, or did not end");
  }
}

double NanosecondsALine() {
  static auto* const encode = Export<Encode>("ZarCryptEncodeObject");
  const auto line = [] { encode(1, nullptr, nullptr, nullptr, nullptr); };
  return bench::NanosecondsEach(kLines, line);
}

double WithViewer(const std::string& commandLine) {
  const auto viewer = ChildProcess::Program(commandLine);
  WaitUntilListening(true);
  NanosecondsALine();
  const double time = NanosecondsALine();
  viewer.Kill();
  WaitUntilListening(false);
  return time;
}

std::string Own(const char* child) {
  return QuotedInProgramFolder("viewer_bench.exe") + " --child=" + child;
}

ZAREXT_CHILD(BareViewer) {
  const DebugChannel channel;
  Sleep(600000);
  return 0;
}

ZAREXT_CHILD(Bench) {
  std::vector<double> nobody;
  std::vector<double> bare;
  std::vector<double> tool;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    nobody.push_back(NanosecondsALine());
    bare.push_back(WithViewer(Own("BareViewer")));
    tool.push_back(WithViewer(QuotedInProgramFolder("zarextctl.exe") + " trace --file NUL"));
    ratios.push_back(tool.back() / bare.back());
  }
  printf("| what | zarextctl, ns | nobody, ns | bare viewer, ns | ratio | aim |\n");
  printf("| --- | --- | --- | --- | --- | --- |\n");
  printf(
      "| a line for its writer, zarextctl trace against a bare viewer | %.0f | %.0f | %.0f | %.2f "
      "| "
      "1.25 |\n",
      bench::Median(tool), bench::Median(nobody), bench::Median(bare), bench::Median(ratios));
  return 0;
}

}  // namespace
}  // namespace zarext::test
