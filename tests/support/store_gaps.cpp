#include "support/store_gaps.h"

#include <windows.h>

#include <wincrypt.h>

#include <array>
#include <cstdint>
#include <vector>

#include "support/certificates.h"

namespace zarext::test {
namespace {

constexpr char kStoreProvider[] = "zarext probe of the close callback";

HCERTSTORE NewStore() { return CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr); }

void Add(HCERTSTORE store, DWORD disposition, PCCERT_CONTEXT* added) {
  static const std::vector<std::uint8_t> octets = MakeCertificate({});
  CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, octets.data(),
                                   static_cast<DWORD>(octets.size()), disposition, added);
}

// Closes it; whether something else still refers to it.
bool IsReferredTo(HCERTSTORE store) {
  return CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG) == FALSE &&
         GetLastError() == static_cast<DWORD>(CRYPT_E_PENDING_CLOSE);
}

// As a provider's close callback does; the two references more keep the store alive for the caller.
void WINAPI CloseTwiceReferred(HCERTSTOREPROV store, DWORD flags) {
  CertDuplicateStore(store);
  CertDuplicateStore(store);
  CertCloseStore(store, flags);
}

HCERTSTORE probed = nullptr;

BOOL WINAPI OpenProbe(LPCSTR /*provider*/, DWORD /*encoding*/, HCRYPTPROV_LEGACY /*context*/,
                      DWORD /*flags*/, const void* /*parameter*/, HCERTSTORE store,
                      PCERT_STORE_PROV_INFO info) {
  static std::array<void*, 1> callbacks = {reinterpret_cast<void*>(&CloseTwiceReferred)};
  info->cStoreProvFunc = static_cast<DWORD>(callbacks.size());
  info->rgpvStoreProvFunc = callbacks.data();
  info->hStoreProv = store;
  probed = store;
  return TRUE;
}

}  // namespace

bool EnumerationRepeatsADeletedCertificate() {
  const HCERTSTORE store = NewStore();
  Add(store, CERT_STORE_ADD_ALWAYS, nullptr);
  const PCCERT_CONTEXT only = CertEnumCertificatesInStore(store, nullptr);
  // Deleting takes one reference on Windows, going on the other.
  CertDeleteCertificateFromStore(CertDuplicateCertificateContext(only));
  const PCCERT_CONTEXT next = CertEnumCertificatesInStore(store, only);
  CertFreeCertificateContext(next);
  CertCloseStore(store, 0);
  return next != nullptr;
}

bool DeletionKeepsTheReference() {
  const HCERTSTORE store = NewStore();
  PCCERT_CONTEXT context = nullptr;
  Add(store, CERT_STORE_ADD_ALWAYS, &context);
  CertDeleteCertificateFromStore(context);
  const bool kept = IsReferredTo(store);
  if (kept) {
    CertFreeCertificateContext(context);
  }
  return kept;
}

bool AddingAgainLeaksAReference() {
  const HCERTSTORE store = NewStore();
  Add(store, CERT_STORE_ADD_ALWAYS, nullptr);
  Add(store, CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
  return IsReferredTo(store);
}

bool StoreIsClosedBehindTheCallback() {
  static const CRYPT_OID_FUNC_ENTRY entry = {kStoreProvider, reinterpret_cast<void*>(&OpenProbe)};
  CryptInstallOIDFunctionAddress(nullptr, 0, CRYPT_OID_OPEN_STORE_PROV_FUNC, 1, &entry, 0);
  CertCloseStore(CertOpenStore(kStoreProvider, 0, 0, 0, nullptr), 0);
  if (IsReferredTo(probed)) {
    CertCloseStore(probed, 0);
    return false;
  }
  return true;
}

}  // namespace zarext::test
