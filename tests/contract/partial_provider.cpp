// A provider module that is only there to be bound.
#include <windows.h>

#include <wincrypt.h>

extern "C" {

BOOL WINAPI CPAcquireContext(HCRYPTPROV* /*provider*/, LPSTR /*container*/, DWORD /*flags*/,
                             PVOID /*table*/) {
  return FALSE;
}
BOOL WINAPI CPReleaseContext(HCRYPTPROV /*provider*/, DWORD /*flags*/) { return FALSE; }
BOOL WINAPI CPGetProvParam(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD) { return FALSE; }
BOOL WINAPI CPGetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD) { return FALSE; }
BOOL WINAPI CPSetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD) { return FALSE; }
BOOL WINAPI CPGetUserKey(HCRYPTPROV, DWORD, HCRYPTKEY*) { return FALSE; }

}  // extern "C"
