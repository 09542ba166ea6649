#include "frame/export_frame.h"

#include <winerror.h>

#include "frame/last_error.h"

namespace zarext {

void ExportTrace::Write(bool named, const char* format, std::va_list arguments) {
  const LastErrorKeeper keeper;
  text_.Clear();
  if (named) {
    text_.Append("EXT : %s : ", exportName_);
  }
  text_.AppendList(format, arguments);
  Trace("%s", text_.Text());
}

void ExportTrace::Line(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Write(true, format, arguments);
  va_end(arguments);
}

void ExportTrace::WholeLine(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Write(false, format, arguments);
  va_end(arguments);
}

void ExportTrace::LineAndThrow(ErrorCode code, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Write(true, format, arguments);
  va_end(arguments);
  throw code;
}

void CallInFrame(const char* exportName, Callback<ExportTrace&> work) noexcept {
  RunGuarded([](ErrorCode code) { SetLastError(code); },
             [] { SetLastError(static_cast<DWORD>(NTE_NO_MEMORY)); },
             [&] {
               ExportTrace trace(exportName);
               work(trace);
             });
}

void ThrowFailedCall(ExportTrace& trace, const char* call, ErrorCode code) {
  trace.LineAndThrow(code, "%s = %x.", call, Hex(code));
}

void RequirePlace(ExportTrace& trace, const char* call, const void* place) {
  if (place == nullptr) {
    ThrowFailedCall(trace, call, ERROR_INVALID_PARAMETER);
  }
}

}  // namespace zarext
