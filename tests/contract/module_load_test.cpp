// What loading the module does to a process and what other processes see of it.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "support/child_process.h"
#include "support/debug_channel.h"
#include "support/event_log.h"
#include "support/import_patch.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

constexpr char kMutex[] = "$zarvel_csp_store_mutex_name";
constexpr char kMapping[] = "$zarvel_csp_store_map_name";
constexpr std::size_t kSectionSize = 262144;

// Loads the module and ends.
ZAREXT_CHILD(LoadOnly) {
  const HMODULE module = LoadLibraryA("ZAREXT.dll");
  return module != nullptr ? 0 : 1;
}

std::string ProgramPath() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return path;
}

TEST(ModuleLoad, AnotherProcessSeesTheAttachLine) {
  DebugChannel channel;
  const ChildProcess child("LoadOnly");
  ASSERT_EQ(0u, child.Wait());
  Sleep(100);
  const auto lines = channel.Lines(child.Id());
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(0u, lines[0].find("id="));
  const std::string message = WithoutPrefix(lines[0]);
  const std::string start = "EXT : DLL_PROCESS_ATTACH : FilePath=" + ProgramPath() + " (id=";
  EXPECT_EQ(start, message.substr(0, start.size()));
  // The same thread identifier, decimal in the prefix and hexadecimal in the message.
  const auto decimal = std::stoul(lines[0].substr(3));
  char tail[32] = {};
  snprintf(tail, sizeof tail, "%lx).", decimal);
  EXPECT_EQ(start + tail, message);
}

// Checks from a second process what this one's module has made.
ZAREXT_CHILD(SeeSharedObjects) {
  const UniqueKernelObject mutex(OpenMutexA(SYNCHRONIZE, FALSE, kMutex));
  const UniqueKernelObject mapping(OpenFileMappingA(FILE_MAP_READ, FALSE, kMapping));
  if (!mutex || !mapping) {
    return 1;
  }
  const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
  if (!view) {
    return 2;
  }
  MEMORY_BASIC_INFORMATION information = {};
  VirtualQuery(view.Get(), &information, sizeof information);
  if (information.RegionSize != kSectionSize) {
    return 3;
  }
  const auto octets = static_cast<const char*>(view.Get());
  if (std::any_of(octets, octets + kSectionSize, [](char octet) { return octet != 0; })) {
    return 4;
  }
  // Not owned by its creator.
  return WaitForSingleObject(mutex.Get(), 0) == WAIT_OBJECT_0 ? 0 : 5;
}

TEST(ModuleLoad, MutexAndZeroedSectionAreThereForOtherProcesses) {
  const UniqueModule module(LoadLibraryA("ZAREXT.dll"));
  ASSERT_TRUE(module);
  EXPECT_EQ(0u, ChildProcess("SeeSharedObjects").Wait());
}

// Valid handles of the process, counted by asking for each.
int CountHandles() {
  int count = 0;
  for (ULONG_PTR value = 4; value < 0x20000; value += 4) {
    DWORD flags = 0;
    count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != 0 ? 1 : 0;
  }
  return count;
}

// Runs in a process of its own: the module must not be held by anybody else.
ZAREXT_CHILD(LoadAndUnload) {
  // The first cycle loads system libraries for good.
  FreeLibrary(LoadLibraryA("ZAREXT.dll"));
  const int before = CountHandles();
  constexpr int kCycles = 1000;
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    const HMODULE module = LoadLibraryA("ZAREXT.dll");
    if (module == nullptr || !FreeLibrary(module)) {
      return 1;
    }
  }
  if (GetModuleHandleA("ZAREXT.dll") != nullptr) {
    return 2;
  }
  // The section's handle stays open with every unloading, by design, and nothing else does.
  const int grown = CountHandles() - before;
  printf("%d cycles left %d handles\n", kCycles, grown);
  return grown == kCycles ? 0 : 3;
}

TEST(ModuleLoad, AThousandCyclesLeaveOnlyTheSectionHandles) {
  EXPECT_EQ(0u, ChildProcess("LoadAndUnload").Wait(120000));
}

// The mutex goes with the module, the section stays until the process ends.
ZAREXT_CHILD(ObjectsAfterUnload) {
  FreeLibrary(LoadLibraryA("ZAREXT.dll"));
  const UniqueKernelObject mutex(OpenMutexA(SYNCHRONIZE, FALSE, kMutex));
  const UniqueKernelObject mapping(OpenFileMappingA(FILE_MAP_READ, FALSE, kMapping));
  return (mutex ? 1 : 0) + (mapping ? 0 : 2);
}

TEST(ModuleLoad, TheSectionOutlivesTheModuleAndTheMutexDoesNot) {
  // This process must not hold the module: the objects are the session's.
  ASSERT_EQ(nullptr, GetModuleHandleA("ZAREXT.dll"));
  EXPECT_EQ(0u, ChildProcess("ObjectsAfterUnload").Wait());
}

// A provider module that the store has bound outlives the module.
ZAREXT_CHILD(BoundProviderAfterUnload) {
  const std::string path = ProgramFolder() + "provider_without_none.dll";
  {
    UniqueRegistryKey key;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE,
                    "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Zarvel CSP", 0, nullptr,
                    0, KEY_ALL_ACCESS, nullptr, key.Put(), nullptr);
    RegSetValueExA(key.Get(), "Image Path", 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                   static_cast<DWORD>(path.size() + 1));
  }
  const HMODULE module = LoadLibraryA("ZAREXT.dll");
  using Open =
      BOOL WINAPI(LPCSTR, DWORD, HCRYPTPROV, DWORD, const void*, HCERTSTORE, CERT_STORE_PROV_INFO*);
  auto* const open =
      reinterpret_cast<Open*>(reinterpret_cast<void*>(GetProcAddress(module, "ZarOpenStoreProv")));
  CERT_STORE_PROV_INFO info = {};
  info.cbSize = sizeof info;
  {
    const UniqueCertStore<0> store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    open("Zarvel Store Provider", 0, 0, 0, nullptr, store.Get(), &info);
  }
  if (GetModuleHandleA("provider_without_none.dll") == nullptr) return 1;
  FreeLibrary(module);
  if (GetModuleHandleA("ZAREXT.dll") != nullptr) return 2;
  return GetModuleHandleA("provider_without_none.dll") != nullptr ? 0 : 3;
}

TEST(ModuleLoad, ABoundProviderStaysBehind) {
  EXPECT_EQ(0u, ChildProcess("BoundProviderAfterUnload").Wait());
}

// The exports in a process that has no thread-local slot left, on threads that throw at once.
using Convert = BOOL WINAPI(DWORD, void*, DWORD, DWORD, void*, void*);
using Encode = BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*);

DWORD WINAPI RefuseOften(void* convert) {
  int wrong = 0;
  for (int round = 0; round < 2000; ++round) {
    SetLastError(0);
    const BOOL done = reinterpret_cast<Convert*>(convert)(0, nullptr, 0, 0, nullptr, nullptr);
    wrong += done != FALSE || GetLastError() != ERROR_INVALID_PARAMETER ? 1 : 0;
  }
  return wrong == 0 ? 0 : 1;
}

ZAREXT_CHILD(NoThreadLocalSlots) {
  while (TlsAlloc() != TLS_OUT_OF_INDEXES) {
  }
  const HMODULE module = LoadLibraryA("ZAREXT.dll");
  if (module == nullptr) return 1;
  // The lines would need most of the time.
  const ImportPatch silence(
      module, "KERNEL32.dll", "OutputDebugStringA", +[](const char*) WINAPI {});
  auto* const encode = reinterpret_cast<Encode*>(
      reinterpret_cast<void*>(GetProcAddress(module, "ZarCryptEncodeObject")));
  SetLastError(0x777);
  if (!encode(1, nullptr, nullptr, nullptr, nullptr) || GetLastError() != 0x777) return 2;
  void* const convert = reinterpret_cast<void*>(GetProcAddress(module, "ZarConvertPublicKeyInfo"));
  HANDLE threads[4] = {};
  for (HANDLE& thread : threads) {
    thread = CreateThread(nullptr, 0, &RefuseOften, convert, 0, nullptr);
  }
  if (WaitForMultipleObjects(4, threads, TRUE, 60000) != WAIT_OBJECT_0) return 3;
  for (const HANDLE thread : threads) {
    DWORD code = 0;
    if (!GetExitCodeThread(thread, &code) || code != 0) return 4;
  }
  return 0;
}

TEST(ModuleLoad, ExportsNeedNoThreadLocalSlot) {
  EXPECT_EQ(0u, ChildProcess("NoThreadLocalSlots").Wait());
}

// What the module does with its objects when it is unloaded, in order.
bool MutexExists() {
  return static_cast<bool>(UniqueKernelObject(OpenMutexA(SYNCHRONIZE, FALSE, kMutex)));
}

// The mutex is gone with its last handle, and this process has only the module's.
BOOL WINAPI NoteCloseHandle(HANDLE handle) {
  const bool existed = MutexExists();
  const BOOL closed = CloseHandle(handle);
  RecordEvent(EventKind::kPlatform, nullptr,
              existed && !MutexExists() ? "CloseHandle(mutex)" : "CloseHandle(another)");
  return closed;
}

void WINAPI NoteDeleteCriticalSection(CRITICAL_SECTION* section) {
  RecordEvent(EventKind::kPlatform, nullptr, "DeleteCriticalSection()");
  DeleteCriticalSection(section);
}

ZAREXT_CHILD(UnloadOrder) {
  const HMODULE module = LoadLibraryA("ZAREXT.dll");
  // The patches go with the module's memory.
  new ImportPatch(module, "KERNEL32.dll", "CloseHandle", &NoteCloseHandle);
  new ImportPatch(module, "KERNEL32.dll", "DeleteCriticalSection", &NoteDeleteCriticalSection);
  const EventView events;
  FreeLibrary(module);
  // The runtime deletes a critical section of its own before.
  return events.Texts() == std::vector<std::string>{"DeleteCriticalSection()", "CloseHandle(mutex)",
                                                    "DeleteCriticalSection()"}
             ? 0
             : 1;
}

TEST(ModuleLoad, UnloadingClosesTheMutexAndThenDeletesTheCriticalSection) {
  EXPECT_EQ(0u, ChildProcess("UnloadOrder").Wait());
}

}  // namespace
}  // namespace zarext::test
