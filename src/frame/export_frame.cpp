#include "frame/export_frame.h"

#include <winerror.h>

#include "frame/last_error.h"

namespace zarext {

void ExportTrace::Compose(bool named, const char* format, std::va_list arguments) {
  const LastErrorKeeper keeper;
  text_.Clear();
  if (named) {
    text_.Append("EXT : %s : ", exportName_);
  }
  text_.AppendList(format, arguments);
}

void ExportTrace::Write() { Trace("%s", text_.Text()); }

void ExportTrace::Line(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Compose(true, format, arguments);
  va_end(arguments);
  Write();
}

void ExportTrace::WholeLine(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Compose(false, format, arguments);
  va_end(arguments);
  Write();
}

void ExportTrace::LineAndThrow(ErrorCode code, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Compose(true, format, arguments);
  va_end(arguments);
  Write();
  throw code;
}

void CallInFrame(const char* exportName, Callback<ExportTrace&> work) noexcept {
  auto fail = [](ErrorCode code) { SetLastError(code); };
  auto failForMemory = [] { SetLastError(static_cast<DWORD>(NTE_NO_MEMORY)); };
  auto traced = [&] {
    ExportTrace trace(exportName);
    work(trace);
  };
  CallGuarded(Callback<ErrorCode>(fail), Callback<>(failForMemory), Callback<>(traced));
}

void ThrowFailedCall(ExportTrace& trace, const char* call) {
  const ErrorCode code = GetLastError();
  trace.LineAndThrow(code, "%s = %x.", call, Hex(code));
}

}  // namespace zarext
