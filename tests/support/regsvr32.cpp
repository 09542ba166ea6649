#include "support/regsvr32.h"

#include <stdexcept>

#include "support/child_process.h"
#include "support/platform.h"

namespace zarext::test {

DWORD Regsvr32(const std::string& arguments) {
  return ChildProcess::Program("regsvr32 /s " + arguments).Wait().value_or(STILL_ACTIVE);
}

std::string QuotedInProgramFolder(const char* file) { return "\"" + ProgramFolder() + file + "\""; }

std::string Patches() {
  return PatchesWanted() ? QuotedInProgramFolder("patches.dll") + " " : std::string();
}

std::string PatchedModule() { return Patches() + QuotedInProgramFolder("ZAREXT.dll"); }

void RegisterPatchedModule() {
  const DWORD code = Regsvr32(PatchedModule());
  if (code == kRegistrationFailed && IsWine() && !PatchesWanted()) {
    throw PlatformRefuses("regsvr32 ends with 5: Wine refuses the records of 48 octets");
  }
  if (code != 0) {
    throw std::runtime_error("regsvr32 failed: " + std::to_string(code));
  }
}

}  // namespace zarext::test
