// The debugger output of a session, or of the whole machine: the reader, and the queue between it
// and whatever is slow.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_DEBUG_OUTPUT_H_
#define ZAREXT_TOOLS_ZAREXTCTL_DEBUG_OUTPUT_H_

#include <windows.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame/handles.h"

namespace zarext::ctl {

struct DebugMessage {
  DWORD process = 0;
  std::string processName;
  FILETIME time = {};               // of its arrival
  std::string text;                 // as the process wrote it, at most 4,091 octets
  std::uint64_t droppedBefore = 0;  // so many were dropped between the one before and this one
};

// Takes as long as the reader lives, whatever the other end does.
class MessageQueue {
 public:
  explicit MessageQueue(std::size_t capacity) : capacity_(capacity) {}

  // Drops the message, and counts it, if there is no room.
  void Add(DebugMessage message);
  // What is there, after at most `milliseconds`.
  std::vector<DebugMessage> Take(DWORD milliseconds);
  // Those that no message has told of yet.
  [[nodiscard]] std::uint64_t DroppedLast();

 private:
  const std::size_t capacity_;
  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<DebugMessage> messages_;
  std::uint64_t dropped_ = 0;
};

// Owns the buffer and the two events of the channel. A writer waits up to ten seconds for its turn,
// so the reader copies, gives the buffer back, and only then does anything else.
class DebugOutputReader {
 public:
  // `global`: the channel of services. Throws Failure if another viewer listens, or without the
  // right to make the objects.
  DebugOutputReader(bool global, MessageQueue& queue);
  ~DebugOutputReader();
  DebugOutputReader(const DebugOutputReader&) = delete;
  DebugOutputReader& operator=(const DebugOutputReader&) = delete;
  DebugOutputReader(DebugOutputReader&&) = delete;
  DebugOutputReader& operator=(DebugOutputReader&&) = delete;

 private:
  // A handle that is kept keeps the number from being given to another process.
  struct Writer {
    UniqueKernelObject process;
    std::string name;
  };

  void Collect();
  const std::string& NameOf(DWORD process);

  MessageQueue& queue_;
  UniqueKernelObject section_;
  UniqueView view_;
  UniqueKernelObject bufferReady_;
  UniqueKernelObject dataReady_;
  UniqueKernelObject stop_;
  std::map<DWORD, Writer> writers_;
  std::thread thread_;
};

// Why lines of a process cannot arrive here; empty if nothing is in the way.
std::string WhySilent(DWORD process, bool global);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_DEBUG_OUTPUT_H_
