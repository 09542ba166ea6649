#include "store/running_load.h"

namespace {

int runningLoads = 0;

}  // namespace

// The system calls this function where an exception of any kind takes the frame of RunLoad away.
// Only the assembly below names it.
extern "C" [[gnu::used]] EXCEPTION_DISPOSITION ZarextLeaveLoad(EXCEPTION_RECORD* /*exception*/,
                                                               void* /*frame*/,
                                                               CONTEXT* /*context*/,
                                                               void* /*dispatcher*/) {
  --runningLoads;
  return ExceptionContinueSearch;
}

namespace zarext {

// As in CallTranslatingExceptions, nothing in the function has a destructor, and its last
// instructions do not follow the call.
[[gnu::noinline]] void RunLoad(const Callback<bool>& load) {
  __asm__ __volatile__(".seh_handler ZarextLeaveLoad, @unwind");
  load(runningLoads++ != 0);
  --runningLoads;
  __asm__ __volatile__("nop");
}

}  // namespace zarext
