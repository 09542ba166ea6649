// Wine lacks some of the framework's registration functions. These replacements write what Windows
// writes, into the registry of the test's prefix. For tests and the demonstration only.
#ifndef ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_
#define ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_

namespace zarext::test {

// Sends the own process' calls of CryptRegisterOIDInfo, CryptUnregisterOIDInfo,
// CertRegisterPhysicalStore and CertUnregisterPhysicalStore to the replacements, for statically
// bound callers and for run-time look-ups alike, and keeps crypt32 loaded. Once for the process;
// not to be undone. False, with nothing changed, where the platform is not Wine.
bool ApplyFrameworkPatches();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_FRAMEWORK_PATCHES_FRAMEWORK_PATCHES_H_
