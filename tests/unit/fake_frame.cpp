// What stands on the host in place of the module's own trace, of its guard against other compilers'
// exceptions, and of its mark that a load runs.
#include <cstdarg>
#include <cstdio>

#include "frame/guarded.h"
#include "frame/text.h"
#include "frame/trace.h"
#include "store/running_load.h"

namespace zarext {

// In place of the module's own trace, which writes to the platform's debugger output: the text is
// formatted, so that every argument is read.
void Trace(const char* format, ...) {
  char text[4096];
  std::va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
}

// Nothing of another compiler is raised here.
void CallTranslatingExceptions(const Callback<>& work) { work(); }
// Nor does a load run inside another one.
void RunLoad(const Callback<bool>& load) { load(false); }

}  // namespace zarext
