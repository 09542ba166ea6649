// Registering and unregistering, one step at a time so that a failing one can be named.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_INSTALLATION_H_
#define ZAREXT_TOOLS_ZAREXTCTL_INSTALLATION_H_

#include <functional>
#include <string>
#include <vector>

#include "registration/function_bindings.h"
#include "registration/oid_records.h"

namespace zarext::ctl {

// Told of each finished group of steps: "records", 68.
using Progress = std::function<void(const std::string& what, std::size_t count)>;

// The DLL's path as regsvr32 would register it. Throws Failure if it does not load, is another
// module, or lies in a folder whose name the ANSI code page cannot spell.
std::string PathToRegister(const std::string& dll);

// The 68 records, the store provider, the user's physical store and the 474 other bindings, in this
// order, as DllRegisterServer writes them. Throws Failure with the first step that fails.
void RegisterModule(const std::string& path, bool withoutAes256, const Progress& progress);

// The physical store of the user alone.
void RegisterUserStore();

// What DllUnregisterServer removes, in its order; what is gone already is passed over. Returns how
// many entries were there.
std::size_t UnregisterModule(const Progress& progress);

// What unregistering leaves: records, bindings to a file of our DLL's name, and keys of framework
// functions with nothing below them.
struct LeftOvers {
  std::vector<OidRecord> records;
  std::vector<Binding> bindings;
  std::vector<std::string> emptyKeys;  // below kOidKey

  [[nodiscard]] bool IsEmpty() const {
    return records.empty() && bindings.empty() && emptyKeys.empty();
  }
};
LeftOvers FindLeftOvers();
void RemoveLeftOvers(const LeftOvers& leftOvers);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_INSTALLATION_H_
