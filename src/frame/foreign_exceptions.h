// Exceptions of another compiler's C++, as a provider built with it throws them.
#ifndef ZAREXT_FRAME_FOREIGN_EXCEPTIONS_H_
#define ZAREXT_FRAME_FOREIGN_EXCEPTIONS_H_

#include "frame/guarded.h"

namespace zarext {

// Calls work(). A C++ exception of the platform's own compiler (code 0xE06D7363) that is raised
// below becomes one of this module's, where it was raised: without that it would pass every catch
// handler and destructor of the module on its way to the host. What is thrown is of a type that
// only `catch (...)` takes.
void CallTranslatingExceptions(const Callback<>& work);

}  // namespace zarext

#endif  // ZAREXT_FRAME_FOREIGN_EXCEPTIONS_H_
