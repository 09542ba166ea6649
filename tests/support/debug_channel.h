// The viewer's side of the debugger output channel: what other processes write.
#ifndef ZAREXT_TESTS_SUPPORT_DEBUG_CHANNEL_H_
#define ZAREXT_TESTS_SUPPORT_DEBUG_CHANNEL_H_

#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame/handles.h"

namespace zarext::test {

struct DebugLine {
  DWORD process;
  std::string text;  // cut by the platform to 4,091 octets
};

// Collects from construction on; must exist before the writing process starts. One per session.
class DebugChannel {
 public:
  DebugChannel();
  ~DebugChannel();
  DebugChannel(const DebugChannel&) = delete;
  DebugChannel& operator=(const DebugChannel&) = delete;

  // What has arrived so far from `process` (0: from all).
  [[nodiscard]] std::vector<std::string> Lines(DWORD process = 0) const;
  // Takes what has arrived so far.
  std::vector<DebugLine> Take();

 private:
  void Collect();

  UniqueKernelObject section_;
  UniqueView view_;
  UniqueKernelObject bufferReady_;
  UniqueKernelObject dataReady_;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::vector<DebugLine> lines_;
  std::thread thread_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_DEBUG_CHANNEL_H_
