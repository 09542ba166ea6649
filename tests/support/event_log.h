// One sequence of what happens around the module under test: the lines that it traces, the calls
// that reach its provider, the calls that it makes into the platform. Every recorder writes here,
// and every list that a test reads is a view of it, so that order across kinds can be tested.
#ifndef ZAREXT_TESTS_SUPPORT_EVENT_LOG_H_
#define ZAREXT_TESTS_SUPPORT_EVENT_LOG_H_

#include <windows.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace zarext::test {

enum class EventKind {
  kTrace,     // a whole line of the debugger output
  kProvider,  // a call that reached a scripted provider, with its result
  kPlatform,  // a call of the module into the platform, as it is made
};

// Adds an event for whoever has a view on it; from any thread. `owner` is the object that records,
// null for traces. The thread's last error is as before.
void RecordEvent(EventKind kind, const void* owner, const std::string& text);

// The events from the view's construction on: all of them, or those of a kind, or of one recorder.
// An event lives as long as one view shows it.
class EventView {
 public:
  EventView() : EventView(std::nullopt, nullptr) {}
  explicit EventView(EventKind kind, const void* owner = nullptr)
      : EventView(std::optional<EventKind>(kind), owner) {}
  ~EventView();
  EventView(const EventView&) = delete;
  EventView& operator=(const EventView&) = delete;

  // The texts as they were recorded.
  [[nodiscard]] std::vector<std::string> Texts() const;
  // The same with their kind: "trace: EXT : ZarOpenStoreProv : FINISH" (without the prefix of a
  // trace line), "provider: ReleaseContext(1, 0)", "platform: ReleaseMutex()".
  [[nodiscard]] std::vector<std::string> Lines() const;
  [[nodiscard]] std::size_t Size() const;
  // This view starts anew; others keep what they show.
  void Clear();
  // True as soon as a line of Lines() begins so; false if none does within the time.
  [[nodiscard]] bool WaitFor(const std::string& beginning,
                             std::chrono::seconds limit = std::chrono::seconds(30)) const;

 private:
  friend class EventLog;
  EventView(std::optional<EventKind> kind, const void* owner);

  std::optional<EventKind> kind_;
  const void* owner_;
  unsigned long long start_ = 0;
  std::size_t size_ = 0;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_EVENT_LOG_H_
