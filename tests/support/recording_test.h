// The fixture of the contract tests: everything that happens in a test stands in one sequence.
// Outside of it are only stand-ins of imported functions that fail, answer or count as a test says:
// they check arguments, and the place of the call among others does not matter to their test.
#ifndef ZAREXT_TESTS_SUPPORT_RECORDING_TEST_H_
#define ZAREXT_TESTS_SUPPORT_RECORDING_TEST_H_

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <vector>

#include "support/event_log.h"
#include "support/trace_capture.h"

namespace zarext::test {

// Lines that begin so stand in the list in this order; others may stand between them.
MATCHER_P(HasInOrder, beginnings, "has in this order " + testing::PrintToString(beginnings)) {
  std::size_t found = 0;
  for (const std::string& line : arg) {
    if (found < beginnings.size() && line.starts_with(beginnings[found])) {
      ++found;
    }
  }
  if (found != beginnings.size()) {
    *result_listener << "which has no \"" << beginnings[found] << "\" behind the ones before it";
  }
  return found == beginnings.size();
}

// Of `lines`, those that begin with one of `beginnings`, in their order: for a test that has to
// see that nothing of a kind stands elsewhere.
inline std::vector<std::string> LinesOf(const std::vector<std::string>& lines,
                                        const std::vector<std::string>& beginnings) {
  std::vector<std::string> chosen;
  for (const std::string& line : lines) {
    for (const std::string& beginning : beginnings) {
      if (line.starts_with(beginning)) {
        chosen.push_back(line);
        break;
      }
    }
  }
  return chosen;
}

class RecordingTest : public testing::Test {
 public:
  // From the start of the test: the module's traces, the calls of every scripted provider, and the
  // platform calls of whatever recorder a test makes (RecordedImport, StoreRecording).
  EventView events;

 private:
  TraceRecorder recorder_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_RECORDING_TEST_H_
