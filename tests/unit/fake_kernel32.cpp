// The fake platform's memory, handles and texts.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "unit/fake_platform.h"
#include "unit/fake_provider.h"

namespace zarext::test {
namespace {

constexpr std::size_t kSectionSize = 0x40000;

}  // namespace

std::span<std::uint8_t> SharedSection() {
  alignas(8) static std::uint8_t octets[kSectionSize];
  return octets;
}

}  // namespace zarext::test

using zarext::test::Platform;

DWORD GetCurrentThreadId() { return 1; }

HLOCAL LocalAlloc(DWORD /*flags*/, SIZE_T size) { return Platform().Allocate(size); }
// Freed with the platform.
HLOCAL LocalFree(HLOCAL /*block*/) { return nullptr; }
BOOL CloseHandle(HANDLE /*handle*/) { return TRUE; }
BOOL FreeLibrary(HMODULE /*library*/) { return TRUE; }
LONG RegCloseKey(HKEY /*key*/) { return 0; }
HANDLE CreateMutexA(void* /*security*/, BOOL /*owned*/, LPCSTR /*name*/) {
  return reinterpret_cast<HANDLE>(0x100);
}
HANDLE CreateFileMappingA(HANDLE /*file*/, void* /*security*/, DWORD /*protection*/,
                          DWORD /*sizeHigh*/, DWORD /*sizeLow*/, LPCSTR /*name*/) {
  return reinterpret_cast<HANDLE>(0x104);
}
void* MapViewOfFile(HANDLE /*mapping*/, DWORD /*access*/, DWORD /*offsetHigh*/, DWORD /*offsetLow*/,
                    SIZE_T /*size*/) {
  ++Platform().views;
  return zarext::test::SharedSection().data();
}
BOOL UnmapViewOfFile(const void* /*view*/) {
  --Platform().views;
  return TRUE;
}
DWORD WaitForSingleObject(HANDLE /*handle*/, DWORD /*milliseconds*/) {
  ++Platform().turns;
  return 0;
}
BOOL ReleaseMutex(HANDLE /*mutex*/) {
  --Platform().turns;
  return TRUE;
}

// Of the section alone, which is all there.
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
BOOL ReadProcessMemory(HANDLE /*process*/, const void* address, void* buffer, SIZE_T size,
                       SIZE_T* copied) {
  std::memcpy(buffer, address, size);
  *copied = size;
  return TRUE;
}
BOOL WriteProcessMemory(HANDLE /*process*/, void* address, const void* buffer, SIZE_T size,
                        SIZE_T* copied) {
  std::memcpy(address, buffer, size);
  *copied = size;
  return TRUE;
}

// The provider's memory and the section; everything else is nothing that a provider may point to.
SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size) {
  *information = {};
  const std::span<std::uint8_t> regions[] = {zarext::test::ProviderMemory(),
                                             zarext::test::SharedSection()};
  for (const auto& region : regions) {
    if (address >= region.data() && address < region.data() + region.size()) {
      information->BaseAddress = region.data();
      information->RegionSize = region.size();
      information->State = MEM_COMMIT;
      information->Protect = PAGE_READWRITE;
    }
  }
  return size;
}

void InitializeCriticalSection(CRITICAL_SECTION* /*section*/) {}
void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}
void EnterCriticalSection(CRITICAL_SECTION* /*section*/) {}
void LeaveCriticalSection(CRITICAL_SECTION* /*section*/) {}
DWORD GetModuleFileNameA(HMODULE /*module*/, LPSTR /*path*/, DWORD /*size*/) { return 0; }
HMODULE GetModuleHandleA(LPCSTR /*name*/) { return nullptr; }

int MultiByteToWideChar(DWORD /*codePage*/, DWORD /*flags*/, LPCSTR text, int /*length*/,
                        LPWSTR wide, int size) {
  const std::size_t count = std::strlen(text) + 1;
  if (count > static_cast<std::size_t>(size)) {
    return 0;
  }
  std::copy_n(reinterpret_cast<const std::uint8_t*>(text), count, wide);
  return static_cast<int>(count);
}
