#include <windows.h>

#include <wincrypt.h>

#include "support/scripted_provider.h"

namespace {

zarext::test::ProviderScript* script = nullptr;
void (*onEntry)(const char* entryPoint) = nullptr;

BOOL Refuse() {
  SetLastError(static_cast<DWORD>(NTE_FAIL));
  return FALSE;
}

void Enter(const char* entryPoint) {
  if (onEntry != nullptr) onEntry(entryPoint);
}

// What no script answers.
BOOL RefuseAt(const char* entryPoint) {
  Enter(entryPoint);
  return Refuse();
}

template <typename Call>
BOOL Forward(const char* entryPoint, Call call) {
  Enter(entryPoint);
  return script != nullptr ? call(*script) : Refuse();
}

template <typename Call>
BOOL Release(const char* entryPoint, Call call) {
  const BOOL released = script != nullptr ? call(*script) : Refuse();
  Enter(entryPoint);
  return released;
}

}  // namespace

using zarext::test::ProviderScript;

extern "C" {

void SetProviderScript(ProviderScript* newScript) { script = newScript; }
void SetEntryHook(void (*newHook)(const char* entryPoint)) { onEntry = newHook; }

BOOL WINAPI CPAcquireContext(HCRYPTPROV* provider, LPSTR container, DWORD flags, PVOID table) {
  return Forward("CPAcquireContext", [&](ProviderScript& s) {
    return s.AcquireContext(provider, container, flags, table);
  });
}
BOOL WINAPI CPReleaseContext(HCRYPTPROV provider, DWORD flags) {
  return Release("CPReleaseContext",
                 [&](ProviderScript& s) { return s.ReleaseContext(provider, flags); });
}
BOOL WINAPI CPGenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key) {
  return Forward("CPGenKey",
                 [&](ProviderScript& s) { return s.GenKey(provider, algorithm, flags, key); });
}
BOOL WINAPI CPDestroyKey(HCRYPTPROV provider, HCRYPTKEY key) {
  return Release("CPDestroyKey", [&](ProviderScript& s) { return s.DestroyKey(provider, key); });
}
BOOL WINAPI CPSetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data,
                          DWORD flags) {
  return Forward("CPSetKeyParam", [&](ProviderScript& s) {
    return s.SetKeyParam(provider, key, parameter, data, flags);
  });
}
BOOL WINAPI CPGetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data,
                          DWORD* size, DWORD flags) {
  return Forward("CPGetKeyParam", [&](ProviderScript& s) {
    return s.GetKeyParam(provider, key, parameter, data, size, flags);
  });
}
BOOL WINAPI CPSetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD flags) {
  return Forward("CPSetProvParam", [&](ProviderScript& s) {
    return s.SetProvParam(provider, parameter, data, flags);
  });
}
BOOL WINAPI CPGetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                           DWORD flags) {
  return Forward("CPGetProvParam", [&](ProviderScript& s) {
    return s.GetProvParam(provider, parameter, data, size, flags);
  });
}
BOOL WINAPI CPExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType,
                        DWORD flags, BYTE* data, DWORD* size) {
  return Forward("CPExportKey", [&](ProviderScript& s) {
    return s.ExportKey(provider, key, exchangeKey, blobType, flags, data, size);
  });
}
BOOL WINAPI CPImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                        DWORD flags, HCRYPTKEY* key) {
  return Forward("CPImportKey", [&](ProviderScript& s) {
    return s.ImportKey(provider, data, size, exchangeKey, flags, key);
  });
}
BOOL WINAPI CPGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) {
  return Forward("CPGetUserKey",
                 [&](ProviderScript& s) { return s.GetUserKey(provider, keySpec, key); });
}
BOOL WINAPI CPEncrypt(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTHASH, BOOL final, DWORD, BYTE* data,
                      DWORD* size, DWORD bufferSize) {
  return Forward("CPEncrypt", [&](ProviderScript& s) {
    return s.Encrypt(provider, key, final, data, size, bufferSize);
  });
}
BOOL WINAPI CPDecrypt(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTHASH, BOOL final, DWORD, BYTE* data,
                      DWORD* size) {
  return Forward("CPDecrypt",
                 [&](ProviderScript& s) { return s.Decrypt(provider, key, final, data, size); });
}
BOOL WINAPI CPCreateHash(HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) {
  return RefuseAt("CPCreateHash");
}
BOOL WINAPI CPDeriveKey(HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*) {
  return RefuseAt("CPDeriveKey");
}
BOOL WINAPI CPDestroyHash(HCRYPTPROV, HCRYPTHASH) { return RefuseAt("CPDestroyHash"); }
BOOL WINAPI CPGenRandom(HCRYPTPROV, DWORD, BYTE*) { return RefuseAt("CPGenRandom"); }
BOOL WINAPI CPGetHashParam(HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD*, DWORD) {
  return RefuseAt("CPGetHashParam");
}
BOOL WINAPI CPHashData(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, DWORD) {
  return RefuseAt("CPHashData");
}
BOOL WINAPI CPHashSessionKey(HCRYPTPROV, HCRYPTHASH, HCRYPTKEY, DWORD) {
  return RefuseAt("CPHashSessionKey");
}
BOOL WINAPI CPSetHashParam(HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD) {
  return RefuseAt("CPSetHashParam");
}
BOOL WINAPI CPSignHash(HCRYPTPROV, HCRYPTHASH, DWORD, LPCWSTR, DWORD, BYTE*, DWORD*) {
  return RefuseAt("CPSignHash");
}
BOOL WINAPI CPVerifySignature(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR,
                              DWORD) {
  return RefuseAt("CPVerifySignature");
}

BOOL WINAPI CPDuplicateHash(HCRYPTPROV, HCRYPTHASH, DWORD*, DWORD, HCRYPTHASH*) {
  return RefuseAt("CPDuplicateHash");
}
BOOL WINAPI CPDuplicateKey(HCRYPTPROV, HCRYPTKEY, DWORD*, DWORD, HCRYPTKEY*) {
  return RefuseAt("CPDuplicateKey");
}

}  // extern "C"
