#include "support/trace_capture.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace zarext::test {
namespace {

constexpr DWORD kDebugPrintException = 0x40010006;

std::mutex captureMutex;
std::vector<std::string>* captured = nullptr;
std::vector<std::string> lines;
void* handler = nullptr;

LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception->ExceptionRecord;
  if (record->ExceptionCode != kDebugPrintException) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  {
    const std::lock_guard lock(captureMutex);
    if (captured != nullptr) {
      captured->emplace_back(reinterpret_cast<const char*>(record->ExceptionInformation[1]));
    }
  }
  SetLastError(kLastErrorAfterOutput);
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

TraceCapture::TraceCapture() {
  const std::lock_guard lock(captureMutex);
  if (captured != nullptr) {
    throw std::logic_error("one capture at a time");
  }
  lines.clear();
  captured = &lines;
  handler = AddVectoredExceptionHandler(1, &OnException);
}

TraceCapture::~TraceCapture() {
  RemoveVectoredExceptionHandler(handler);
  const std::lock_guard lock(captureMutex);
  captured = nullptr;
}

std::vector<std::string> TraceCapture::Lines() const {
  const std::lock_guard lock(captureMutex);
  return lines;
}

std::vector<std::string> TraceCapture::Messages() const {
  std::vector<std::string> messages = Lines();
  std::transform(messages.begin(), messages.end(), messages.begin(), &WithoutPrefix);
  return messages;
}

void TraceCapture::Clear() {
  const std::lock_guard lock(captureMutex);
  lines.clear();
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
