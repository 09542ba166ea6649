// The command line of zarextctl: help, version, and what is no command.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "e2e/ctl_fixture.h"

namespace zarext::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

using Application = CtlTest;

constexpr const char* kCommands[] = {"status", "trace", "explain",  "store",
                                     "cache",  "oid",   "register", "unregister"};

TEST_F(Application, HelpOfEveryCommandHasExitCodesAndAnExample) {
  ExpectGolden("help", RunTool({"--help"}));
  for (const std::string command : kCommands) {
    const ToolResult help = RunTool({command, "--help"});
    EXPECT_EQ(0u, help.exitCode);
    EXPECT_EQ("", help.err);
    EXPECT_THAT(help.out, HasSubstr("\nExit codes: 0 "));
    EXPECT_THAT(help.out, HasSubstr("\nExample:\n  zarextctl " + command));
    EXPECT_THAT(help.out, HasSubstr("--json"));
  }
}

TEST_F(Application, Version) {
  const ToolResult result = RunTool({"--version"});
  EXPECT_EQ(0u, result.exitCode);
  EXPECT_EQ("zarextctl 1.0.0\n", result.out);
}

TEST_F(Application, WhatIsNoCommandIsRefused) {
  const struct {
    const char* golden;
    std::vector<std::string> arguments;
  } rows[] = {
      {"command-none", {}},
      {"command-unknown", {"repair"}},
      {"command-option", {"cache", "--wrong"}},
      {"command-value", {"trace", "--pid", "words"}},
  };
  for (const auto& row : rows) {
    ExpectGolden(row.golden, RunTool(row.arguments));
  }
  const ToolResult result = RunTool({"cache", "--wrong", "--json"});
  EXPECT_EQ(2u, result.exitCode);
  EXPECT_EQ("", result.err);
  EXPECT_EQ("see zarextctl --help", json::parse(result.out).at("error").at("next"));
}

TEST_F(Application, AFileGetsWhatAPipeGets) {
  const std::filesystem::path path = std::filesystem::path(home_.Path()) / L"Вывод.txt";
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  UniqueKernelObject file(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, &inherited, CREATE_ALWAYS, 0, nullptr));
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = file.Get();
  startup.hStdError = file.Get();
  std::wstring line = ToolCommandLine({"oid", "0x2A4C"}, ToolBuild::kShipped);
  PROCESS_INFORMATION information = {};
  Must(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &information),
       "CreateProcess");
  const UniqueKernelObject process(information.hProcess);
  const UniqueKernelObject thread(information.hThread);
  WaitForSingleObject(process.Get(), 60000);
  file.Reset();
  std::ifstream written(path);
  const std::string text{std::istreambuf_iterator<char>(written), {}};
  EXPECT_THAT(text, HasSubstr("Ключ ГОСТ 34.10-2015/kz"));
  EXPECT_EQ(RunTool({"oid", "0x2A4C"}).out, text);
}

}  // namespace
}  // namespace zarext::test
