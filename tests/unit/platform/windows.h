// As much of the platform's header as the module's sources need to be compiled for the host, where
// the functions that digest what a provider returns run under sanitizers and fuzzers. Layouts and
// values are the platform's; the functions are those of the fake_*.cpp beside this folder.
#ifndef ZAREXT_TESTS_UNIT_PLATFORM_WINDOWS_H_
#define ZAREXT_TESTS_UNIT_PLATFORM_WINDOWS_H_

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define WINAPI
#define FALSE 0
#define TRUE 1

using BOOL = int;
using BYTE = uint8_t;
using DWORD = uint32_t;
using LONG = int32_t;
using HRESULT = int32_t;
using ULONG_PTR = uint64_t;
using SIZE_T = size_t;
using PBYTE = BYTE*;
using PDWORD = DWORD*;
using PVOID = void*;
using LPVOID = void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using HANDLE = void*;
using HLOCAL = void*;
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;
struct HKEY__;
using HKEY = HKEY__*;

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct CRITICAL_SECTION {
  int unused;
};

struct MEMORY_BASIC_INFORMATION {
  void* BaseAddress;
  void* AllocationBase;
  DWORD AllocationProtect;
  SIZE_T RegionSize;
  DWORD State;
  DWORD Protect;
  DWORD Type;
};

#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define PAGE_WRITECOPY 0x08u
#define PAGE_EXECUTE_READ 0x20u
#define PAGE_EXECUTE_READWRITE 0x40u
#define PAGE_EXECUTE_WRITECOPY 0x80u
#define PAGE_GUARD 0x100u
#define MEM_COMMIT 0x1000u
#define FILE_MAP_ALL_ACCESS 0xF001Fu
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(-1))
#define LPTR 0x40u
#define CP_ACP 0u
#define DLL_PROCESS_ATTACH 1u

#include <winerror.h>

DWORD GetLastError();
void SetLastError(DWORD code);
DWORD GetCurrentThreadId();
HLOCAL LocalAlloc(DWORD flags, SIZE_T size);
HLOCAL LocalFree(HLOCAL block);
BOOL CloseHandle(HANDLE handle);
BOOL FreeLibrary(HMODULE library);
LONG RegCloseKey(HKEY key);
HANDLE CreateMutexA(void* security, BOOL owned, LPCSTR name);
HANDLE CreateFileMappingA(HANDLE file, void* security, DWORD protection, DWORD sizeHigh,
                          DWORD sizeLow, LPCSTR name);
void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T size);
BOOL UnmapViewOfFile(const void* view);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL ReleaseMutex(HANDLE mutex);
HANDLE GetCurrentProcess();
BOOL ReadProcessMemory(HANDLE process, const void* address, void* buffer, SIZE_T size,
                       SIZE_T* copied);
BOOL WriteProcessMemory(HANDLE process, void* address, const void* buffer, SIZE_T size,
                        SIZE_T* copied);
SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size);
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size);
HMODULE GetModuleHandleA(LPCSTR name);
int MultiByteToWideChar(DWORD codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                        int size);

#endif  // ZAREXT_TESTS_UNIT_PLATFORM_WINDOWS_H_
