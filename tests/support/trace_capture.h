// Captures the debugger output of the own process.
#ifndef ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_
#define ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_

#include <windows.h>

#include <string>
#include <vector>

#include "support/event_log.h"

namespace zarext::test {

// The last error that capturing leaves behind each line, so that code which reads the last error
// after tracing shows in every test.
inline constexpr DWORD kLastErrorAfterOutput = 0x0BADBEEF;

// Makes every line of the debugger output an event, as long as one of these lives.
class TraceRecorder {
 public:
  TraceRecorder();
  ~TraceRecorder();
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;
};

// Every line from construction to destruction, of all threads. Several may live at a time: a line
// is recorded once, and each of them shows it.
class TraceCapture {
 public:
  // The messages behind the "id=... : tm=... : " prefix. Lines without that prefix come whole.
  [[nodiscard]] std::vector<std::string> Messages() const;
  // The lines as they were written.
  [[nodiscard]] std::vector<std::string> Lines() const { return lines_.Texts(); }
  void Clear() { lines_.Clear(); }

 private:
  TraceRecorder recorder_;
  EventView lines_{EventKind::kTrace};
};

// `line` without the trace prefix.
std::string WithoutPrefix(const std::string& line);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_
