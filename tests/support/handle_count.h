// Open handles of the own process. GetProcessHandleCount always says 0 on the platform of the
// tests.
#ifndef ZAREXT_TESTS_SUPPORT_HANDLE_COUNT_H_
#define ZAREXT_TESTS_SUPPORT_HANDLE_COUNT_H_

#include <cstddef>

namespace zarext::test {

std::size_t OpenHandleCount();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_HANDLE_COUNT_H_
