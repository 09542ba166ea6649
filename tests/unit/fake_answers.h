// What the functions of the fake platform and of its provider share: how a call succeeds or fails,
// and what it answers, as the octets say.
#ifndef ZAREXT_TESTS_UNIT_FAKE_ANSWERS_H_
#define ZAREXT_TESTS_UNIT_FAKE_ANSWERS_H_

#include <windows.h>

#include <cstddef>

namespace zarext::test {

// FALSE with this last error.
BOOL Fail(DWORD code);

// One call in eight fails, with a code from the octets.
bool CallFails();

// Writes octets from the input, at most as many as there is room for, and claims any length.
BOOL Answer(BYTE* data, DWORD* size);

// Reads each octet that a caller hands in.
void ReadAll(const BYTE* data, std::size_t size);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_FAKE_ANSWERS_H_
