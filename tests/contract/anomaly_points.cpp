#include "contract/anomaly_points.h"

#include <wincrypt.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <type_traits>

#include "contract/anomaly_loop.h"

namespace zarext::test {
namespace {

constexpr char kAdvapi[] = "ADVAPI32.dll";
constexpr char kCrypt[] = "CRYPT32.dll";
constexpr char kKernel[] = "KERNEL32.dll";
constexpr char kRuntime[] = "msvcrt.dll";

using Patches = std::vector<std::unique_ptr<ImportPatch>>;

// The functions that the module imports from `library`, with their slots.
std::map<std::string, const ULONG_PTR*> ImportsOf(HMODULE module, const char* library) {
  std::map<std::string, const ULONG_PTR*> names;
  const auto base = reinterpret_cast<const BYTE*>(module);
  const auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; entry->Name != 0; ++entry) {
    if (_stricmp(reinterpret_cast<const char*>(base + entry->Name), library) != 0) {
      continue;
    }
    auto name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
    auto slot = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      names[reinterpret_cast<const char*>(base + name->u1.AddressOfData + 2)] =
          reinterpret_cast<const ULONG_PTR*>(&slot->u1.Function);
    }
  }
  return names;
}

template <std::size_t size>
struct Name {
  consteval Name(const char (&name)[size]) { std::copy_n(name, size, text); }
  char text[size];
};

// One import. `Book` gets result and arguments of each call that was made, `Refuse` the arguments
// of the one that is to fail, and gives its result.
template <Name name, typename Signature>
class Import;
template <Name name, typename Result, typename... Arguments>
class Import<name, Result(Arguments...)> {
 public:
  using Function = Result(Arguments...);
  using BookFunction = void(Result, Arguments...);

  static void Patch(Patches& patches, HMODULE module, const char* library, Function* refuse,
                    BookFunction* book = nullptr) {
    if (!ImportsOf(module, library).contains(name.text)) {
      return;
    }
    refuse_ = refuse;
    book_ = book;
    patches.push_back(std::make_unique<ImportPatch>(module, library, name.text, &Call));
    original_ = patches.back()->template Original<Function>();
  }

  static Result Original(Arguments... arguments) { return original_(arguments...); }

  // Releases fail only in what they report.
  static Result ReleaseAndRefuse(Arguments... arguments) {
    const Result result = original_(arguments...);
    if (book_ != nullptr) {
      book_(result, arguments...);
    }
    SetLastError(kInjectedError);
    return Result{};
  }

 private:
  static Result Call(Arguments... arguments) {
    if (AnomalyLoop::Fails(name.text)) {
      SetLastError(kInjectedError);
      const Result result = refuse_(arguments...);
      AnomalyLoop::EndFailure();
      return result;
    }
    const Result result = original_(arguments...);
    if (book_ != nullptr) {
      book_(result, arguments...);
    }
    return result;
  }

  static inline Function* original_ = nullptr;
  static inline Function* refuse_ = nullptr;
  static inline BookFunction* book_ = nullptr;
};

// The usual refusal: FALSE, null or 0.
template <typename Signature>
struct Refusal;
template <typename Result, typename... Arguments>
struct Refusal<Result(Arguments...)> {
  static Result Zero(Arguments...) { return Result{}; }
};

template <Name name, typename Signature>
void Call(Patches& patches, HMODULE module, const char* library,
          typename Import<name, Signature>::BookFunction* book = nullptr) {
  Import<name, Signature>::Patch(patches, module, library, &Refusal<Signature>::Zero, book);
}

template <Name name, typename Signature>
void Release(Patches& patches, HMODULE module, const char* library,
             typename Import<name, Signature>::BookFunction* book = nullptr) {
  Import<name, Signature>::Patch(patches, module, library,
                                 &Import<name, Signature>::ReleaseAndRefuse, book);
}

void BookIf(bool happened, const char* kind, int change) {
  if (happened) {
    AnomalyLoop::Book(kind, change);
  }
}

void PatchAdvapi(Patches& p, HMODULE m) {
  Call<"CryptAcquireContextA", decltype(CryptAcquireContextA)>(
      p, m, kAdvapi,
      [](BOOL done, HCRYPTPROV*, LPCSTR, LPCSTR, DWORD, DWORD) { BookIf(done, "provider", 1); });
  Call<"CryptGenKey", decltype(CryptGenKey)>(
      p, m, kAdvapi,
      [](BOOL done, HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*) { BookIf(done, "key", 1); });
  Call<"CryptGetUserKey", decltype(CryptGetUserKey)>(
      p, m, kAdvapi, [](BOOL done, HCRYPTPROV, DWORD, HCRYPTKEY*) { BookIf(done, "key", 1); });
  Call<"CryptImportKey", decltype(CryptImportKey)>(
      p, m, kAdvapi, [](BOOL done, HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*) {
        BookIf(done, "key", 1);
      });
  Call<"CryptExportKey", decltype(CryptExportKey)>(p, m, kAdvapi);
  Call<"CryptGetProvParam", decltype(CryptGetProvParam)>(p, m, kAdvapi);
  Call<"CryptSetProvParam", decltype(CryptSetProvParam)>(p, m, kAdvapi);
  Release<"CryptDestroyKey", decltype(CryptDestroyKey)>(
      p, m, kAdvapi, [](BOOL done, HCRYPTKEY) { BookIf(done, "key", -1); });
  // These return their error.
  using Open = Import<"RegOpenKeyExA", decltype(RegOpenKeyExA)>;
  Open::Patch(
      p, m, kAdvapi,
      [](HKEY, LPCSTR, DWORD, REGSAM, PHKEY) { return static_cast<LSTATUS>(kInjectedError); },
      [](LSTATUS status, HKEY, LPCSTR, DWORD, REGSAM, PHKEY) {
        BookIf(status == ERROR_SUCCESS, "registry key", 1);
      });
  using Query = Import<"RegQueryValueExA", decltype(RegQueryValueExA)>;
  Query::Patch(p, m, kAdvapi, [](HKEY, LPCSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
    return static_cast<LSTATUS>(kInjectedError);
  });
  using Close = Import<"RegCloseKey", decltype(RegCloseKey)>;
  Close::Patch(
      p, m, kAdvapi,
      [](HKEY key) {
        Close::ReleaseAndRefuse(key);
        return static_cast<LSTATUS>(kInjectedError);
      },
      [](LSTATUS status, HKEY) { BookIf(status == ERROR_SUCCESS, "registry key", -1); });
}

void PatchStores(Patches& p, HMODULE m) {
  Call<"CertOpenStore", decltype(CertOpenStore)>(
      p, m, kCrypt, [](HCERTSTORE store, LPCSTR, DWORD, HCRYPTPROV_LEGACY, DWORD, const void*) {
        BookIf(store != nullptr, "store", 1);
      });
  Call<"CryptGetMessageCertificates", decltype(CryptGetMessageCertificates)>(
      p, m, kCrypt, [](HCERTSTORE store, DWORD, HCRYPTPROV_LEGACY, DWORD, const BYTE*, DWORD) {
        BookIf(store != nullptr, "store", 1);
      });
  Release<"CertCloseStore", decltype(CertCloseStore)>(
      p, m, kCrypt, [](BOOL, HCERTSTORE, DWORD) { AnomalyLoop::Book("store", -1); });
  Call<"CertAddCertificateContextToStore", decltype(CertAddCertificateContextToStore)>(
      p, m, kCrypt, [](BOOL done, HCERTSTORE, PCCERT_CONTEXT, DWORD, PCCERT_CONTEXT* added) {
        BookIf(done && added != nullptr, "certificate", 1);
      });
  Call<"CertAddEncodedCertificateToStore", decltype(CertAddEncodedCertificateToStore)>(
      p, m, kCrypt,
      [](BOOL done, HCERTSTORE, DWORD, const BYTE*, DWORD, DWORD, PCCERT_CONTEXT* added) {
        BookIf(done && added != nullptr, "certificate", 1);
      });
}

void PatchContexts(Patches& p, HMODULE m) {
  Call<"CertCreateCertificateContext", decltype(CertCreateCertificateContext)>(
      p, m, kCrypt, [](PCCERT_CONTEXT context, DWORD, const BYTE*, DWORD) {
        BookIf(context != nullptr, "certificate", 1);
      });
  Call<"CertDuplicateCertificateContext", decltype(CertDuplicateCertificateContext)>(
      p, m, kCrypt,
      [](PCCERT_CONTEXT copy, PCCERT_CONTEXT) { BookIf(copy != nullptr, "certificate", 1); });
  Release<"CertFreeCertificateContext", decltype(CertFreeCertificateContext)>(
      p, m, kCrypt,
      [](BOOL, PCCERT_CONTEXT context) { BookIf(context != nullptr, "certificate", -1); });
  // Takes the context also where it fails.
  using Delete = Import<"CertDeleteCertificateFromStore", decltype(CertDeleteCertificateFromStore)>;
  Delete::Patch(
      p, m, kCrypt,
      [](PCCERT_CONTEXT context) {
        CertFreeCertificateContext(context);
        AnomalyLoop::Book("certificate", -1);
        SetLastError(kInjectedError);
        return FALSE;
      },
      [](BOOL, PCCERT_CONTEXT) { AnomalyLoop::Book("certificate", -1); });
  // Takes the previous context, and a walk that is cut short takes nothing else along.
  using Enum = Import<"CertEnumCertificatesInStore", decltype(CertEnumCertificatesInStore)>;
  Enum::Patch(
      p, m, kCrypt,
      [](HCERTSTORE store, PCCERT_CONTEXT previous) -> PCCERT_CONTEXT {
        BookIf(previous != nullptr, "certificate", -1);
        while ((previous = Enum::Original(store, previous)) != nullptr) {
        }
        SetLastError(kInjectedError);
        return nullptr;
      },
      [](PCCERT_CONTEXT next, HCERTSTORE, PCCERT_CONTEXT previous) {
        BookIf(previous != nullptr, "certificate", -1);
        BookIf(next != nullptr, "certificate", 1);
      });
  using Find = Import<"CertFindCertificateInStore", decltype(CertFindCertificateInStore)>;
  Find::Patch(
      p, m, kCrypt,
      [](HCERTSTORE, DWORD, DWORD, DWORD, const void*, PCCERT_CONTEXT previous) -> PCCERT_CONTEXT {
        BookIf(previous != nullptr, "certificate", -1);
        CertFreeCertificateContext(previous);
        SetLastError(kInjectedError);
        return nullptr;
      },
      [](PCCERT_CONTEXT found, HCERTSTORE, DWORD, DWORD, DWORD, const void*,
         PCCERT_CONTEXT previous) {
        BookIf(previous != nullptr, "certificate", -1);
        BookIf(found != nullptr, "certificate", 1);
      });
  Call<"CertCompareCertificate", decltype(CertCompareCertificate)>(p, m, kCrypt);
  Call<"CertGetCertificateContextProperty", decltype(CertGetCertificateContextProperty)>(p, m,
                                                                                         kCrypt);
  Call<"CertSetCertificateContextProperty", decltype(CertSetCertificateContextProperty)>(p, m,
                                                                                         kCrypt);
}

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
}

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

// What cannot fail, or not in a way that is reported.
const std::set<std::string>& Infallible() {
  static const std::set<std::string> names = {
      "AcquireSRWLockExclusive", "EnterCriticalSection", "GetCurrentProcess", "GetCurrentProcessId",
      "GetCurrentThread", "GetCurrentThreadId", "GetLastError", "GetModuleHandleA",
      "GetModuleHandleW", "GetSystemTimeAsFileTime", "GetTickCount64", "IsDebuggerPresent",
      "LeaveCriticalSection", "OutputDebugStringA", "ReleaseSRWLockExclusive", "SetLastError",
      "Sleep", "TryEnterCriticalSection",
      // Exceptions of the language.
      "RaiseException", "RtlCaptureContext", "RtlLookupFunctionEntry", "RtlUnwindEx",
      "RtlVirtualUnwind", "__C_specific_handler",
      // Only at load and unload.
      "CreateFileMappingA", "CreateMutexA", "DeleteCriticalSection", "InitializeCriticalSection",
      "LoadLibraryW", "VirtualProtect",
      // With g++ 14's runtime: the texts of system errors, and its thread library's clocks.
      "FormatMessageA", "GetTickCount", "QueryPerformanceCounter", "QueryPerformanceFrequency",
      // The language runtime's thread library, on which no export depends.
      "AddVectoredExceptionHandler", "CreateEventA", "CreateSemaphoreA", "DuplicateHandle",
      "GetHandleInformation", "GetProcessAffinityMask", "GetThreadContext", "GetThreadPriority",
      "OpenProcess", "ReleaseSemaphore", "RemoveVectoredExceptionHandler", "ResetEvent",
      "ResumeThread", "SetEvent", "SetProcessAffinityMask", "SetThreadContext", "SetThreadPriority",
      "SuspendThread", "TlsFree", "WaitForMultipleObjects"};
  return names;
}

std::map<std::string, ULONG_PTR> SlotsOf(HMODULE module) {
  std::map<std::string, ULONG_PTR> values;
  for (const char* library : {kAdvapi, kCrypt, kKernel}) {
    for (const auto& [name, slot] : ImportsOf(module, library)) {
      values[name] = *slot;
    }
  }
  return values;
}

}  // namespace

std::vector<std::unique_ptr<ImportPatch>> PatchFailurePoints(HMODULE module) {
  Patches patches;
  PatchAdvapi(patches, module);
  PatchStores(patches, module);
  PatchContexts(patches, module);
  PatchKernel(patches, module);
  PatchMemory(patches, module);
  HeapRelease::Patch(patches, module);
  Section::Patch(patches, module);
  return patches;
}

std::vector<std::string> UnknownImports(HMODULE module) {
  const auto before = SlotsOf(module);
  const auto patches = PatchFailurePoints(module);
  std::vector<std::string> unknown;
  for (const auto& [name, value] : SlotsOf(module)) {
    if (value == before.at(name) && !Infallible().contains(name)) {
      unknown.push_back(name);
    }
  }
  return unknown;
}

void LeaveKeptSections() {
  while (!Section::entered_.empty()) {
    Section::Leave(Section::entered_.back());
  }
}

PointKind KindOfPoint(const std::string& function) {
  static const std::set<std::string> allocations = {"LocalAlloc", "malloc",   "calloc",
                                                    "realloc",    "pfnAlloc", "_strdup"};
  static const std::set<std::string> releases = {"CryptDestroyKey",
                                                 "CryptReleaseContext",
                                                 "RegCloseKey",
                                                 "CertCloseStore",
                                                 "CertFreeCertificateContext",
                                                 "FreeLibrary",
                                                 "ReleaseMutex",
                                                 "CloseHandle",
                                                 "UnmapViewOfFile",
                                                 "UnlockFileEx",
                                                 "LocalFree",
                                                 "CPReleaseContext"};
  if (allocations.contains(function)) {
    return PointKind::kAllocation;
  }
  return releases.contains(function) ? PointKind::kRelease : PointKind::kCall;
}

}  // namespace zarext::test
