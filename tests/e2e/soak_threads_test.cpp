// Eight threads that mix all exports. Every call's result and last error are known beforehand; at
// the end handles, keys, contexts and memory are as they were.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <vector>

#include "contract/store_fixture.h"
#include "e2e/soak_support.h"
#include "e2e/soak_worker.h"
#include "support/provider_handle_as_key.h"

namespace zarext::test {
namespace {

constexpr int kThreads = 8;

// The trace goes on in all threads: each line names the thread that wrote it, and leaves a wrong
// last error behind.
std::atomic<long> traceLines{0};
std::atomic<long> wrongLines{0};
LONG CALLBACK OnTrace(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception->ExceptionRecord;
  if (record->ExceptionCode != 0x40010006) return EXCEPTION_CONTINUE_SEARCH;
  const auto* const text = reinterpret_cast<const char*>(record->ExceptionInformation[1]);
  unsigned long thread = 0;
  int read = 0;
  if (std::sscanf(text, "id=%lu : tm=%n", &thread, &read) != 1 || read == 0 ||
      thread != GetCurrentThreadId() || std::strstr(text, " : EXT : ") == nullptr) {
    ++wrongLines;
  }
  ++traceLines;
  SetLastError(kLastErrorAfterOutput);
  return EXCEPTION_CONTINUE_EXECUTION;
}

decltype(CryptImportKey)* realImport = nullptr;
BOOL WINAPI SpyImport(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY other,
                      DWORD flags, HCRYPTKEY* key) {
  const BOOL done = realImport(provider, data, size, other, flags, key);
  LastImported() = done ? *key : 0;
  return done;
}

TEST(SoakThreads, EightThreadsMixAllExports) {
  const long calls = SoakNumber("ZAREXT_SOAK_CALLS", 24000);
  LoadProvider provider;
  UseScript(&provider);
  const StoreFixes fixes(Module());
  const ModuleClock clock(Module(), 1700000000);
  const ProviderHandleAsKey handleAsKey;
  const ImportPatch spy(Module(), "ADVAPI32.dll", "CryptImportKey", &SpyImport);
  realImport = spy.Original<decltype(CryptImportKey)>();
  // Without a log file a refusal would close a descriptor of the process.
  { const UniqueFile log(fopen("c:\\zarext.log", "wb")); }
  void* const handler = AddVectoredExceptionHandler(1, &OnTrace);
  SoakWorker::Counts counts{};
  const auto run = [&](long all) {
    struct Start {
      unsigned seed;
      long calls;
      SoakWorker::Counts* counts;
    };
    std::vector<Start> starts;
    for (unsigned seed = 1; seed <= kThreads; ++seed) {
      starts.push_back({seed, all / kThreads, &counts});
    }
    // Threads of the system's: those of the language library keep handles for the next.
    std::vector<UniqueKernelObject> threads;
    for (Start& one : starts) {
      threads.emplace_back(CreateThread(
          nullptr, 0,
          [](void* parameter) WINAPI -> DWORD {
            const auto& start = *static_cast<const Start*>(parameter);
            SoakWorker(start.seed).Run(start.calls, *start.counts);
            return 0;
          },
          &one, 0, nullptr));
    }
    for (const UniqueKernelObject& thread : threads) WaitForSingleObject(thread.Get(), INFINITE);
  };
  run(calls / 5);
  const SoakUsage start;
  const auto begin = GetTickCount64();
  run(calls - calls / 5);
  const auto milliseconds = GetTickCount64() - begin;
  const SoakUsage end;
  RemoveVectoredExceptionHandler(handler);
  DeleteFileA("c:\\zarext.log");

  EXPECT_EQ(0, WrongCalls());
  EXPECT_EQ(0, wrongLines);
  EXPECT_EQ(0, provider.keys);
  EXPECT_EQ(0, provider.contexts);
  EXPECT_EQ(start.handles, end.handles);
  EXPECT_LE(end.memory, start.memory + 1048576);
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const char* const exports = SoakWorker::kOperations[i].exports;
    std::printf("%8ld %s\n", counts[i].load(), exports);
    EXPECT_TRUE(calls < 1000000 || counts[i] > 0) << exports;
  }
  std::printf(
      "%ld calls by %d threads, the last %ld in %llu ms; %ld trace lines; handles %zu -> "
      "%zu, memory %zu KiB -> %zu KiB\n",
      calls, kThreads, calls - calls / 5, static_cast<unsigned long long>(milliseconds),
      traceLines.load(), start.handles, end.handles, static_cast<std::size_t>(start.memory / 1024),
      static_cast<std::size_t>(end.memory / 1024));
  UseScript(nullptr);
}

}  // namespace
}  // namespace zarext::test
