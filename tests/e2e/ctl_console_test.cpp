// zarextctl on a console of 80 columns: lines are wrapped, and coloured by attributes. A console
// without a window is made for a child, which runs the tool in it and reads the screen.
#include <fstream>
#include <iterator>

#include "contract/store_fixture.h"
#include "e2e/ctl_fixture.h"
#include "support/child_process.h"
#include "support/utf8.h"

namespace zarext::test {
namespace {

using testing::HasSubstr;

constexpr SHORT kColumns = 80;
constexpr SHORT kRows = 300;

// Each row of the screen as text, with the attribute of its first character in front.
std::string ReadScreen(HANDLE screen) {
  std::string all;
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  GetConsoleScreenBufferInfo(screen, &info);
  for (SHORT row = 0; row < info.dwCursorPosition.Y; ++row) {
    std::wstring text(kColumns, L' ');
    WORD attribute = 0;
    DWORD read = 0;
    ReadConsoleOutputCharacterW(screen, text.data(), kColumns, {0, row}, &read);
    ReadConsoleOutputAttribute(screen, &attribute, 1, {0, row}, &read);
    text.erase(text.find_last_not_of(L' ') + 1);
    all += std::to_string(attribute) + "|" + Utf8(text) + "\n";
  }
  return all;
}

// Runs the tool with its output on a new screen of this console, then writes what is seen there.
// Arguments: the file for it, and the tool's arguments.
ZAREXT_CHILD(OnScreen) {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  const HANDLE screen = CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, 3, &inherited,
                                                  CONSOLE_TEXTMODE_BUFFER, nullptr);
  SetConsoleScreenBufferSize(screen, {kColumns, kRows});
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = screen;
  startup.hStdError = screen;
  std::wstring line =
      ToolCommandLine({arguments.begin() + 1, arguments.end()}, ToolBuild::kShipped);
  PROCESS_INFORMATION information = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &information)) {
    return 250;
  }
  WaitForSingleObject(information.hProcess, 60000);
  DWORD code = 0;
  GetExitCodeProcess(information.hProcess, &code);
  std::ofstream(arguments[0], std::ios::binary) << ReadScreen(screen);
  return static_cast<int>(code);
}

class Console : public CtlTest {
 protected:
  // What the screen shows.
  [[nodiscard]] ToolResult Shown(const std::string& arguments) const {
    const std::string file = home_.Path() + "\\screen.txt";
    std::string line =
        "\"" + ProgramFolder() + "ctl_e2e.exe\" --child=OnScreen " + file + " " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    Must(CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &information),
         "CreateProcess");
    const UniqueKernelObject process(information.hProcess);
    const UniqueKernelObject thread(information.hThread);
    WaitForSingleObject(process.Get(), 60000);
    ToolResult result;
    GetExitCodeProcess(process.Get(), &result.exitCode);
    std::ifstream screen(file, std::ios::binary);
    result.out = {std::istreambuf_iterator<char>(screen), {}};
    return result;
  }
};

TEST_F(Console, LinesAreWrappedAndColoured) {
  // 10: bright green, 14: bright yellow, 7: as it was.
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
