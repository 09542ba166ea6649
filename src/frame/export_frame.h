// The shape that every export shares: trace, work inside one try block, and a thrown code turned
// into the framework's convention.
#ifndef ZAREXT_FRAME_EXPORT_FRAME_H_
#define ZAREXT_FRAME_EXPORT_FRAME_H_

#include <windows.h>
#include <wincrypt.h>

#include <type_traits>

#include "frame/guarded.h"
#include "frame/text.h"
#include "frame/trace.h"

namespace zarext {

// The trace lines of one export or callback. A line is formatted here first and handed to the trace
// writer as a finished message, so that a caller's text never acts as a format. The thread's last
// error is kept.
class ExportTrace {
 public:
  // `exportName` must outlive the object.
  explicit ExportTrace(const char* exportName) noexcept : exportName_(exportName) {}

  // Writes "EXT : <export's name> : " and the formatted text.
  void Line(const char* format, ...) ZAREXT_PRINTF(2, 3);

  // Writes the text alone, for lines that begin in another way or carry another name.
  void WholeLine(const char* format, ...) ZAREXT_PRINTF(2, 3);

  // Writes a line and throws `code`.
  [[noreturn]] void LineAndThrow(ErrorCode code, const char* format, ...) ZAREXT_PRINTF(3, 4);

 private:
  void Write(bool named, const char* format, std::va_list arguments);

  const char* exportName_;
  LineText text_;
};

// Calls `work` with the lines of the export of that name. A thrown ErrorCode becomes the thread's
// last error, anything else NTE_NO_MEMORY. Nothing is traced here: the code that detects a failure
// traces it before it throws.
void CallInFrame(const char* exportName, Callback<ExportTrace&> work) noexcept;

// clang-tidy takes what a lambda throws for thrown where it is written; CallInFrame and
// CallTranslatingExceptions run it, and catch.
// NOLINTBEGIN(bugprone-exception-escape)

// Returns the result of `work(ExportTrace&)`, or `onFailure` if it throws.
template <typename Result, typename Work>
Result RunExport(const char* exportName, Result onFailure, Work work) noexcept {
  Result result = onFailure;
  CallInFrame(exportName, [&](ExportTrace& trace) { result = work(trace); });
  return result;
}

// FALSE if `work` throws. Work without a result succeeds by returning: TRUE.
template <typename Work>
BOOL RunExport(const char* exportName, Work work) noexcept {
  return RunExport<BOOL>(exportName, FALSE, [&](ExportTrace& trace) -> BOOL {
    if constexpr (std::is_void_v<decltype(work(trace))>) {
      work(trace);
      return TRUE;
    } else {
      return work(trace);
    }
  });
}

// The same for `work(ExportTrace&, Kept&)`. The object outlives the handlers: what it owns is
// released once the last error is set.
template <typename Kept, typename Work>
BOOL RunExportKeeping(const char* exportName, Work work) noexcept {
  BOOL result = FALSE;
  CallTranslatingExceptions([&] {
    Kept kept;
    result = RunExport(exportName, [&](ExportTrace& trace) { return work(trace, kept); });
  });
  return result;
}

// NOLINTEND(bugprone-exception-escape)

// Throws the thread's last error unless the platform's call `succeeded`. The code is taken first:
// making room for what is thrown can change it.
inline void RequireSuccess(bool succeeded) {
  if (!succeeded) {
    const ErrorCode code = GetLastError();
    throw code;
  }
}

// Traces "<call> = %x." with the code and throws it: the thread's last error, right after the
// failed call.
[[noreturn]] void ThrowFailedCall(ExportTrace& trace, const char* call,
                                  ErrorCode code = GetLastError());

// Refuses a null place for what `call` would give, as the platform refuses it, in place of the
// call: not every version of the platform survives one. To be called where the call is made.
void RequirePlace(ExportTrace& trace, const char* call, const void* place);

// Throws ERROR_INVALID_PARAMETER unless `condition` holds.
inline void RequireParameter(bool condition) {
  if (!condition) {
    throw static_cast<ErrorCode>(ERROR_INVALID_PARAMETER);
  }
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_EXPORT_FRAME_H_
