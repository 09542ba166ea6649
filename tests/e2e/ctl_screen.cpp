#include "e2e/ctl_screen.h"

#include <array>
#include <fstream>
#include <iterator>

#include "support/child_process.h"
#include "support/utf8.h"

namespace zarext::test {
namespace {

constexpr SHORT kColumns = 80;
constexpr SHORT kRows = 300;

std::string ReadRow(HANDLE screen, SHORT row) {
  std::wstring text(kColumns, L' ');
  std::array<WORD, kColumns> attributes = {};
  DWORD read = 0;
  ReadConsoleOutputCharacterW(screen, text.data(), kColumns, {0, row}, &read);
  ReadConsoleOutputAttribute(screen, attributes.data(), kColumns, {0, row}, &read);
  text.erase(text.find_last_not_of(L' ') + 1);
  std::string all = std::to_string(attributes[0]) + "|";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i != 0 && attributes[i] != attributes[i - 1]) {
      all += "{" + std::to_string(attributes[i]) + "}";
    }
    all += Utf8(std::wstring_view(text).substr(i, 1));
  }
  return all;
}

std::string ReadScreen(HANDLE screen) {
  std::string all;
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  GetConsoleScreenBufferInfo(screen, &info);
  for (SHORT row = 0; row < info.dwCursorPosition.Y; ++row) {
    all += ReadRow(screen, row) + "\n";
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

}  // namespace

ToolOnScreen::ToolOnScreen(const DevHome& home, const std::string& arguments)
    : file_(home.Path() + "\\screen.txt") {
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  std::string line = std::string("\"") + program + "\" --child=OnScreen " + file_ + " " + arguments;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information = {};
  Must(CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                      nullptr, &startup, &information),
       "CreateProcess");
  process_.Reset(information.hProcess);
  CloseHandle(information.hThread);
}

ToolResult ToolOnScreen::Finish() {
  WaitForSingleObject(process_.Get(), 60000);
  ToolResult result;
  GetExitCodeProcess(process_.Get(), &result.exitCode);
  std::ifstream screen(file_, std::ios::binary);
  result.out = {std::istreambuf_iterator<char>(screen), {}};
  return result;
}

}  // namespace zarext::test
