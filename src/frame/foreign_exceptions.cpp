#include "frame/guarded.h"

namespace {

struct ForeignException {};

}  // namespace

// The system asks this function while it looks for who handles an exception, with the stack still
// as it was. Throwing here starts a second search, from the place of the first: its handlers and
// destructors run in their order. The foreign object is not destroyed; nobody here knows how. Only
// the assembly below names the function.
extern "C" [[gnu::used]] EXCEPTION_DISPOSITION ZarextTranslateException(EXCEPTION_RECORD* exception,
                                                                        void* /*frame*/,
                                                                        CONTEXT* /*context*/,
                                                                        void* /*dispatcher*/) {
  constexpr DWORD kForeignException = 0xE06D7363;
  constexpr DWORD kUnwinding = 0x66;
  if (exception->ExceptionCode == kForeignException &&
      (exception->ExceptionFlags & kUnwinding) == 0) {
    throw ForeignException();
  }
  return ExceptionContinueSearch;
}

namespace zarext {

// The function needs a frame without the compiler's own handler, so nothing in it has a destructor.
// The instruction behind the call keeps the return address out of the function's last
// instructions, where the system takes a frame for left and asks no handler.
[[gnu::noinline]] void CallTranslatingExceptions(const Callback<>& work) {
  __asm__ __volatile__(".seh_handler ZarextTranslateException, @except");
  work();
  __asm__ __volatile__("nop");
}

}  // namespace zarext
