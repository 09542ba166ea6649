#include "support/store_recording.h"

#include <wincrypt.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <string>

#include "support/event_log.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

constexpr char kKernel[] = "KERNEL32.dll";
constexpr char kRuntime[] = "msvcrt.dll";
constexpr std::size_t kViewSize = 262144;
constexpr DWORD kLongestWait = 30000;

void Note(const std::string& text) { RecordEvent(EventKind::kPlatform, nullptr, text); }

template <typename Function>
class Patched {
 public:
  std::unique_ptr<ImportPatch> Patch(HMODULE module, const char* library, const char* name,
                                     Function* replacement) {
    auto patch = std::make_unique<ImportPatch>(module, library, name, replacement);
    original_ = patch->template Original<Function>();
    return patch;
  }
  template <typename... Arguments>
  auto operator()(Arguments... arguments) const {
    return original_(arguments...);
  }

 private:
  Function* original_ = nullptr;
};

Patched<decltype(EnterCriticalSection)> enter;
Patched<decltype(LeaveCriticalSection)> leave;
Patched<decltype(WaitForSingleObject)> wait;
Patched<decltype(ReleaseMutex)> releaseMutex;
Patched<decltype(MapViewOfFile)> mapView;
Patched<decltype(UnmapViewOfFile)> unmapView;
Patched<long long(long long*)> readTime;
Patched<decltype(ReadProcessMemory)> readMemory;
Patched<decltype(WriteProcessMemory)> writeMemory;

// The language runtime has a section of its own in the module, for the ends of threads.
CRITICAL_SECTION* openSection = nullptr;
// Of the view that is mapped.
std::atomic<BYTE*> view{nullptr};

void NoteCopy(const void* place, std::size_t size, const char* verb) {
  const BYTE* const mapped = view;
  const auto* const at = static_cast<const BYTE*>(place);
  if (mapped != nullptr && at >= mapped && at < mapped + kViewSize) {
    Note("section: " + std::to_string(size) + " octets " + verb + " at " +
         std::to_string(at - mapped));
  }
}

void WINAPI Enter(CRITICAL_SECTION* section) {
  if (section == openSection) {
    Note("EnterCriticalSection()");
  }
  enter(section);
}

void WINAPI Leave(CRITICAL_SECTION* section) {
  if (section == openSection) {
    Note("LeaveCriticalSection()");
  }
  leave(section);
}

DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds) {
  Note(milliseconds == INFINITE ? "WaitForSingleObject(INFINITE)"
                                : "WaitForSingleObject(" + std::to_string(milliseconds) + ")");
  return wait(handle, milliseconds);
}

BOOL WINAPI Release(HANDLE mutex) {
  Note("ReleaseMutex()");
  return releaseMutex(mutex);
}

LPVOID WINAPI Map(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) {
  Note("MapViewOfFile()");
  const LPVOID mapped = mapView(mapping, access, high, low, size);
  view = static_cast<BYTE*>(mapped);
  return mapped;
}

BOOL WINAPI Unmap(LPCVOID mapped) {
  view = nullptr;
  Note("UnmapViewOfFile()");
  return unmapView(mapped);
}

long long Time(long long* out) {
  const long long now = readTime(out);
  Note("time() = " + std::to_string(now));
  return now;
}

BOOL WINAPI Read(HANDLE process, LPCVOID from, LPVOID to, SIZE_T size, SIZE_T* copied) {
  NoteCopy(from, size, "read");
  return readMemory(process, from, to, size, copied);
}

BOOL WINAPI Write(HANDLE process, LPVOID to, LPCVOID from, SIZE_T size, SIZE_T* copied) {
  NoteCopy(to, size, "written");
  return writeMemory(process, to, from, size, copied);
}

UniqueKernelObject MakeEvent(const char* name) {
  UniqueKernelObject event(CreateEventA(nullptr, TRUE, FALSE, name));
  if (!event) {
    throw std::runtime_error("CreateEvent: " + std::to_string(GetLastError()));
  }
  return event;
}

void Await(const UniqueKernelObject& event, const char* what) {
  if (WaitForSingleObject(event.Get(), kLongestWait) != WAIT_OBJECT_0) {
    throw std::runtime_error(std::string("nobody keeps ") + what);
  }
}

std::string EventName(const char* what, const std::string& process) {
  return std::string("zarext test mutex ") + what + " " + process;
}

// The place in the module of the section that an open enters first. In a process of its own: an
// open changes what the module keeps.
ZAREXT_CHILD(FindOpenSection) {
  static CRITICAL_SECTION* found = nullptr;
  const ImportPatch patch(
      Module(), kKernel, "EnterCriticalSection", +[](CRITICAL_SECTION* section) WINAPI {
        if (found == nullptr) {
          found = section;
        }
        EnterCriticalSection(section);
      });
  using OpenStore =
      BOOL WINAPI(LPCSTR, DWORD, HCRYPTPROV, DWORD, const void*, HCERTSTORE, CERT_STORE_PROV_INFO*);
  Export<OpenStore>("ZarOpenStoreProv")(nullptr, 0, 0, 0, nullptr, nullptr, nullptr);
  return static_cast<int>(reinterpret_cast<BYTE*>(found) - reinterpret_cast<BYTE*>(Module()));
}

CRITICAL_SECTION* FindOpenSection() {
  static const DWORD offset = [] {
    const std::optional<DWORD> found = ChildProcess("FindOpenSection").Wait();
    if (!found || *found < 0x1000) {
      throw std::runtime_error("the open of a store enters no section");
    }
    return *found;
  }();
  return reinterpret_cast<CRITICAL_SECTION*>(reinterpret_cast<BYTE*>(Module()) + offset);
}

}  // namespace

StoreRecording::StoreRecording(HMODULE module) {
  openSection = FindOpenSection();
  patches_.push_back(enter.Patch(module, kKernel, "EnterCriticalSection", &Enter));
  patches_.push_back(leave.Patch(module, kKernel, "LeaveCriticalSection", &Leave));
  patches_.push_back(wait.Patch(module, kKernel, "WaitForSingleObject", &Wait));
  patches_.push_back(releaseMutex.Patch(module, kKernel, "ReleaseMutex", &Release));
  patches_.push_back(mapView.Patch(module, kKernel, "MapViewOfFile", &Map));
  patches_.push_back(unmapView.Patch(module, kKernel, "UnmapViewOfFile", &Unmap));
  patches_.push_back(readTime.Patch(module, kRuntime, "_time64", &Time));
  patches_.push_back(readMemory.Patch(module, kKernel, "ReadProcessMemory", &Read));
  patches_.push_back(writeMemory.Patch(module, kKernel, "WriteProcessMemory", &Write));
}

StoreRecording::~StoreRecording() {
  // In the opposite order: somebody else's patch may stand below.
  while (!patches_.empty()) {
    patches_.pop_back();
  }
  view = nullptr;
}

CRITICAL_SECTION* StoreRecording::OpenSection() { return openSection; }

SectionKeeper::SectionKeeper(CRITICAL_SECTION* section)
    : kept_(MakeEvent(nullptr)), leave_(MakeEvent(nullptr)), thread_([this, section] {
        EnterCriticalSection(section);
        SetEvent(kept_.Get());
        WaitForSingleObject(leave_.Get(), INFINITE);
        LeaveCriticalSection(section);
      }) {
  Await(kept_, "the section");
}

void SectionKeeper::Leave() {
  SetEvent(leave_.Get());
  if (thread_.joinable()) {
    thread_.join();
  }
}

// Arguments: the process that made the events.
ZAREXT_CHILD(KeepStoreMutex) {
  const UniqueKernelObject kept = MakeEvent(EventName("kept", arguments.at(0)).c_str());
  const UniqueKernelObject release = MakeEvent(EventName("release", arguments.at(0)).c_str());
  const UniqueKernelObject mutex(
      OpenMutexA(MUTEX_ALL_ACCESS, FALSE, "$zarvel_csp_store_mutex_name"));
  if (!mutex || WaitForSingleObject(mutex.Get(), kLongestWait) != WAIT_OBJECT_0) {
    return 1;
  }
  SetEvent(kept.Get());
  WaitForSingleObject(release.Get(), 2 * kLongestWait);
  return ReleaseMutex(mutex.Get()) ? 0 : 2;
}

MutexKeeper::MutexKeeper()
    : kept_(MakeEvent(EventName("kept", std::to_string(GetCurrentProcessId())).c_str())),
      release_(MakeEvent(EventName("release", std::to_string(GetCurrentProcessId())).c_str())),
      process_("KeepStoreMutex", {std::to_string(GetCurrentProcessId())}) {
  Await(kept_, "the mutex");
}

void MutexKeeper::Release() {
  SetEvent(release_.Get());
  process_.Wait();
}

}  // namespace zarext::test
