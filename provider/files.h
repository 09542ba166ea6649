// The provider's home folder and whole-file access in it (Windows only).
#ifndef ZAREXT_PROVIDER_FILES_H_
#define ZAREXT_PROVIDER_FILES_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/bytes.h"

namespace zarext::provider {

struct CloseKernelHandle {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<HANDLE, CloseKernelHandle>;

// ZARVEL_DEV_HOME, or "Zarvel\DevProvider" in the user's local application data. Looked up at every
// call.
std::wstring HomeFolder();

// Holds the home folder's lock: one thread of all processes of the session. Readers take it as
// writers do, because a file cannot be replaced while somebody has it open; everybody who waits
// gets his turn.
class HomeLock {
 public:
  HomeLock();
  ~HomeLock();
  HomeLock(const HomeLock&) = delete;
  HomeLock& operator=(const HomeLock&) = delete;

 private:
  UniqueHandle mutex_;
};

void MakeHomeFolder();

// Empty if there is no such file. Every other failure of these functions throws the system's error
// code.
std::optional<Bytes> ReadWholeFile(const std::wstring& path);

// A reader sees the old content or the new one, never a part: the file is written beside its place
// and renamed.
void ReplaceWholeFile(const std::wstring& path, View content);

bool IsFolder(const std::wstring& path);
std::vector<std::wstring> ListFolders(
    const std::wstring& parent);  // names, sorted; a missing parent has none

// Renames; false if the source does not exist.
bool MoveFolder(const std::wstring& from, const std::wstring& to);
void MakeFolder(const std::wstring& path);
void RemoveFolder(const std::wstring& path);  // and the files in it, as far as that works

// A name that no other thread or process makes, for a file or folder on its way in or out.
std::wstring UniqueSuffix();

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_FILES_H_
