// zarextctl.exe
#include <windows.h>

#include <shellapi.h>

#include "zarextctl/command.h"
#include "zarextctl/windows_text.h"

int main() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(zarext::ctl::Utf8(words[i]));
  }
  LocalFree(words);
  return zarext::ctl::RunTool(arguments);
}
