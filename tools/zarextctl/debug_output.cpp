#include "zarextctl/debug_output.h"

#include <sddl.h>

#include <chrono>
#include <cstring>
#include <iterator>
#include <utility>

#include "zarextctl/failure.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr DWORD kBufferSize = 4096;
constexpr std::size_t kMostWriters = 512;

struct DebugBuffer {
  DWORD process;
  char text[kBufferSize - sizeof(DWORD)];
};

// Everyone may write, processes of low integrity too: who may not would be missing without a word.
class OpenToWriters {
 public:
  OpenToWriters() {
    PSECURITY_DESCRIPTOR made = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;;GA;;;WD)S:(ML;;NW;;;LW)",
                                                         SDDL_REVISION_1, &made, nullptr);
    descriptor_.Reset(made);
    attributes_ = {sizeof attributes_, made, FALSE};
  }
  SECURITY_ATTRIBUTES* Get() { return &attributes_; }

 private:
  UniqueLocalMemory descriptor_;
  SECURITY_ATTRIBUTES attributes_ = {};
};

[[noreturn]] void FailToListen(DWORD code, bool global) {
  if (code == ERROR_ALREADY_EXISTS) {
    throw Failure("listen to the debugger output: another viewer does", code,
                  "close the other viewer; there can be one in a session");
  }
  throw Failure(std::string("make the ") + (global ? "global " : "") + "channel of debugger output",
                code,
                global ? "open a command prompt as administrator: the lines of services need one"
                       : "try again");
}

}  // namespace

void MessageQueue::Add(DebugMessage message) {
  {
    const std::lock_guard lock(mutex_);
    if (messages_.size() >= capacity_) {
      ++dropped_;
      return;
    }
    message.droppedBefore = std::exchange(dropped_, 0);
    messages_.push_back(std::move(message));
  }
  added_.notify_one();
}

std::vector<DebugMessage> MessageQueue::Take(DWORD milliseconds) {
  std::unique_lock lock(mutex_);
  added_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                  [this] { return !messages_.empty(); });
  std::vector<DebugMessage> taken(std::move_iterator(messages_.begin()),
                                  std::move_iterator(messages_.end()));
  messages_.clear();
  return taken;
}

std::uint64_t MessageQueue::DroppedLast() {
  const std::lock_guard lock(mutex_);
  return std::exchange(dropped_, 0);
}

DebugOutputReader::DebugOutputReader(bool global, MessageQueue& queue) : queue_(queue) {
  const std::wstring prefix = global ? L"Global\\" : L"";
  OpenToWriters security;
  section_.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, security.Get(), PAGE_READWRITE, 0,
                                    kBufferSize, (prefix + L"DBWIN_BUFFER").c_str()));
  if (!section_ || GetLastError() == ERROR_ALREADY_EXISTS) {
    FailToListen(GetLastError(), global);
  }
  view_.Reset(MapViewOfFile(section_.Get(), FILE_MAP_READ, 0, 0, 0));
  bufferReady_.Reset(
      CreateEventW(security.Get(), FALSE, FALSE, (prefix + L"DBWIN_BUFFER_READY").c_str()));
  dataReady_.Reset(
      CreateEventW(security.Get(), FALSE, FALSE, (prefix + L"DBWIN_DATA_READY").c_str()));
  stop_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!view_ || !bufferReady_ || !dataReady_ || !stop_) {
    FailToListen(GetLastError(), global);
  }
  thread_ = std::thread([this] { Collect(); });
  SetEvent(bufferReady_.Get());
}

DebugOutputReader::~DebugOutputReader() {
  SetEvent(stop_.Get());
  thread_.join();
}

void DebugOutputReader::Collect() {
  const HANDLE events[] = {dataReady_.Get(), stop_.Get()};
  const auto* const buffer = static_cast<const DebugBuffer*>(view_.Get());
  DebugBuffer copy = {};
  // A line that is there when the end comes is still taken.
  while (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0) {
    std::memcpy(&copy, buffer, sizeof copy);
    SetEvent(bufferReady_.Get());
    DebugMessage message;
    GetSystemTimeAsFileTime(&message.time);
    message.process = copy.process;
    message.processName = NameOf(copy.process);
    message.text.assign(copy.text, strnlen(copy.text, sizeof copy.text));
    queue_.Add(std::move(message));
  }
}

const std::string& DebugOutputReader::NameOf(DWORD process) {
  const auto known = writers_.find(process);
  if (known != writers_.end()) {
    return known->second.name;
  }
  if (writers_.size() >= kMostWriters) {
    writers_.clear();
  }
  Writer writer;
  writer.process.Reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
  wchar_t path[1024] = {};
  DWORD size = 1024;
  if (writer.process && QueryFullProcessImageNameW(writer.process.Get(), 0, path, &size)) {
    writer.name = FileName(Utf8(path));
  }
  return writers_.emplace(process, std::move(writer)).first->second.name;
}

std::string WhySilent(DWORD process, bool global) {
  DWORD session = 0;
  DWORD own = 0;
  if (!global && ProcessIdToSessionId(process, &session) &&
      ProcessIdToSessionId(GetCurrentProcessId(), &own) && session != own) {
    return "process " + std::to_string(process) + " runs in session " + std::to_string(session) +
           " and this is session " + std::to_string(own) +
           ": its lines need --global, and an administrator";
  }
  const UniqueKernelObject handle(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, process));
  BOOL isDebugged = FALSE;
  if (handle && CheckRemoteDebuggerPresent(handle.Get(), &isDebugged) && isDebugged) {
    return "a debugger is attached to process " + std::to_string(process) +
           " and takes its lines: detach it";
  }
  return "";
}

}  // namespace zarext::ctl
