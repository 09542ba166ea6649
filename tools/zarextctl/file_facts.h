// What can be said of a module's file without running it, and whether it runs.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_FILE_FACTS_H_
#define ZAREXT_TOOLS_ZAREXTCTL_FILE_FACTS_H_

#include <windows.h>

#include <span>
#include <string>
#include <vector>

namespace zarext::ctl {

struct ModuleFile {
  std::string path;
  bool exists = false;
  std::string version;  // of its version resource; empty without one
  DWORD signature = 0;  // what WinVerifyTrust returned; 0: signed, and the signer is trusted
  DWORD loadCode = 0;   // why it does not load; 0 if it does
  std::vector<std::string> missing;  // functions that it should have
};

// Reads the file, then loads it and looks for the functions.
ModuleFile ReadModuleFile(const std::string& path, std::span<const char* const> functions);

// "signed", "not signed", or the code.
std::string SignatureText(DWORD signature);

// What broad groups of users may do to a file: write into it, or put another in its place.
enum class Access { kWrite, kReplace };

// The groups (Everyone, Users, Authenticated Users, Interactive) with that access to the file, or
// to its folder so that they can put another file there: "Everyone (folder)". Empty for none, and
// for a file whose security cannot be read.
std::vector<std::string> BroadGroupsWith(Access access, const std::string& path);

// Those of the groups that an access list allows one of the rights in `mask`; a list that is not
// there allows everything. What the list denies elsewhere is not taken off.
std::vector<std::string> BroadGroupsIn(PACL list, DWORD mask);

bool IsRegularFile(const std::string& path);
bool Exists(const std::string& path);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_FILE_FACTS_H_
