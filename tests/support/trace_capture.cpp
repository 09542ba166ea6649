#include "support/trace_capture.h"

#include <algorithm>
#include <mutex>

namespace zarext::test {
namespace {

constexpr DWORD kDebugPrintException = 0x40010006;

std::mutex handlerMutex;
int recorders = 0;
void* handler = nullptr;

LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception->ExceptionRecord;
  if (record->ExceptionCode != kDebugPrintException) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  RecordEvent(EventKind::kTrace, nullptr,
              reinterpret_cast<const char*>(record->ExceptionInformation[1]));
  SetLastError(kLastErrorAfterOutput);
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

TraceRecorder::TraceRecorder() {
  const std::lock_guard lock(handlerMutex);
  if (recorders++ == 0) {
    handler = AddVectoredExceptionHandler(1, &OnException);
  }
}

TraceRecorder::~TraceRecorder() {
  const std::lock_guard lock(handlerMutex);
  if (--recorders == 0) {
    RemoveVectoredExceptionHandler(handler);
  }
}

std::vector<std::string> TraceCapture::Messages() const {
  std::vector<std::string> messages = Lines();
  std::transform(messages.begin(), messages.end(), messages.begin(), &WithoutPrefix);
  return messages;
}

std::string WithoutPrefix(const std::string& line) {
  // "id=12 : tm=Mon Nov 16 00:12:46.007 : message"
  const auto time = line.find(" : tm=");
  if (line.rfind("id=", 0) != 0 || time == std::string::npos) {
    return line;
  }
  const auto end = line.find(" : ", time + 6);
  return end == std::string::npos ? line : line.substr(end + 3);
}

}  // namespace zarext::test
