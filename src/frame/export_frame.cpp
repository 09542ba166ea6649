#include "frame/export_frame.h"

#include <winerror.h>

#include "frame/last_error.h"

namespace zarext {

void ExportTrace::Line(const char* format, ...) {
  const LastErrorKeeper keeper;
  text_.Clear();
  std::va_list arguments;
  va_start(arguments, format);
  text_.AppendList(format, arguments);
  va_end(arguments);
  Trace("%s", text_.Text());
}

void CallInFrame(Callback<ExportTrace&> work) noexcept {
  auto fail = [](ErrorCode code) { SetLastError(code); };
  auto failForMemory = [] { SetLastError(static_cast<DWORD>(NTE_NO_MEMORY)); };
  auto traced = [&] {
    ExportTrace trace;
    work(trace);
  };
  CallGuarded(Callback<ErrorCode>(fail), Callback<>(failForMemory), Callback<>(traced));
}

}  // namespace zarext
