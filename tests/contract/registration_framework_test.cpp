// Registration with the real framework and the user's own tool, regsvr32. The patches that the
// platform needs come from patches.dll, named first on the command line.
#include <gmock/gmock.h>
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "contract/registration_registry.h"
#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/module_under_test.h"
#include "support/platform.h"
#include "support/prepared_process.h"
#include "support/registry_snapshot.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;
using Lines = std::vector<std::string>;

// Without the patches nothing of this can be seen.
void ExpectThatThePlatformRegisters() {
  if (IsWine() && !PatchesWanted()) {
    RegisterPatchedModule();
  }
}
const PreparedProcess prepared(&ExpectThatThePlatformRegisters);

DWORD Child(const char* name) { return ChildProcess(name).Wait().value_or(259); }

// The life of an installation, gone through once; the tests look at what it left at each step.
struct Lifecycle {
  const std::string patches = Patches();
  const std::string module = QuotedInProgramFolder("ZAREXT.dll");

  const RegistryLines before = ReadRegistry();
  const DWORD sharedBefore = Child("SeesNoSharedRecords");
  const DWORD removingNothing = Regsvr32("/u " + patches + module);
  const RegistryLines afterRemovingNothing = ReadRegistry();
  // Windows has the functions: there this would be the registration that follows.
  const std::optional<DWORD> unpatched = IsWine() ? std::optional(Regsvr32(module)) : std::nullopt;
  const RegistryLines afterUnpatched = ReadRegistry();
  const DWORD registering = Regsvr32(patches + module);
  const RegistryLines registered = ReadRegistry();
  const DWORD deviations = Child("SeesEverythingRegistered");
  const DWORD namedDeviations = Child("SeesNamedRecords");
  const DWORD sharedDeviations = Child("SeesSharedRecords");
  const DWORD registeringAgain = Regsvr32(patches + module);
  const RegistryLines registeredAgain = ReadRegistry();
  const DWORD removing = Regsvr32("/u " + patches + module);
  const RegistryLines removed = ReadRegistry();
  const DWORD remainderDeviations = Child("SeesTheRemainder");
  const DWORD sharedRemoved = Child("SeesNoSharedRecords");
  const DWORD removingAgain = Regsvr32("/u " + patches + module);
  const RegistryLines removedAgain = ReadRegistry();
  const DWORD direct = Child("RegistersDirectly");
  const RegistryLines afterDirect = ReadRegistry();

  static const Lifecycle& Instance() {
    static const Lifecycle instance;
    return instance;
  }
};

// What registering or removing added to the registry is `expected` and nothing else.
void ExpectAdded(const RegistryLines& before, const RegistryLines& after, const Lines& expected) {
  const Lines added = LinesWithout(after, before);
  const RegistryLines addedSet(added.begin(), added.end());
  RegistryLines expectedSet(expected.begin(), expected.end());
  // The framework makes these when a user's store is first opened.
  for (const char* key : {"HKCU\\Software\\Microsoft\\SystemCertificates",
                          "HKCU\\Software\\Microsoft\\SystemCertificates\\MY"}) {
    if (before.contains(key)) {
      expectedSet.erase(key);
    }
  }
  EXPECT_THAT(LinesWithout(expectedSet, addedSet), IsEmpty()) << "are missing";
  EXPECT_THAT(LinesWithout(addedSet, expectedSet), IsEmpty()) << "are too many";
  EXPECT_THAT(LinesWithout(before, after), IsEmpty()) << "were there before";
}

class RegistrationLife : public testing::Test {
 protected:
  const Lifecycle& life = Lifecycle::Instance();
};

TEST_F(RegistrationLife, RemovingWhatIsNotThereSucceeds) {
  EXPECT_EQ(0u, life.removingNothing);
  EXPECT_EQ(life.before, life.afterRemovingNothing);
}

// regsvr32 ends with 5 if the function reports a failure. On Windows nothing is patched, and the
// registration succeeds: so says the documentation of its functions; it was not seen there.
TEST_F(RegistrationLife, WithoutThePatchesThePlatformRefuses) {
  EXPECT_EQ(IsWine() ? 5u : 0u, life.unpatched.value_or(life.registering));
  EXPECT_EQ(life.before, life.afterUnpatched);
}

TEST_F(RegistrationLife, RegistersExactlyTheStatedKeys) {
  EXPECT_EQ(0u, life.registering);
  ExpectAdded(life.before, life.registered, AllLines());
}

TEST_F(RegistrationLife, ANewProcessFindsAllOfIt) {
  EXPECT_EQ(0u, life.deviations);
  EXPECT_EQ(0u, life.namedDeviations);
}

// Windows has records of its own for them.
TEST_F(RegistrationLife, TheFrameworkNamesSharedIdentifiersAsTheModuleDoes) {
  EXPECT_EQ(0u, life.sharedDeviations);
  if (IsWine()) {
    EXPECT_EQ(0u, life.sharedBefore);
    EXPECT_EQ(0u, life.sharedRemoved);
  }
}

TEST_F(RegistrationLife, RegisteringAgainChangesNothing) {
  EXPECT_EQ(0u, life.registeringAgain);
  EXPECT_EQ(life.registered, life.registeredAgain);
}

TEST_F(RegistrationLife, RemovingLeavesExactlyTheStatedRemainder) {
  EXPECT_EQ(0u, life.removing);
  ExpectAdded(life.before, life.removed, RemainingLines());
}

TEST_F(RegistrationLife, ANewProcessFindsTheRemainderAndNoMore) {
  EXPECT_EQ(0u, life.remainderDeviations);
}

TEST_F(RegistrationLife, RemovingAgainSucceedsAndChangesNothing) {
  EXPECT_EQ(0u, life.removingAgain);
  EXPECT_EQ(life.removed, life.removedAgain);
}

TEST_F(RegistrationLife, WorksFromAnyProcess) {
  EXPECT_EQ(0u, life.direct);
  EXPECT_EQ(life.removed, life.afterDirect);
}

// Behind the life of the installation: where the platform registers (Windows, by its documentation;
// it was not seen there) this is one more registration, and what its removal leaves is there
// already.
TEST_F(RegistrationLife, InAProcessWithoutThePatchesReportsTheOneCode) {
  EXPECT_EQ(IsWine() ? static_cast<HRESULT>(0x8000FFFF) : S_OK,
            Export<HRESULT WINAPI()>("DllRegisterServer")());
  EXPECT_EQ(S_OK, Export<HRESULT WINAPI()>("DllUnregisterServer")());
}

}  // namespace
}  // namespace zarext::test
