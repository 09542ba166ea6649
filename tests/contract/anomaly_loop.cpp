#include "contract/anomaly_loop.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>
#include <span>

#include "contract/anomaly_effects.h"
#include "contract/anomaly_points.h"
#include "frame/handles.h"
#include "frame/last_error.h"
#include "support/handle_count.h"
#include "support/module_under_test.h"
#include "support/scripted_provider.h"

namespace zarext::test {
namespace {

// More rounds than any call has failure points.
constexpr std::size_t kEndlessRounds = 3000;

// The round that runs.
struct State {
  bool counts = false;
  DWORD thread = 0;
  std::size_t calls = 0;
  std::size_t failing = 0;  // 0: none
  bool lasting = false;     // once an allocation failed, all do
  Manner manner = Manner::kFails;
  std::map<std::string, int> occurrences;
  std::string lastCall;
  std::optional<FailurePoint> failed;
  std::map<std::string, int> booked;
  const TraceCapture* trace = nullptr;
};
State state;

// Occurrences of one function behind so many do not throw.
constexpr int kThrownOccurrences = 8;

// The provider's entry points count only where something is to be thrown: "CPExportKey" as "at
// CryptExportKey".
constexpr char kAtEntry[] = "at ";
void CountEntry(const char* entryPoint) {
  if (state.manner == Manner::kFails) return;
  if (AnomalyLoop::Fails(std::string(kAtEntry) + "Crypt" + (entryPoint + 2))) {
    AnomalyLoop::EndFailure();
  }
}

// Whether a provider, or another extension of the platform, may be called behind it.
bool LeadsOutside(const std::string& function) {
  return function.starts_with("Crypt") || function.starts_with("Cert") ||
         function.starts_with("CP") || function.starts_with(kAtEntry);
}

[[noreturn]] void ThrowAsAsked() {
  switch (state.manner) {
    case Manner::kThrowsCode:
      throw static_cast<unsigned long>(kInjectedError);
    case Manner::kThrowsForeign:
      RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);
      [[fallthrough]];
    default:
      throw 5;
  }
}

Leftovers Difference(const std::map<std::string, int>& after,
                     const std::map<std::string, int>& before) {
  Leftovers left;
  for (const auto& [kind, count] : after) {
    const auto found = before.find(kind);
    const int change = count - (found == before.end() ? 0 : found->second);
    if (change != 0) left[kind] = change;
  }
  return left;
}

std::vector<std::vector<BYTE>> Snapshot(const std::vector<std::span<BYTE>>& memory) {
  std::vector<std::vector<BYTE>> contents;
  for (const std::span<BYTE> block : memory) contents.emplace_back(block.begin(), block.end());
  return contents;
}

// In a thread of the system's: those of the language library keep handles for the next.
void CallInThread(const std::function<void()>& work) {
  const UniqueKernelObject thread(CreateThread(
      nullptr, 0,
      [](void* function) WINAPI -> DWORD {
        (*static_cast<const std::function<void()>*>(function))();
        return 0;
      },
      const_cast<std::function<void()>*>(&work), 0, nullptr));
  WaitForSingleObject(thread.Get(), INFINITE);
}

}  // namespace

struct AnomalyLoop::Points {
  std::vector<std::unique_ptr<ImportPatch>> patches;
};

struct AnomalyLoop::Round {
  std::optional<FailurePoint> failed;
  long result = 0;
  DWORD error = 0;
  Lines lines;
  Leftovers left;
  bool outputsStayed = true;
};

AnomalyLoop::AnomalyLoop(HMODULE module) : points_(std::make_unique<Points>()) {
  state = State{};
  state.trace = &trace_;
  points_->patches = PatchFailurePoints(module);
  OnProviderEntry(&CountEntry);
  // The language runtimes make state of their own with the first exception of a thread, and with
  // the first for which there is no memory.
  try {
    throw 5;
  } catch (int) {
    state.failed.reset();
  }
  for (const std::size_t failing : {0u, 1u}) {
    Round round;
    Scenario scenario;
    scenario.call = [module] {
      return Export<BOOL WINAPI(DWORD, void*, DWORD, DWORD, void*, void*)>(
          module, "ZarConvertPublicKeyInfo")(0, nullptr, 0, 0, nullptr, nullptr);
    };
    state.failing = failing;
    Call(scenario, round);
    state.calls = 0;
  }
}

AnomalyLoop::~AnomalyLoop() {
  OnProviderEntry(nullptr);
  // The last set is the first to go.
  while (!points_->patches.empty()) points_->patches.pop_back();
}

bool AnomalyLoop::Fails(const std::string& function) {
  if (!state.counts || state.thread != GetCurrentThreadId()) return false;
  const LastErrorKeeper keeper;
  const int occurrence = ++state.occurrences[function];
  if (state.manner != Manner::kFails &&
      (!LeadsOutside(function) || occurrence > kThrownOccurrences)) {
    return false;
  }
  if (state.lasting && state.failed && KindOfPoint(function) == PointKind::kAllocation) return true;
  if (++state.calls != state.failing) {
    if (KindOfPoint(function) != PointKind::kAllocation) state.lastCall = function;
    return false;
  }
  state.failed = FailurePoint{function, occurrence, state.trace->Lines().size(), state.lastCall};
  if (function.starts_with(kAtEntry)) {
    state.failed->function = function.substr(sizeof kAtEntry - 1);
    if (state.failed->function == "CryptAcquireContext") state.failed->function += 'A';
    state.failed->isEntry = true;
  }
  return true;
}

void AnomalyLoop::EndFailure() {
  if (state.manner != Manner::kFails) ThrowAsAsked();
}

Manner AnomalyLoop::CurrentManner() { return state.manner; }

void AnomalyLoop::Book(const char* kind, int change) {
  const LastErrorKeeper keeper;
  state.booked[kind] += change;
}

void AnomalyLoop::Call(const Scenario& scenario, Round& round) {
  state.thread = GetCurrentThreadId();
  state.counts = true;
  SetLastError(kErrorBefore);
  round.result = scenario.call();
  round.error = GetLastError();
  state.counts = false;
}

AnomalyLoop::Round AnomalyLoop::RunRound(const Scenario& scenario, std::size_t failing,
                                         bool lasting, Manner manner) {
  Round round;
  const std::size_t handles = OpenHandleCount();
  scenario.prepare();
  const auto outputs = scenario.outputs ? scenario.outputs() : std::vector<std::span<BYTE>>();
  const auto contents = Snapshot(outputs);
  const auto bookedBefore = state.booked;
  trace_.Clear();
  state.failed.reset();
  state.occurrences.clear();
  state.lastCall.clear();
  state.calls = 0;
  state.failing = failing;
  state.lasting = lasting;
  state.manner = manner;
  if (scenario.thread) {
    CallInThread([&] { Call(scenario, round); });
  } else {
    Call(scenario, round);
  }
  round.failed = state.failed;
  round.lines = trace_.Messages();
  round.left = Difference(state.booked, bookedBefore);
  round.outputsStayed = Snapshot(outputs) == contents;
  const testing::ScopedTrace where(
      __FILE__, __LINE__,
      round.failed
          ? scenario.name + (manner == Manner::kFails ? ", failing " : ", throwing ") +
                round.failed->function + " call " + std::to_string(round.failed->occurrence) +
                " behind " + std::to_string(round.failed->linesBefore) + " lines"
          : scenario.name + ", nothing failing");
  CheckRound(scenario, round);
  scenario.release();
  // Whatever is made on first use is made by the first round, in which nothing fails.
  if (failing != 0) {
    EXPECT_EQ(handles, OpenHandleCount());
  }
  return round;
}

void AnomalyLoop::CheckRound(const Scenario& scenario, const Round& round) {
  const FailurePoint* point = round.failed ? &*round.failed : nullptr;
  if (scenario.check) scenario.check(point, round.result);
  if (point == nullptr) {
    EXPECT_EQ(scenario.result, round.result);
    EXPECT_EQ(scenario.left, round.left);
    ExpectLines(scenario.lines, round.lines);
    return;
  }
  const bool throws = state.manner != Manner::kFails;
  const Effect thrown = throws ? ThrownEffect(scenario, *point, state.manner) : Effect();
  const Effect* const effect = throws ? &thrown : FindEffect(scenario, *point);
  if (effect == nullptr) {
    ADD_FAILURE() << "no rule; result " << round.result << ", error " << std::hex << round.error
                  << ", lines:" << Joined(round.lines);
    return;
  }
  ExpectLines(ExpectedLines(scenario, *point, *effect), round.lines);
  if (effect->course == Effect::Course::kGoesOn) {
    EXPECT_EQ(scenario.result, round.result);
    EXPECT_EQ(effect->error.value_or(round.error), round.error);
    EXPECT_EQ(effect->left.value_or(scenario.left), round.left);
    return;
  }
  EXPECT_EQ(effect->result, round.result);
  if (effect->error) {
    EXPECT_EQ(*effect->error, round.error);
  }
  EXPECT_EQ(effect->left.value_or(Leftovers()), round.left);
  EXPECT_TRUE(effect->writes || round.outputsStayed) << "the caller's memory was changed";
}

std::optional<FailurePoint> AnomalyLoop::RunOne(const Scenario& scenario, std::size_t failing) {
  return RunRound(scenario, failing).failed;
}

int AnomalyLoop::Run(const Scenario& scenario) {
  std::vector<FailurePoint> points;
  RunRound(scenario, 0);
  for (std::size_t failing = 1; failing < kEndlessRounds; ++failing) {
    const Round round = RunRound(scenario, failing);
    if (!round.failed) break;
    points.push_back(*round.failed);
    // The end of memory, not one refusal: the same, where the call does not go on.
    const Effect* const effect = FindEffect(scenario, *round.failed);
    if (KindOfPoint(round.failed->function) == PointKind::kAllocation &&
        effect->course == Effect::Course::kStops) {
      RunRound(scenario, failing, true);
    }
  }
  for (const Manner manner : {Manner::kThrowsCode, Manner::kThrowsOther, Manner::kThrowsForeign}) {
    RunThrowing(scenario, manner);
  }
  return Report(scenario.name, points);
}

void AnomalyLoop::RunThrowing(const Scenario& scenario, Manner manner) {
  for (std::size_t failing = 1; failing < kEndlessRounds; ++failing) {
    if (!RunRound(scenario, failing, false, manner).failed) return;
  }
}

int AnomalyLoop::Report(const std::string& name, const std::vector<FailurePoint>& points) {
  std::map<PointKind, int> kinds;
  std::map<std::string, int> functions;
  for (const FailurePoint& point : points) {
    ++kinds[KindOfPoint(point.function)];
    ++functions[point.function];
  }
  std::string list;
  for (const auto& [function, count] : functions) {
    list +=
        (list.empty() ? "" : ", ") + function + (count == 1 ? "" : " x" + std::to_string(count));
  }
  const int count = static_cast<int>(points.size());
  std::printf("| %s | %d | %d | %d | %d | %s |\n", name.c_str(), count, kinds[PointKind::kCall],
              kinds[PointKind::kAllocation], kinds[PointKind::kRelease], list.c_str());
  return count;
}

}  // namespace zarext::test
