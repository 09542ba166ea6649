// The language runtime's list of the exceptions that a thread is handling.
#ifndef ZAREXT_FRAME_EXCEPTION_GLOBALS_H_
#define ZAREXT_FRAME_EXCEPTION_GLOBALS_H_

namespace zarext {

// The fields that the runtime has behind its opaque __cxa_eh_globals (Itanium C++ ABI, exception
// handling, 2.2.2): no header of the runtime shows them.
struct ExceptionGlobals {
  void* caughtExceptions;
  unsigned int uncaughtExceptions;
};

}  // namespace zarext

#endif  // ZAREXT_FRAME_EXCEPTION_GLOBALS_H_
