// The shape that every export shares: trace, work inside one try block, and a thrown code turned
// into the framework's convention.
#ifndef ZAREXT_FRAME_EXPORT_FRAME_H_
#define ZAREXT_FRAME_EXPORT_FRAME_H_

#include <windows.h>

#include "frame/foreign_exceptions.h"
#include "frame/guarded.h"
#include "frame/text.h"
#include "frame/trace.h"

namespace zarext {

// An export's own line buffer. The line is formatted here first and handed to the trace writer as a
// finished message, so that a caller's text never acts as a format.
class ExportTrace {
 public:
  // Formats one line and writes it. The thread's last error is as before.
  void Line(const char* format, ...) ZAREXT_PRINTF(2, 3);

 private:
  LineText text_;
};

// Calls `work` with a line buffer. A thrown ErrorCode becomes the thread's last error, anything
// else NTE_NO_MEMORY; nothing is traced then: the code that detects a failure traces it before it
// throws.
void CallInFrame(Callback<ExportTrace&> work) noexcept;

// Returns the result of `work(ExportTrace&)`, or `onFailure` if it throws.
template <typename Result, typename Work>
Result RunExport(Result onFailure, Work work) noexcept {
  Result result = onFailure;
  auto keepResult = [&](ExportTrace& trace) { result = work(trace); };
  CallInFrame(Callback<ExportTrace&>(keepResult));
  return result;
}

template <typename Work>
BOOL RunExport(Work work) noexcept {
  return RunExport<BOOL>(FALSE, work);
}

// The same for `work(ExportTrace&, Kept&)`. The object outlives the handlers: what it owns is
// released once the last error is set.
template <typename Kept, typename Work>
BOOL RunExportKeeping(Work work) noexcept {
  BOOL result = FALSE;
  auto keepObject = [&] {
    Kept kept;
    result = RunExport([&](ExportTrace& trace) { return work(trace, kept); });
  };
  CallTranslatingExceptions(Callback<>(keepObject));
  return result;
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
