// The command line of zarextctl: help, version, and what is no command.
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

}  // namespace
}  // namespace zarext::test
