#include "support/regsvr32.h"

#include "support/child_process.h"

namespace zarext::test {

DWORD Regsvr32(const std::string& arguments) {
  return ChildProcess::Program("regsvr32 /s " + arguments).Wait().value_or(STILL_ACTIVE);
}

std::string QuotedInProgramFolder(const char* file) { return "\"" + ProgramFolder() + file + "\""; }

std::string PatchedModule() {
  const bool wine = GetProcAddress(GetModuleHandleA("ntdll"), "wine_get_version") != nullptr;
  return (wine ? QuotedInProgramFolder("patches.dll") + " " : std::string()) +
         QuotedInProgramFolder("ZAREXT.dll");
}

}  // namespace zarext::test
