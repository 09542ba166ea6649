// What a scenario of the anomaly loop says: the call, what it shows where nothing fails, and what
// each failure leads to.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_SCENARIO_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_SCENARIO_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zarext::test {

// The last error, or the error code returned, of every call that is made to fail.
inline constexpr DWORD kInjectedError = 0x5A5A;
// The last error of a call for which there is no memory.
inline constexpr auto kNoMemory = static_cast<DWORD>(NTE_NO_MEMORY);
// The last error before every round.
inline constexpr DWORD kErrorBefore = 0x12345678;

using Lines = std::vector<std::string>;
// How many of a kind the module took and did not give back, e.g. {"key", 1}; none is not listed.
using Leftovers = std::map<std::string, int>;

// One call into the platform.
struct FailurePoint {
  std::string function;
  int occurrence = 0;           // of this function's calls in the round, from 1
  std::size_t linesBefore = 0;  // trace lines that were written before it
  std::string behind;           // the last call before it that is no allocation
  // At the provider's entry point behind the function of that name, e.g. CPExportKey behind
  // CryptExportKey; only to throw from there.
  bool isEntry = false;
};

// What a failure leads to.
struct Effect {
  enum class Course { kStops, kGoesOn };
  Course course = Course::kStops;
  long result = FALSE;
  std::optional<DWORD> error;
  // Where the call stops: how many lines of the good call stand before it; where it goes on: before
  // the added lines. Taken from the round if not given.
  std::optional<std::size_t> linesBefore;
  Lines added;
  // Where the call goes on, how many lines of the good call are left out behind the added ones.
  std::size_t skipped = 0;
  // Instead of the lines that follow from the above.
  std::optional<Lines> lines;
  // What is left; nothing where the call stops, and what the good call leaves where it goes on, if
  // not given.
  std::optional<Leftovers> left;
  // Whether the caller's memory may differ from what it was.
  bool writes = false;
};

// The call fails with the injected error behind `linesBefore` lines of the good call and this line.
Effect Stops(std::size_t linesBefore, const std::string& line, const Leftovers& left = {});
// The call fails with `error` and no further line.
Effect StopsSilently(DWORD error, const Leftovers& left = {});
// The call goes on as if nothing had happened.
Effect GoesOn();
// The call goes on and writes these lines in all.
Effect GoesOnAs(const Lines& lines);
Effect GoesOnAs(const Lines& lines, const Leftovers& left);
// The call goes on with a line more behind `linesBefore` lines, and `skipped` lines less from
// there.
Effect GoesOnWith(std::size_t linesBefore, const Lines& lines, std::size_t skipped = 0);

// How a call fails: as it is described, or by an exception on its way to the module.
enum class Manner { kFails, kThrowsCode, kThrowsOther, kThrowsForeign };

struct Rule {
  std::string function;  // or "allocation", for all of them
  int occurrence;        // 0: every
  Effect effect;
  // Only where so many lines stand before it.
  std::optional<std::size_t> linesBefore = {};
  // Only where this was the last call before it that is no allocation.
  std::string behind = {};
};

struct Scenario {
  // As printed and as listed in docs/reliability.md.
  std::string name;
  // Makes the state before each round.
  std::function<void()> prepare;
  std::function<long()> call;
  // Whether each round calls from a thread of its own.
  bool thread = false;
  // Gives back what the good call and every failed one left to the caller.
  std::function<void()> release;
  // The trace of the good call. "*" stands for the digits of a handle.
  Lines lines;
  long result = TRUE;
  Leftovers left;
  // Memory of the caller that a failing call leaves as it was.
  std::function<std::vector<std::span<BYTE>>()> outputs;
  // First match. Failed allocations are NTE_NO_MEMORY without a line, and a failed release is
  // passed over, where no rule says otherwise; any other point needs a rule.
  std::vector<Rule> rules;
  // Checks beyond the usual ones; null for the good call.
  std::function<void(const FailurePoint* point, long result)> check;
  // What an exception out of a call leads to, where it is not the usual: FALSE with the code that
  // was thrown or NTE_NO_MEMORY, no further line, and what the call's failure leaves.
  std::function<void(const FailurePoint& point, Manner manner, Effect& effect)> thrown;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_SCENARIO_H_
