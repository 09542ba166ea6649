#include "frame/export_frame.h"

#include "frame/handles.h"

namespace zarext {

void ExportTrace::Line(const char* format, ...) noexcept {
  const LastErrorKeeper keeper;
  text_.Clear();
  std::va_list arguments;
  va_start(arguments, format);
  text_.AppendList(format, arguments);
  va_end(arguments);
  Trace("%s", text_.Text());
}

}  // namespace zarext
