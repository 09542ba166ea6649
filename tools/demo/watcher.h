// The watching process: starts the steps and prints what arrives from them.
#ifndef ZAREXT_TOOLS_DEMO_WATCHER_H_
#define ZAREXT_TOOLS_DEMO_WATCHER_H_

#include <windows.h>

#include <string>
#include <vector>

#include "support/debug_channel.h"

namespace zarext::demo {

struct Step {
  const char* name;
  const char* title;
  void (*act)();
  bool inWatcher;  // instead of a process of its own
};

// How this program starts itself again to act.
std::string ActCommandLine(const char* name);

class Watcher {
 public:
  // `rawTrace`: the module's lines as they arrive, with thread and time.
  explicit Watcher(bool rawTrace) : rawTrace_(rawTrace) {}

  // Runs one step to its end; false if it went wrong.
  bool Run(const Step& step);
  // The table of what has run.
  void PrintSummary() const;

 private:
  struct Record {
    std::string title;
    unsigned calls = 0;
    unsigned lines = 0;
    unsigned checks = 0;
    unsigned failures = 0;
    bool ended = false;
  };

  void RunHere(const Step& step);
  void RunThere(const Step& step);
  // Prints what has arrived; `own` is the process whose lines need no mark.
  void Print(DWORD own);
  void PrintStory(const std::string& line);
  // Whether a line with `part` in it has come since the last call is as it should be.
  void CheckTraced(const std::string& part, bool expected);
  void PrintTrace(const test::DebugLine& line, DWORD own);
  void WaitForEnd(DWORD own);

  test::DebugChannel channel_;
  bool rawTrace_;
  std::vector<Record> records_;
  std::vector<std::string> tracedSinceCall_;
};

}  // namespace zarext::demo

#endif  // ZAREXT_TOOLS_DEMO_WATCHER_H_
