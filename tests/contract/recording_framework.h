// Stands between the module and what registration calls: records every call and fails where a test
// says so.
#ifndef ZAREXT_TESTS_CONTRACT_RECORDING_FRAMEWORK_H_
#define ZAREXT_TESTS_CONTRACT_RECORDING_FRAMEWORK_H_

#include <windows.h>

#include <wincrypt.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/event_log.h"
#include "support/import_patch.h"

namespace zarext::test {

// The texts of the calls, as RecordingFramework writes them.
std::string RecordCallText(const std::string& function, const std::string& oid, DWORD group,
                           const std::string& name, DWORD algorithm, const DWORD* extra);

// Replaces, in ZAREXT.dll alone and as long as the object lives, LoadLibraryA("crypt32"),
// GetProcAddress and FreeLibrary of what it gives, the path calls, and the allocation of 260
// octets. The six registration functions that the module looks up do nothing but record. One at a
// time.
class RecordingFramework {
 public:
  RecordingFramework();
  ~RecordingFramework();
  RecordingFramework(const RecordingFramework&) = delete;
  RecordingFramework& operator=(const RecordingFramework&) = delete;

  // One text a call; the number of a call is its position, from 1.
  [[nodiscard]] std::vector<std::string> Calls() const { return calls_.Texts(); }
  [[nodiscard]] std::size_t CallCount() const { return calls_.Size(); }
  void Clear() { calls_.Clear(); }

  // Call number `position` fails; or every call whose text starts with `text`.
  void FailAt(std::size_t position) { failingPosition_ = position; }
  void FailAll(const std::string& text) { failingTexts_.insert(text); }
  void FailNothing();

  // What GetModuleFileNameA gives; empty: the real path. Cut and unterminated if too long.
  void SetModulePath(const std::string& path) { modulePath_ = path; }
  // Makes the allocation of the path buffer fail.
  void FailAllocation(bool fails) { allocationFails_ = fails; }
  // Path buffers allocated, and those of them not freed yet.
  [[nodiscard]] int Allocations() const { return allocations_; }
  [[nodiscard]] std::size_t HeldAllocations() const { return held_.size(); }

  // Runs at the start of each recorded call.
  std::function<void(const std::string& call)> onCall;

  // Addresses that the record calls were given: of the structure and of its extra values.
  [[nodiscard]] const std::set<std::pair<const void*, const DWORD*>>& RecordMemory() const {
    return recordMemory_;
  }
  // The names of the record calls, in order.
  [[nodiscard]] const std::vector<std::wstring>& RecordNames() const { return recordNames_; }
  // The path of the last binding call.
  [[nodiscard]] const std::wstring& LastPath() const { return lastPath_; }

  // True if the call is to succeed.
  bool Record(const std::string& call);

 private:
  friend struct Fakes;

  EventView calls_{EventKind::kPlatform, this};
  std::size_t failingPosition_ = 0;
  std::set<std::string> failingTexts_;
  std::string modulePath_;
  bool allocationFails_ = false;
  int allocations_ = 0;
  std::set<void*> held_;
  const char* narrowPath_ = nullptr;
  std::set<std::pair<const void*, const DWORD*>> recordMemory_;
  std::vector<std::wstring> recordNames_;
  std::wstring lastPath_;

  ImportPatch loadLibrary_;
  ImportPatch getProcAddress_;
  ImportPatch freeLibrary_;
  ImportPatch getModuleFileName_;
  ImportPatch multiByteToWideChar_;
  ImportPatch malloc_;
  ImportPatch free_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_RECORDING_FRAMEWORK_H_
