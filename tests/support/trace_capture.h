// Captures the debugger output of the own process.
#ifndef ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_
#define ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_

#include <windows.h>

#include <string>
#include <vector>

namespace zarext::test {

// The last error that capturing leaves behind each line, so that code which reads the last error
// after tracing shows in every test.
inline constexpr DWORD kLastErrorAfterOutput = 0x0BADBEEF;

// Collects every line from construction to destruction, of all threads. One at a time.
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // The messages behind the "id=... : tm=... : " prefix. Lines without that prefix come whole.
  [[nodiscard]] std::vector<std::string> Messages() const;
  // The lines as they were written.
  [[nodiscard]] std::vector<std::string> Lines() const;
  void Clear();
};

// `line` without the trace prefix.
std::string WithoutPrefix(const std::string& line);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_TRACE_CAPTURE_H_
