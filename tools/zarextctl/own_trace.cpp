#include "zarextctl/own_trace.h"

#include <windows.h>

#include <mutex>
#include <utility>

#include "zarextctl/trace_line.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

std::mutex linesMutex;
std::vector<std::string> lines;

// OutputDebugStringA raises this exception first; nobody has handled it when a viewer is asked.
LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
  constexpr DWORD kDebugPrintException = 0x40010006;
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode == kDebugPrintException && record.NumberParameters >= 2) {
    const DWORD error = GetLastError();
    {
      const std::lock_guard lock(linesMutex);
      lines.emplace_back(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
    }
    SetLastError(error);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

OwnTrace::OwnTrace() : handler_(AddVectoredExceptionHandler(1, &OnException)) { Take(); }

OwnTrace::~OwnTrace() { RemoveVectoredExceptionHandler(handler_); }

std::vector<std::string> OwnTrace::Take() {
  std::vector<std::string> taken;
  {
    const std::lock_guard lock(linesMutex);
    taken = std::exchange(lines, {});
  }
  std::vector<std::string> messages;
  for (const std::string& text : taken) {
    const TraceLine line = ParseTraceLine(Utf8FromAnsi(text));
    if (line.isModule) {
      messages.push_back(line.message);
    }
  }
  return messages;
}

}  // namespace zarext::ctl
