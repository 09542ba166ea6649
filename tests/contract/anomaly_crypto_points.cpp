// The failure points in advapi32 and crypt32.
#include <windows.h>

#include <wincrypt.h>

#include "contract/anomaly_import.h"

namespace zarext::test {

void PatchProviderCalls(Patches& p, HMODULE m) {
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

}  // namespace zarext::test
