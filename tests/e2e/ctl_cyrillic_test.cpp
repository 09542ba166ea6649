// Names, containers and paths with Cyrillic letters. Needs the ANSI code page 1251, which CTest
// sets for a run of its own.
#include <nlohmann/json.hpp>

#include "e2e/ctl_people.h"

namespace zarext::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// "Иван" and "Центр" in code page 1251.
constexpr char kUser[] = "\xC8\xE2\xE0\xED";
constexpr char kAuthority[] = "\xD6\xE5\xED\xF2\xF0";

using Cyrillic = CtlTest;

TEST_F(Cyrillic, NamesAndContainers) {
  if (GetACP() != 1251) {
    GTEST_SKIP() << "the ANSI code page is " << GetACP();
  }
  const Owner25 authority(kAuthority);
  const Owner25 user(kUser);
  const Octets root = authority.Issue(authority, 1);
  const Octets certificate = authority.Issue(user, 2);
  user.Keep(certificate);
  const InStore trusted(L"ROOT", root);
  const std::string file = WriteOctets(home_.Path() + "\\user.cer", certificate);
  ExpectGolden("cyrillic-explain", RunTool({"explain", file}, ToolBuild::kPatched), kOfThisRun);
  ExpectGolden("cyrillic-store",
               RunTool({"store", "--store", "provider", "--subject", "Иван"}, ToolBuild::kPatched),
               kOfThisRun);
  const json document =
      json::parse(RunTool({"store", "--json", "--store", "provider"}, ToolBuild::kPatched).out);
  EXPECT_EQ("profile://Иван/?sn=175A02",
            document.at("stores")[0].at("certificates")[0].at("container"));
}

// In any code page: what the ANSI one cannot spell is found all the same.
TEST_F(Cyrillic, Paths) {
  const Owner25 user("user");
  WriteOctets(std::filesystem::path(home_.Path()) / L"Иван.cer", user.Issue(user, 1));
  const ToolResult explained =
      RunTool({"explain", "--no-containers", "--json", home_.Path() + "\\Иван.cer"});
  EXPECT_EQ(1u, explained.exitCode);
  EXPECT_EQ("trust", json::parse(explained.out).at("firstFailure"));
  EXPECT_THAT(RunTool({"explain", home_.Path() + "\\Нет.cer"}).err,
              HasSubstr("\\Нет.cer\".\n  0x2 ERROR_FILE_NOT_FOUND"));
}

}  // namespace
}  // namespace zarext::test
