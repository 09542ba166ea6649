// See windows.h of this folder: the runtime's own names. That runtime leaves a text that does not
// fit without a terminator; nothing that is tested with this platform depends on it.
#ifndef ZAREXT_TESTS_UNIT_PLATFORM_STDIO_H_
#define ZAREXT_TESTS_UNIT_PLATFORM_STDIO_H_

#include_next <stdio.h>

#define __ms_vsprintf vsprintf
#define _vsnprintf vsnprintf
#define _vscprintf(format, arguments) vsnprintf(nullptr, 0, format, arguments)

#endif  // ZAREXT_TESTS_UNIT_PLATFORM_STDIO_H_
