// The imports of the module that can fail, each with what its failure looks like to the module, and
// what its success takes or gives back.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_POINTS_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_POINTS_H_

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "support/import_patch.h"

namespace zarext::test {

// The patches of all that `module` imports.
std::vector<std::unique_ptr<ImportPatch>> PatchFailurePoints(HMODULE module);

// What it imports of advapi32, crypt32 and kernel32 that is neither patched nor known not to fail.
std::vector<std::string> UnknownImports(HMODULE module);

// Leaves, in the module's place, the critical sections that it entered and kept.
void LeaveKeptSections();

enum class PointKind { kCall, kAllocation, kRelease };
PointKind KindOfPoint(const std::string& function);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_POINTS_H_
