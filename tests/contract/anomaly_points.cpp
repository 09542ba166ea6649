#include "contract/anomaly_points.h"

#include <map>
#include <set>
#include <string>

#include "contract/anomaly_import.h"

namespace zarext::test {
namespace {

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
  PatchProviderCalls(patches, module);
  PatchStores(patches, module);
  PatchContexts(patches, module);
  PatchKernel(patches, module);
  PatchMemory(patches, module);
  PatchSections(patches, module);
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
