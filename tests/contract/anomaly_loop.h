// Runs a call of the module again and again with the first, the second, the third ... call into the
// platform failing, until the call goes through, and checks each time what the caller sees and what
// stays behind.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_LOOP_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_LOOP_H_

#include <windows.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "contract/anomaly_scenario.h"
#include "support/trace_capture.h"

namespace zarext::test {

// Patches every import of advapi32, crypt32 and kernel32 that can fail, and the C runtime's
// allocations, in `module`, as long as the object lives. Patches set earlier stay in effect behind
// it. One at a time.
class AnomalyLoop {
 public:
  explicit AnomalyLoop(HMODULE module);
  ~AnomalyLoop();
  AnomalyLoop(const AnomalyLoop&) = delete;
  AnomalyLoop& operator=(const AnomalyLoop&) = delete;

  // All rounds of a scenario. Prints how many failure points there were, and returns it. Calls that
  // can lead into a provider, or into another extension of the platform, also throw in turn, the
  // first occurrences of each.
  int Run(const Scenario& scenario);
  // One round, for scenarios that make the module anew; what failed, if there was that much to
  // fail.
  std::optional<FailurePoint> RunOne(const Scenario& scenario, std::size_t failing);
  // Counts the points of such rounds, and prints them as Run does.
  static int Report(const std::string& name, const std::vector<FailurePoint>& points);

  // For calls that reach the platform, or the provider, without an import: counts one, and says
  // whether it is to fail. The last error stays.
  static bool Fails(const std::string& function);
  // The end of such a call that fails, behind what it took or gave back: throws where it is to
  // throw.
  static void EndFailure();
  static Manner CurrentManner();
  // Books something taken (1) or given back (-1). The last error stays.
  static void Book(const char* kind, int change);

 private:
  struct Round;
  struct Points;
  static void Call(const Scenario& scenario, Round& round);
  Round RunRound(const Scenario& scenario, std::size_t failing, bool lasting = false,
                 Manner manner = Manner::kFails);
  void RunThrowing(const Scenario& scenario, Manner manner);
  void CheckRound(const Scenario& scenario, const Round& round);

  std::unique_ptr<Points> points_;
  TraceCapture trace_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_LOOP_H_
