// zarextctl on a console of 80 columns: lines are wrapped, and coloured by attributes.
#include "e2e/ctl_screen.h"

namespace zarext::test {
namespace {

using testing::HasSubstr;

class Console : public CtlTest {
 protected:
  // What the screen shows.
  [[nodiscard]] ToolResult Shown(const std::string& arguments) const {
    return ToolOnScreen(home_, arguments).Finish();
  }
};

TEST_F(Console, LinesAreWrappedAndColoured) {
  // 15: bright white, 7: as it was.
  ExpectGolden("console-oid", Shown("oid 1.2.398.3.10.1.1.1.1"));
  const ToolResult checks = Shown("oid 0xAA3A");
  EXPECT_EQ(0u, checks.exitCode);
  EXPECT_THAT(checks.out, HasSubstr("|ALG_ID 0xAA3A: key GOST 34.310-2004\n"));
}

TEST_F(Console, NoColorIsHonoured) {
  SetEnvironmentVariableA("NO_COLOR", "1");
  const ToolResult result = Shown("oid 1.2.840.113549.1.1.1");
  SetEnvironmentVariableA("NO_COLOR", nullptr);
  EXPECT_EQ(1u, result.exitCode);
  EXPECT_EQ(
      "7|1.2.840.113549.1.1.1: RSA\n7|family: none of ZAREXT's\n7|records: none\n7|bindings: "
      "none\n",
      result.out);
}

TEST_F(Console, AFileGetsPlainUtf8WithoutWrapping) {
  const ToolResult result = RunTool({"oid", "0x2A4C"});
  EXPECT_THAT(result.out,
              HasSubstr("1.2.398.3.10.1.1.2.2.1 public key \"Ключ ГОСТ 34.10-2015/kz\", ALG_ID "
                        "0x2A4C, extra 0x2A4C, 0x0, 25\n"));
  EXPECT_THAT(result.out, testing::Not(HasSubstr("\x1B")));
}

}  // namespace
}  // namespace zarext::test
