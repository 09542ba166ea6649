// The shape that every export shares: trace, work inside one try block, and a thrown code turned
// into the framework's convention.
#ifndef ZAREXT_FRAME_EXPORT_FRAME_H_
#define ZAREXT_FRAME_EXPORT_FRAME_H_

#include <windows.h>

#include <winerror.h>

#include "frame/exception_record.h"
#include "frame/text.h"
#include "frame/trace.h"

namespace zarext {

// Inside the module a failure is this type, thrown by value. Anything else that is thrown (a signed
// code among them) reaches the caller as NTE_NO_MEMORY.
using ErrorCode = DWORD;

// An export's own line buffer. The line is formatted here first and handed to the trace writer as a
// finished message, so that a caller's text never acts as a format.
class ExportTrace {
 public:
  // Formats one line and writes it. The thread's last error is as before.
  void Line(const char* format, ...) noexcept ZAREXT_PRINTF(2, 3);

 private:
  LineText text_;
};

// Runs `work(ExportTrace&)` and returns its result. A thrown ErrorCode becomes the thread's last
// error, anything else NTE_NO_MEMORY; the result is then `onFailure`, and nothing is traced: the
// code that detects a failure traces it before it throws.
template <typename Result, typename Work>
Result RunExport(Result onFailure, Work work) noexcept {
  const ExceptionRecord exceptions;
  ExportTrace trace;
  try {
    return work(trace);
  } catch (ErrorCode code) {
    SetLastError(code);
  } catch (...) {
    SetLastError(static_cast<DWORD>(NTE_NO_MEMORY));
  }
  return onFailure;
}

template <typename Work>
BOOL RunExport(Work work) noexcept {
  return RunExport<BOOL>(FALSE, work);
}

// Throws the thread's last error. The code is taken first: making room for what is thrown can
// change it.
[[noreturn]] inline void ThrowLastError() {
  const ErrorCode code = GetLastError();
  throw code;
}

// Throws ERROR_INVALID_PARAMETER unless `condition` holds.
inline void RequireParameter(bool condition) {
  if (!condition) {
    throw static_cast<ErrorCode>(ERROR_INVALID_PARAMETER);
  }
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_EXPORT_FRAME_H_
