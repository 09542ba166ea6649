// zarextctl trace: lines of other processes, of the real module and made to order.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "e2e/ctl_screen.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kThreads = 8;
constexpr int kProcesses = 8;

// The events are there as soon as the viewer listens.
void WaitUntilListening() {
  for (int i = 0; i < 500; ++i) {
    const UniqueKernelObject ready(OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_DATA_READY"));
    if (ready) {
      return;
    }
    Sleep(20);
  }
  FAIL() << "the viewer does not listen";
}

// Nobody listens: the objects of the last viewer are gone.
void WaitUntilSilent() {
  for (int i = 0; i < 500; ++i) {
    const UniqueKernelObject ready(OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_DATA_READY"));
    if (!ready) {
      return;
    }
    Sleep(20);
  }
}

// Calls an export of the module so many times, with the count as the traced argument, in each of so
// many threads.
ZAREXT_CHILD(TraceWrite) {
  const int lines = std::stoi(arguments.at(0));
  const int count = std::stoi(arguments.at(1));
  using Encode = BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*);
  auto* const encode = Export<Encode>("ZarCryptEncodeObject");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < count; ++thread) {
    threads.emplace_back([=] {
      for (int line = 0; line < lines; ++line) {
        encode(static_cast<DWORD>(line), nullptr, nullptr, nullptr, nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return 0;
}

// Texts as they are.
const char* const kTexts[] = {
    "id=4711 : tm=Sat Nov 21 23:46:14.046 : EXT : ZarImportPublicKeyInfoEx : hCryptProv = 1, "
    "aiKeyAlg = 201d, dwFlags = 0.",
    "id=4711 : tm=Sat Nov 21 23:46:14.046 : EXT : ZarImportPublicKeyInfoEx : pszObjId = "
    "1.2.840.113549.1.1.1, error = 80090008.",
    "id=4711 : tm=Sat Nov 21 23:46:14.046 : EXT : load_certs_from_CSP_CACHE : dwKeySpec = 2 "
    "(2a4a), "
    "dwProvType = 19, size = 300, szwContainer = profile://alice/?sn=1 (1.2.643.2.2.19).",
    "id=4711 : tm=Sat Nov 21 23:46:14.046 : EXT : ZarOpenStoreProv : ERROR = 7e",
    "another program \xE9\x1B[31m\r\nin two lines\r\n",
};

ZAREXT_CHILD(TraceTexts) {
  for (const char* text : kTexts) {
    OutputDebugStringA(text);
  }
  return 0;
}

ZAREXT_CHILD(TraceSleep) {
  Sleep(20000);
  return 0;
}

const Replacements kRun = {{"[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ", "<time> "},
                           {"ctl_trace_e2e\\.exe\\([0-9]+\\)", "<process>"}};

// Ctrl-C on the console of a tool that has one of its own (CREATE_NO_WINDOW).
void PressCtrlC(const RunningTool& tool) {
  FreeConsole();
  Must(AttachConsole(tool.Id()), "AttachConsole");
  // Children would inherit a Ctrl-C that is switched off.
  SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
  EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
  FreeConsole();
}

class Trace : public CtlTest {
 protected:
  Trace() { WaitUntilSilent(); }

  // Traces that many lines into a file, which moves or begins anew as `rotation` says, while eight
  // threads write so many each; the file's path.
  std::string TraceIntoFile(const char* rotation, const char* linesEach, const char* count) {
    std::string file = home_.Path() + "\\trace.txt";
    RunningTool tool({"trace", "--grep", "ZarCryptEncodeObject", "--file", file, "--rotate",
                      rotation, "--count", count, "--for", "30"});
    WaitUntilListening();
    EXPECT_EQ(0u, ChildProcess("TraceWrite", {linesEach, "8"}).Wait());
    EXPECT_EQ(0u, tool.Finish().exitCode);
    return file;
  }
};

TEST_F(Trace, LinesWithTheirMeaning) {
  RunningTool tool({"trace", "--explain", "--count", "4"});
  WaitUntilListening();
  EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
  ExpectGolden("trace-explain", tool.Finish(), kRun);
}

// What stands before a module's line has the colour of its export; 7 is the rest, 8 what --explain
// says.
TEST_F(Trace, OnAConsoleEachExportHasAColour) {
  ToolOnScreen tool(home_, "trace --all --explain --count 6");
  WaitUntilListening();
  EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
  ExpectGolden("trace-console", tool.Finish(), kRun);
}

TEST_F(Trace, LinesOfOtherProgramsToo) {
  RunningTool tool({"trace", "--all", "--count", "6"});
  WaitUntilListening();
  EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
  ExpectGolden("trace-all", tool.Finish(), kRun);
}

TEST_F(Trace, OneDocumentOfJson) {
  RunningTool tool({"trace", "--json", "--count", "2", "--explain"});
  WaitUntilListening();
  const ChildProcess writer("TraceTexts");
  EXPECT_EQ(0u, writer.Wait());
  const ToolResult result = tool.Finish();
  EXPECT_EQ(0u, result.exitCode);
  const json document = json::parse(result.out);
  EXPECT_EQ(2, document.at("count"));
  EXPECT_EQ(0, document.at("dropped"));
  ASSERT_EQ(2u, document.at("lines").size());
  const json& line = document.at("lines")[1];
  EXPECT_EQ(writer.Id(), line.at("process"));
  EXPECT_EQ("ctl_trace_e2e.exe", line.at("name"));
  EXPECT_EQ(4711, line.at("thread"));
  EXPECT_EQ("Sat Nov 21 23:46:14.046", line.at("written"));
  EXPECT_EQ("ZarImportPublicKeyInfoEx", line.at("export"));
  EXPECT_EQ("EXT : ZarImportPublicKeyInfoEx : pszObjId = 1.2.840.113549.1.1.1, error = 80090008.",
            line.at("message"));
  EXPECT_EQ(json({"1.2.840.113549.1.1.1: RSA",
                  "0x80090008 NTE_BAD_ALGID: the algorithm is not known there"}),
            line.at("meaning"));
}

TEST_F(Trace, FiltersByProcessAndText) {
  const auto lines = [](std::vector<std::string> filter) {
    WaitUntilSilent();
    std::vector<std::string> arguments = {"trace", "--json", "--for", "1"};
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    RunningTool tool(arguments);
    WaitUntilListening();
    EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
    return json::parse(tool.Finish().out).at("lines").size();
  };
  EXPECT_EQ(1u, lines({"--grep", "PSZOBJID", "--count", "1"}));
  EXPECT_EQ(2u,
            lines({"--process", "CTL_trace_e2e.exe", "--grep", "importpublic", "--count", "2"}));
  EXPECT_EQ(0u, lines({"--process", "other.exe"}));
  EXPECT_EQ(0u, lines({"--pid", std::to_string(GetCurrentProcessId())}));
}

TEST_F(Trace, ASecondViewerIsRefused) {
  RunningTool first({"trace", "--for", "60"});
  WaitUntilListening();
  ExpectGolden("trace-second", RunTool({"trace"}));
  ExpectGolden("trace-second-json", RunTool({"trace", "--json"}));
}

// The sum of what arrives and what is dropped is what was written, each line once, in the order of
// its thread. ZAREXT_TRACE_LINES sets how many (200,000 take two minutes).
TEST_F(Trace, LinesOfManyProcessesArriveOnceAndInOrder) {
  char wanted[32] = {};
  GetEnvironmentVariableA("ZAREXT_TRACE_LINES", wanted, sizeof wanted);
  const int total = wanted[0] == '\0' ? 3200 : std::stoi(wanted);
  const int each = total / kProcesses / kThreads;
  const std::string expected = std::to_string(each * kProcesses * kThreads);
  RunningTool tool(
      {"trace", "--json", "--grep", "ZarCryptEncodeObject", "--for", "500", "--count", expected});
  tool.Read();
  WaitUntilListening();
  std::vector<ChildProcess> writers;
  for (int i = 0; i < kProcesses; ++i) {
    writers.emplace_back("TraceWrite",
                         ChildArguments{std::to_string(each), std::to_string(kThreads)});
  }
  for (const ChildProcess& writer : writers) {
    EXPECT_EQ(0u, writer.Wait(500000));
  }
  const json document = json::parse(tool.Finish().out);
  std::map<std::pair<int, int>, int> next;
  for (const json& line : document.at("lines")) {
    int& number = next[{line.at("process"), line.at("thread")}];
    char text[80] = {};
    (void)std::snprintf(text, sizeof text, "EXT : ZarCryptEncodeObject : dwCertEncodingType = %x.",
                        static_cast<unsigned>(number));
    ASSERT_EQ(text, line.at("message"));
    ++number;
  }
  EXPECT_EQ(0, document.at("dropped"));
  EXPECT_EQ(expected, std::to_string(document.at("lines").size()));
  EXPECT_EQ(static_cast<std::size_t>(kProcesses * kThreads), next.size());
}

// Nobody reads the viewer's output: its queue fills, and the writer does not notice.
TEST_F(Trace, WhatCannotBeShownIsDroppedAndCounted) {
  constexpr int kEach = 200;
  RunningTool tool({"trace", "--grep", "ZarCryptEncodeObject", "--queue", "20"},
                   ToolBuild::kShipped, CREATE_NO_WINDOW);
  WaitUntilListening();
  const ULONGLONG start = GetTickCount64();
  EXPECT_EQ(0u, ChildProcess("TraceWrite", {std::to_string(kEach), "8"}).Wait());
  // Ten seconds is what a viewer that hangs costs for each line.
  EXPECT_LT(GetTickCount64() - start, 9000u);
  PressCtrlC(tool);
  const ToolResult result = tool.Finish();
  EXPECT_EQ(1u, result.exitCode);
  std::smatch counts;
  ASSERT_TRUE(
      std::regex_search(result.err, counts, std::regex("([0-9]+) lines, ([0-9]+) dropped")));
  // The attach line of the writer's module is one of those that were dropped or filtered.
  const int sum = std::stoi(counts[1]) + std::stoi(counts[2]);
  EXPECT_GE(sum, kEach * kThreads);
  EXPECT_LE(sum, kEach * kThreads + 20);
  EXPECT_THAT(result.out, HasSubstr(" lines were dropped here"));
}

// With several threads each line would cost ten seconds here: Wine's writers open the channel
// before they wait for their turn, and so keep it from going.
TEST_F(Trace, AKilledViewerLeavesTheWritersRunning) {
  RunningTool tool({"trace"});
  tool.Read();
  WaitUntilListening();
  const ChildProcess writer("TraceWrite", {"2000", "1"});
  Sleep(300);
  tool.Kill();
  EXPECT_EQ(0u, writer.Wait(60000));
  // And the next viewer starts.
  WaitUntilSilent();
  RunningTool next({"trace", "--count", "1", "--for", "20"});
  WaitUntilListening();
  EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
  EXPECT_EQ(0u, next.Finish().exitCode);
}

TEST_F(Trace, AFileThatMovesWhenItHasGrown) {
  TraceIntoFile("2K,2", "10", "80");
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(home_.Path())) {
    names.insert(entry.path().filename().string());
    EXPECT_LE(entry.file_size(), 2048u) << entry.path();
  }
  EXPECT_THAT(names, ElementsAre("trace.txt", "trace.txt.1", "trace.txt.2"));
  std::ifstream moved(home_.Path() + "\\trace.txt.1", std::ios::binary);
  std::string line;
  std::getline(moved, line);
  EXPECT_TRUE(std::regex_match(
      line, std::regex("[0-9:.]{12} ctl_trace_e2e\\.exe\\([0-9]+\\) [0-9]+ EXT : "
                       "ZarCryptEncodeObject : dwCertEncodingType = [0-9a-f]+\\.\r")))
      << line;
}

TEST_F(Trace, AFileThatBeginsAnew) {
  const std::string file = TraceIntoFile("1K,0", "5", "40");
  const auto isOnly = std::filesystem::directory_iterator(home_.Path());
  EXPECT_EQ(1, std::distance(begin(isOnly), end(isOnly)));
  EXPECT_LE(std::filesystem::file_size(file), 1024u);
}

TEST_F(Trace, WhatCannotBeDoneIsSaid) {
  ExpectGolden("trace-rotate", RunTool({"trace", "--rotate", "big"}));
  for (const char* rotation : {"10M", "10M,1000", "0,5", "10X,5", "10M,5x"}) {
    EXPECT_THAT(RunTool({"trace", "--rotate", rotation}).err,
                HasSubstr(std::string("could not read --rotate ") + rotation));
  }
  ExpectGolden("trace-file", RunTool({"trace", "--file", "C:\\nowhere\\trace.txt"}));
}

TEST_F(Trace, AnAttachedDebuggerIsNamed) {
  const ChildProcess child("TraceSleep");
  ASSERT_TRUE(DebugActiveProcess(child.Id()));
  DebugSetProcessKillOnExit(FALSE);
  ExpectGolden("trace-debugger",
               RunTool({"trace", "--pid", std::to_string(child.Id()), "--for", "1"}),
               {{"process [0-9]+", "process <id>"}});
  DebugActiveProcessStop(child.Id());
}

TEST_F(Trace, CtrlCEndsItWithEverythingWritten) {
  RunningTool tool({"trace", "--json"}, ToolBuild::kShipped, CREATE_NO_WINDOW);
  WaitUntilListening();
  EXPECT_EQ(0u, ChildProcess("TraceTexts").Wait());
  PressCtrlC(tool);
  const ToolResult result = tool.Finish();
  EXPECT_EQ(0u, result.exitCode);
  EXPECT_EQ(4, json::parse(result.out).at("count"));
}

}  // namespace
}  // namespace zarext::test
