// The failure points in kernel32 and the C runtime.
#include <windows.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "contract/anomaly_import.h"
#include "contract/anomaly_points.h"

namespace zarext::test {
namespace {

// Entering and leaving cannot fail, but a section can be kept.
class Section {
 public:
  static void Patch(Patches& p, HMODULE m) {
    p.push_back(std::make_unique<ImportPatch>(m, kKernel, "EnterCriticalSection", &Enter));
    p.push_back(std::make_unique<ImportPatch>(m, kKernel, "LeaveCriticalSection", &Leave));
  }

 private:
  static void WINAPI Enter(LPCRITICAL_SECTION section) {
    EnterCriticalSection(section);
    entered_.push_back(section);
    AnomalyLoop::Book("section", 1);
  }
  static void WINAPI Leave(LPCRITICAL_SECTION section) {
    entered_.pop_back();
    AnomalyLoop::Book("section", -1);
    LeaveCriticalSection(section);
  }

  friend void test::LeaveKeptSections();
  static inline std::vector<LPCRITICAL_SECTION> entered_;
};

class HeapRelease {
 public:
  static void Patch(Patches& p, HMODULE m) {
    p.push_back(std::make_unique<ImportPatch>(m, kRuntime, "free", &Free));
    original_ = p.back()->Original<void(void*)>();
  }

 private:
  static void Free(void* block) {
    BookIf(block != nullptr, "heap block", -1);
    original_(block);
  }
  static inline void (*original_)(void*) = nullptr;
};

}  // namespace

void PatchKernel(Patches& p, HMODULE m) {
  Call<"LoadLibraryA", decltype(LoadLibraryA)>(
      p, m, kKernel, [](HMODULE library, LPCSTR) { BookIf(library != nullptr, "module", 1); });
  Call<"GetProcAddress", decltype(GetProcAddress)>(p, m, kKernel);
  Release<"FreeLibrary", decltype(FreeLibrary)>(
      p, m, kKernel, [](BOOL, HMODULE) { AnomalyLoop::Book("module", -1); });
  Call<"MapViewOfFile", decltype(MapViewOfFile)>(
      p, m, kKernel,
      [](LPVOID view, HANDLE, DWORD, DWORD, DWORD, SIZE_T) { BookIf(view != nullptr, "view", 1); });
  Release<"UnmapViewOfFile", decltype(UnmapViewOfFile)>(
      p, m, kKernel, [](BOOL, LPCVOID) { AnomalyLoop::Book("view", -1); });
  using Wait = Import<"WaitForSingleObject", decltype(WaitForSingleObject)>;
  Wait::Patch(
      p, m, kKernel, [](HANDLE, DWORD) { return static_cast<DWORD>(WAIT_FAILED); },
      [](DWORD result, HANDLE, DWORD) { BookIf(result == WAIT_OBJECT_0, "mutex", 1); });
  Release<"ReleaseMutex", decltype(ReleaseMutex)>(
      p, m, kKernel, [](BOOL done, HANDLE) { BookIf(done, "mutex", -1); });
  Release<"CloseHandle", decltype(CloseHandle)>(p, m, kKernel);
  Call<"GetModuleFileNameA", decltype(GetModuleFileNameA)>(p, m, kKernel);
  Call<"MultiByteToWideChar", decltype(MultiByteToWideChar)>(p, m, kKernel);
  Call<"VirtualQuery", decltype(VirtualQuery)>(p, m, kKernel);
  Call<"ReadProcessMemory", decltype(ReadProcessMemory)>(p, m, kKernel);
  Call<"WriteProcessMemory", decltype(WriteProcessMemory)>(p, m, kKernel);
  Call<"GetTempPathA", decltype(GetTempPathA)>(p, m, kKernel);
  Call<"LockFileEx", decltype(LockFileEx)>(p, m, kKernel);
  Release<"UnlockFileEx", decltype(UnlockFileEx)>(p, m, kKernel);
  // The language runtime's, where it has them.
  Call<"TlsAlloc", decltype(TlsAlloc)>(p, m, kKernel);
  Call<"TlsGetValue", decltype(TlsGetValue)>(p, m, kKernel);
  Call<"TlsSetValue", decltype(TlsSetValue)>(p, m, kKernel);
}

void PatchMemory(Patches& p, HMODULE m) {
  Call<"LocalAlloc", decltype(LocalAlloc)>(p, m, kKernel, [](HLOCAL block, UINT, SIZE_T) {
    BookIf(block != nullptr, "local block", 1);
  });
  using Free = Import<"LocalFree", decltype(LocalFree)>;
  Free::Patch(
      p, m, kKernel, [](HLOCAL block) { return Free::ReleaseAndRefuse(block), block; },
      [](HLOCAL, HLOCAL block) { BookIf(block != nullptr, "local block", -1); });
  Call<"malloc", void*(std::size_t)>(
      p, m, kRuntime, [](void* block, std::size_t) { BookIf(block != nullptr, "heap block", 1); });
  Call<"calloc", void*(std::size_t, std::size_t)>(
      p, m, kRuntime,
      [](void* block, std::size_t, std::size_t) { BookIf(block != nullptr, "heap block", 1); });
  Call<"realloc", void*(void*, std::size_t)>(
      p, m, kRuntime, [](void* block, void* old, std::size_t size) {
        BookIf(block != nullptr && old == nullptr, "heap block", 1);
        BookIf(old != nullptr && size == 0, "heap block", -1);
      });
  // The type is _strdup's. NOLINTNEXTLINE(readability-non-const-parameter)
  Call<"_strdup", char*(const char*)>(
      p, m, kRuntime, [](char* copy, const char*) { BookIf(copy != nullptr, "heap block", 1); });
  HeapRelease::Patch(p, m);
}

void PatchSections(Patches& p, HMODULE m) { Section::Patch(p, m); }

void LeaveKeptSections() {
  while (!Section::entered_.empty()) {
    Section::Leave(Section::entered_.back());
  }
}

}  // namespace zarext::test
