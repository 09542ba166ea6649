// Calls that arrive behind the module's exit routine.
#include <fstream>

#include "contract/store_fixture.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

// What the calls need, left to the end of the process.
struct LateCalls {
  StoreFixes fixes{Module()};
  ContainerProvider provider;
  TraceCapture trace;
  MemoryStore opened;
  MemoryStore another;
  CERT_STORE_PROV_INFO info = {};
  UniqueCertContext added = MakeContext(MakeCertificate({.serial = {2}}));

  BOOL Open(const MemoryStore& store) {
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0, 0, 0, nullptr,
                                                         store.Get(), &info);
  }
  template <typename Function>
  Function* Callback(int slot) const {
    return reinterpret_cast<Function*>(info.rgpvStoreProvFunc[slot]);
  }
  // 0, or the number of the check that failed.
  int Run() {
    trace.Clear();
    if (!Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD)>(2)(opened.Get(), added.Get(),
                                                                         1)) {
      return 11;
    }
    if (provider.written.size() != 1) return 12;
    // A listing of the last minute is gone, and the provider is walked.
    provider.ClearCalls();
    if (!Open(another)) return 13;
    if (provider.CountCalls("AcquireContext") != 2) return 14;
    if (Encodings(another.Get()).size() != 1) return 15;
    trace.Clear();
    if (!Callback<BOOL WINAPI(HCERTSTOREPROV, DWORD)>(0)(opened.Get(), 1)) return 16;
    char bound[32] = {};
    snprintf(bound, sizeof bound, "hLib = %lx]",
             static_cast<unsigned long>(
                 reinterpret_cast<ULONG_PTR>(GetModuleHandleA("scripted_provider.dll"))));
    const auto lines = trace.Messages();
    if (lines.size() != 1) return 17;
    return lines[0].ends_with(bound) ? 0 : 18;
  }
};
LateCalls* late = nullptr;

// The exit code is settled by then.
constexpr char kOutcome[] = "late_calls.tmp";

ZAREXT_CHILD(LateCalls) {
  const HMODULE caller = LoadLibraryA("late_caller.dll");
  if (caller == nullptr) return 1;
  late = new LateCalls;
  UseScript(&late->provider);
  late->provider.containers = {
      {"c", "file", "", "", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})}}};
  if (!late->Open(late->opened)) return 2;
  using Arm = void(void (*)());
  const FARPROC arm = GetProcAddress(caller, "CallWhenTheProcessEnds");
  reinterpret_cast<Arm*>(reinterpret_cast<void*>(arm))(
      [] { std::ofstream(kOutcome) << "check " << late->Run(); });
  // Past this program's own destructors, whose objects the calls need.
  ExitProcess(0);
}

TEST(StoreBehindTheModulesExit, IsOpenedWrittenAndClosed) {
  DeleteFileA(kOutcome);
  EXPECT_EQ(0u, ChildProcess("LateCalls").Wait().value_or(255));
  std::string outcome;
  std::getline(std::ifstream(kOutcome), outcome);
  EXPECT_EQ("check 0", outcome);
  DeleteFileA(kOutcome);
}

}  // namespace
}  // namespace zarext::test
