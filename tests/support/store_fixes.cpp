#include "support/store_fixes.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>

#include "support/certificates.h"
#include "support/platform.h"

namespace zarext::test {
namespace {

// The stores that the module opened itself. Any other that it closes is the framework's, which
// closes it once more.
std::mutex ownStoresMutex;
std::set<HCERTSTORE> ownStores;

HCERTSTORE Remember(HCERTSTORE store) {
  if (store != nullptr) {
    const std::lock_guard lock(ownStoresMutex);
    ownStores.insert(store);
  }
  return store;
}

bool Forget(HCERTSTORE store) {
  const std::lock_guard lock(ownStoresMutex);
  return ownStores.erase(store) != 0;
}

HCERTSTORE WINAPI OpenFix(LPCSTR provider, DWORD encoding, HCRYPTPROV_LEGACY context, DWORD flags,
                          const void* parameter) {
  return Remember(CertOpenStore(provider, encoding, context, flags, parameter));
}

HCERTSTORE WINAPI MessageFix(DWORD encoding, HCRYPTPROV_LEGACY context, DWORD flags,
                             const BYTE* message, DWORD size) {
  return Remember(CryptGetMessageCertificates(encoding, context, flags, message, size));
}

struct Snapshot {
  std::vector<PCCERT_CONTEXT> contexts;
  std::size_t next = 0;
};
thread_local std::map<HCERTSTORE, Snapshot> snapshots;

// What is left of a walk that was not walked to its end.
void DropSnapshot(HCERTSTORE store) {
  const Snapshot snapshot = snapshots[store];
  for (std::size_t rest = snapshot.next; rest < snapshot.contexts.size(); ++rest) {
    CertFreeCertificateContext(snapshot.contexts[rest]);
  }
  snapshots.erase(store);
}

BOOL WINAPI CloseFix(HCERTSTORE store, DWORD flags) {
  const DWORD error = GetLastError();
  DropSnapshot(store);
  CertControlStore(store, CERT_STORE_CTRL_COMMIT_FORCE_FLAG, CERT_STORE_CTRL_COMMIT, nullptr);
  if (!Forget(store)) {
    CertDuplicateStore(store);
  }
  SetLastError(error);
  return CertCloseStore(store, flags);
}

BOOL WINAPI DeleteFix(PCCERT_CONTEXT context) {
  const BOOL deleted = CertDeleteCertificateFromStore(context);
  const DWORD error = GetLastError();
  CertFreeCertificateContext(context);
  SetLastError(error);
  return deleted;
}

// Walks a snapshot, so that the walk survives the deletion of its elements.
PCCERT_CONTEXT WINAPI EnumFix(HCERTSTORE store, PCCERT_CONTEXT previous) {
  Snapshot& snapshot = snapshots[store];
  if (previous == nullptr) {
    snapshot = {};
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store, context)) != nullptr) {
      snapshot.contexts.push_back(CertDuplicateCertificateContext(context));
    }
  } else {
    CertFreeCertificateContext(previous);
  }
  if (snapshot.next == snapshot.contexts.size()) {
    snapshots.erase(store);
    SetLastError(static_cast<DWORD>(CRYPT_E_NOT_FOUND));
    return nullptr;
  }
  return snapshot.contexts[snapshot.next++];
}

std::atomic<long long> moduleTime{0};

long long ModuleTime(long long* out) {
  const long long now = moduleTime;
  if (out != nullptr) {
    *out = now;
  }
  return now;
}

}  // namespace

bool EnumerationRepeatsADeletedCertificate() {
  const std::vector<std::uint8_t> octets = MakeCertificate({});
  const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, octets.data(),
                                   static_cast<DWORD>(octets.size()), CERT_STORE_ADD_ALWAYS,
                                   nullptr);
  const PCCERT_CONTEXT only = CertEnumCertificatesInStore(store, nullptr);
  // Deleting takes one reference on Windows, going on the other.
  CertDeleteCertificateFromStore(CertDuplicateCertificateContext(only));
  const PCCERT_CONTEXT next = CertEnumCertificatesInStore(store, only);
  CertFreeCertificateContext(next);
  CertCloseStore(store, 0);
  return next != nullptr;
}

StoreFixes::StoreFixes(HMODULE module) {
  if (!IsWine()) {
    return;
  }
  constexpr char kCrypt[] = "CRYPT32.dll";
  patches_.push_back(std::make_unique<ImportPatch>(module, kCrypt, "CertOpenStore", &OpenFix));
  patches_.push_back(
      std::make_unique<ImportPatch>(module, kCrypt, "CryptGetMessageCertificates", &MessageFix));
  patches_.push_back(std::make_unique<ImportPatch>(module, kCrypt, "CertCloseStore", &CloseFix));
  patches_.push_back(
      std::make_unique<ImportPatch>(module, kCrypt, "CertDeleteCertificateFromStore", &DeleteFix));
  static const bool repeats = EnumerationRepeatsADeletedCertificate();
  if (repeats) {
    patches_.push_back(
        std::make_unique<ImportPatch>(module, kCrypt, "CertEnumCertificatesInStore", &EnumFix));
  }
}

StoreFixes::~StoreFixes() = default;

BOOL DeleteFromStore(PCCERT_CONTEXT context) {
  return IsWine() ? DeleteFix(context) : CertDeleteCertificateFromStore(context);
}

ModuleClock::ModuleClock(HMODULE module, long long now)
    : patch_(module, "msvcrt.dll", "_time64", &ModuleTime) {
  Set(now);
}

void ModuleClock::Set(long long now) { moduleTime = now; }

long long ModuleClock::Now() { return moduleTime; }

void ModuleClock::Advance(long long seconds) { moduleTime += seconds; }

}  // namespace zarext::test
