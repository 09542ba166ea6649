#include "zarextctl/session_objects.h"

#include <tlhelp32.h>

#include <algorithm>
#include <ctime>

#include "frame/handles.h"
#include "store/cache_block.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr char kModuleFile[] = "ZAREXT.dll";

// A turn at the mutex, if it could be had.
class Turn {
 public:
  explicit Turn(DWORD patience)
      : mutex_(OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kStoreMutexName)) {
    const ULONGLONG start = GetTickCount64();
    const DWORD result = mutex_ ? WaitForSingleObject(mutex_.Get(), patience) : WAIT_FAILED;
    watched_ = static_cast<DWORD>(GetTickCount64() - start);
    isTaken_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    isHeld_ = result == WAIT_TIMEOUT;
  }
  ~Turn() {
    if (isTaken_) {
      ReleaseMutex(mutex_.Get());
    }
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  Turn(Turn&&) = delete;
  Turn& operator=(Turn&&) = delete;

  [[nodiscard]] HANDLE Mutex() const { return mutex_.Get(); }
  [[nodiscard]] bool IsHeld() const { return isHeld_; }
  [[nodiscard]] DWORD Watched() const { return watched_; }

 private:
  UniqueKernelObject mutex_;
  bool isTaken_ = false;
  bool isHeld_ = false;
  DWORD watched_ = 0;
};

// Asks the system whose the mutex is: information class 1, a client identifier (process, thread).
// Older systems do not answer.
DWORD OwnerOf(HANDLE mutex) {
  using QueryMutant = LONG WINAPI(HANDLE, int, void*, ULONG, ULONG*);
  constexpr int kMutantOwnerInformation = 1;
  struct {
    HANDLE process;
    HANDLE thread;
  } owner = {};
  const auto query = reinterpret_cast<QueryMutant*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll"), "NtQueryMutant")));
  if (query == nullptr ||
      query(mutex, kMutantOwnerInformation, &owner, sizeof owner, nullptr) < 0) {
    return 0;
  }
  return static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(owner.process));
}

// Copies the section; reading fails instead of faulting where its pages are gone.
bool CopySection(const void* view, std::size_t size, std::vector<std::uint8_t>* copy) {
  copy->resize(size);
  SIZE_T read = 0;
  const bool isRead =
      ReadProcessMemory(GetCurrentProcess(), view, copy->data(), size, &read) != FALSE;
  copy->resize(read);
  return isRead;
}

bool HasModule(DWORD process) {
  const UniqueKernelObject snapshot([&] {
    HANDLE handle = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
  }());
  MODULEENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Module32FirstW(snapshot.Get(), &entry); more;
       more = Module32NextW(snapshot.Get(), &entry)) {
    if (SameIgnoringCase(Utf8(entry.szModule), kModuleFile)) {
      return true;
    }
  }
  return false;
}

template <typename Visit>
void ForEachProcess(Visit visit) {
  const UniqueKernelObject snapshot([] {
    HANDLE handle = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
  }());
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Process32FirstW(snapshot.Get(), &entry); more;
       more = Process32NextW(snapshot.Get(), &entry)) {
    visit(ProcessName{entry.th32ProcessID, Utf8(entry.szExeFile)});
  }
}

}  // namespace

MutexState ReadMutex(DWORD patience) {
  const Turn turn(patience);
  MutexState state;
  state.exists = turn.Mutex() != nullptr;
  state.isHeld = turn.IsHeld();
  state.watched = turn.Watched();
  if (state.isHeld) {
    state.owner = OwnerOf(turn.Mutex());
    state.ownerName = state.owner == 0 ? "" : NameOfProcess(state.owner);
  }
  return state;
}

ListingState ReadListing(DWORD patience) {
  ListingState state;
  const UniqueKernelObject mapping(OpenFileMappingA(FILE_MAP_READ, FALSE, kStoreMappingName));
  state.code = mapping ? 0 : GetLastError();
  state.exists = mapping || state.code != ERROR_FILE_NOT_FOUND;
  if (!mapping) {
    return state;
  }
  const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  MEMORY_BASIC_INFORMATION region = {};
  if (!view || VirtualQuery(view.Get(), &region, sizeof region) == 0) {
    state.code = GetLastError();
    return state;
  }
  state.size = std::min<std::uint64_t>(region.RegionSize, kStoreMappingSize);
  std::vector<std::uint8_t> copy;
  {
    const Turn turn(patience);
    state.isRead = CopySection(view.Get(), state.size, &copy);
    state.code = state.isRead ? 0 : GetLastError();
  }
  state.listing = DecodeSharedListing(copy);
  state.age = AgeOf(state.listing.stamp, std::time(nullptr));
  return state;
}

std::vector<ProcessName> ProcessesWithModule() {
  std::vector<ProcessName> found;
  ForEachProcess([&](const ProcessName& process) {
    if (process.id != GetCurrentProcessId() && HasModule(process.id)) {
      found.push_back(process);
    }
  });
  return found;
}

std::string NameOfProcess(DWORD id) {
  std::string name;
  ForEachProcess([&](const ProcessName& process) {
    if (process.id == id) {
      name = process.name;
    }
  });
  return name;
}

}  // namespace zarext::ctl
