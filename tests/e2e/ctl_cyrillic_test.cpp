// Names and containers with Cyrillic letters, in the ANSI code page 1251, which CTest sets for this
// program.
#include <nlohmann/json.hpp>

#include "e2e/ctl_people.h"

namespace zarext::test {
namespace {

using nlohmann::json;

// "Иван" and "Центр" in code page 1251.
constexpr char kUser[] = "\xC8\xE2\xE0\xED";
constexpr char kAuthority[] = "\xD6\xE5\xED\xF2\xF0";

using Cyrillic = CtlTest;

TEST_F(Cyrillic, NamesAndContainers) {
  ASSERT_EQ(1251u, GetACP());
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

}  // namespace
}  // namespace zarext::test
