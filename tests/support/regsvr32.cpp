#include "support/regsvr32.h"

#include "support/child_process.h"
#include "support/platform.h"

namespace zarext::test {

DWORD Regsvr32(const std::string& arguments) {
  return ChildProcess::Program("regsvr32 /s " + arguments).Wait().value_or(STILL_ACTIVE);
}

std::string QuotedInProgramFolder(const char* file) { return "\"" + ProgramFolder() + file + "\""; }

std::string PatchedModule() {
  return (IsWine() ? QuotedInProgramFolder("patches.dll") + " " : std::string()) +
         QuotedInProgramFolder("ZAREXT.dll");
}

}  // namespace zarext::test
