// What the module does with the objects that its store opens share: the critical section, the
// mutex, the section and the clock; and those who keep the first two from it.
#ifndef ZAREXT_TESTS_SUPPORT_STORE_RECORDING_H_
#define ZAREXT_TESTS_SUPPORT_STORE_RECORDING_H_

#include <windows.h>

#include <memory>
#include <thread>
#include <vector>

#include "frame/handles.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace zarext::test {

// Platform events, as long as the object lives, one at a time:
//   "EnterCriticalSection()", "LeaveCriticalSection()", of the section around a store's open
//   "time() = 1700000000"
//   "MapViewOfFile()", "UnmapViewOfFile()"
//   "WaitForSingleObject(INFINITE)", before the wait; "ReleaseMutex()"
//   "section: 8 octets read at 0", "section: 24 octets written at 8", as they are about to be
class StoreRecording {
 public:
  // To be made behind a ModuleClock: what that one says is recorded.
  explicit StoreRecording(HMODULE module);
  ~StoreRecording();
  StoreRecording(const StoreRecording&) = delete;
  StoreRecording& operator=(const StoreRecording&) = delete;

  // The critical section around a store's open.
  [[nodiscard]] static CRITICAL_SECTION* OpenSection();

 private:
  std::vector<std::unique_ptr<ImportPatch>> patches_;
};

// A thread that keeps a critical section, from construction until it is told or destroyed.
class SectionKeeper {
 public:
  explicit SectionKeeper(CRITICAL_SECTION* section);
  ~SectionKeeper() { Leave(); }
  SectionKeeper(const SectionKeeper&) = delete;
  SectionKeeper& operator=(const SectionKeeper&) = delete;
  void Leave();

 private:
  UniqueKernelObject kept_;
  UniqueKernelObject leave_;
  std::thread thread_;
};

// Another process that keeps the mutex of the section, from construction until it is told, or ends.
class MutexKeeper {
 public:
  MutexKeeper();
  // Releases the mutex and waits for the end of the process.
  void Release();
  // Ends the process, which leaves the mutex abandoned.
  void Die() { process_.Kill(); }

 private:
  UniqueKernelObject kept_;
  UniqueKernelObject release_;
  ChildProcess process_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_STORE_RECORDING_H_
