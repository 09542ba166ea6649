// zarextctl with the gaps of the tests' platform filled in its process: the registration functions,
// and around the module's store. The tool itself has no such thing.
#include <windows.h>

#include <shellapi.h>

#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/store_fixes.h"
#include "zarextctl/command.h"
#include "zarextctl/windows_text.h"

int main() {
  zarext::test::ApplyFrameworkPatches();
  // Kept, so that the fixes stay on it and the store's callbacks stay where they are.
  const HMODULE module = LoadLibraryA((zarext::test::ProgramFolder() + "ZAREXT.dll").c_str());
  const zarext::test::StoreFixes fixes(module);
  LoadLibraryA((zarext::test::ProgramFolder() + "cpzarvel.dll").c_str());
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(zarext::ctl::Utf8(words[i]));
  }
  return zarext::ctl::RunTool(arguments);
}
