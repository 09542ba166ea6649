// Wine lacks some of the framework's registration functions. These replacements write what Windows
// writes, into the registry of the test's prefix. For tests and the demonstration only. Whether one
// is lacking is found out by calling it, so that a Wine that has it is used as it is.
#ifndef ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_
#define ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_

#include <windows.h>

namespace zarext::test {

// CryptUnregisterOIDInfo refuses a record of 48 octets, which is all that the module fills. Asked
// about a record that is not there: nothing changes.
bool RefusesShortRecords();

// CertUnregisterPhysicalStore, asked to remove what is not there, says that it did.
bool HasNoPhysicalStores();

// Sends those of the own process' calls of CryptRegisterOIDInfo, CryptUnregisterOIDInfo,
// CertRegisterPhysicalStore and CertUnregisterPhysicalStore that are lacking to the replacements,
// for statically bound callers and for run-time look-ups alike, and keeps crypt32 loaded. Once for
// the process; not to be undone. False, with nothing changed, where the platform is not Wine.
bool ApplyFrameworkPatches();

// Calls DllRegisterServer with the patches where they are wanted; throws where it fails,
// PlatformRefuses where the platform is known to refuse it.
void RegisterInThisProcess(HRESULT WINAPI registerServer());

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_
