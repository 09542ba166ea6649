// The registration that a check run finds, and puts back.
#ifndef ZAREXT_TOOLS_CHECK_KEPT_REGISTRATION_H_
#define ZAREXT_TOOLS_CHECK_KEPT_REGISTRATION_H_

namespace zarext::check {

// Copies what the tests change into HKLM\SOFTWARE\ZAREXT-check: the framework's object identifiers
// and functions, the two providers, the default of their type, the user's physical stores. Leaves
// an older copy alone: it is that of a run that was interrupted, and holds what was there before.
// Returns 0, or the error (5 where the prompt is not elevated).
long KeepRegistration();

// Makes the registry what was kept: deletes what was added, writes what was changed or removed. A
// key that is as it was is not touched.
long RestoreRegistration();

// Deletes the copy.
long ForgetRegistration();

}  // namespace zarext::check

#endif  // ZAREXT_TOOLS_CHECK_KEPT_REGISTRATION_H_
