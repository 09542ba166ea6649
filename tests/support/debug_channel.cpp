#include "support/debug_channel.h"

#include <stdexcept>
#include <utility>

namespace zarext::test {
namespace {

constexpr DWORD kBufferSize = 4096;

struct DebugBuffer {
  DWORD process;
  char text[kBufferSize - sizeof(DWORD)];
};

}  // namespace

DebugChannel::DebugChannel()
    : section_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kBufferSize,
                                  "DBWIN_BUFFER")),
      view_(section_ ? MapViewOfFile(section_.Get(), FILE_MAP_READ, 0, 0, 0) : nullptr),
      bufferReady_(CreateEventA(nullptr, FALSE, TRUE, "DBWIN_BUFFER_READY")),
      dataReady_(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY")) {
  if (!view_ || !bufferReady_ || !dataReady_) {
    throw std::runtime_error("the debugger output channel cannot be opened");
  }
  thread_ = std::thread([this] { Collect(); });
}

DebugChannel::~DebugChannel() {
  stop_ = true;
  thread_.join();
}

void DebugChannel::Collect() {
  const auto buffer = static_cast<const volatile DebugBuffer*>(view_.Get());
  while (!stop_) {
    if (WaitForSingleObject(dataReady_.Get(), 50) != WAIT_OBJECT_0) {
      continue;
    }
    const auto plain = const_cast<const DebugBuffer*>(buffer);
    DebugLine line{plain->process,
                   std::string(plain->text, strnlen(plain->text, sizeof plain->text))};
    {
      const std::lock_guard lock(mutex_);
      lines_.push_back(std::move(line));
    }
    SetEvent(bufferReady_.Get());
  }
}

std::vector<std::string> DebugChannel::Lines(DWORD process) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const DebugLine& line : lines_) {
    if (process == 0 || line.process == process) {
      texts.push_back(line.text);
    }
  }
  return texts;
}

std::vector<DebugLine> DebugChannel::Take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

}  // namespace zarext::test
