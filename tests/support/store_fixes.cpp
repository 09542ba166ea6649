#include "support/store_fixes.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>

#include "support/platform.h"
#include "support/store_gaps.h"

namespace zarext::test {
namespace {

// Found out once for the process; none where the platform is Windows.
struct StoreGaps {
  bool repeatsADeletedCertificate = false;
  bool keepsDeletedOnes = false;
  bool leaksWhatIsAddedAgain = false;
  bool closesBehindTheCallback = false;
};
const StoreGaps& Gaps() {
  static const StoreGaps gaps =
      IsWine() ? StoreGaps{EnumerationRepeatsADeletedCertificate(), DeletionKeepsTheReference(),
                           AddingAgainLeaksAReference(), StoreIsClosedBehindTheCallback()}
               : StoreGaps{};
  return gaps;
}

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
  if (Gaps().leaksWhatIsAddedAgain) {
    CertControlStore(store, CERT_STORE_CTRL_COMMIT_FORCE_FLAG, CERT_STORE_CTRL_COMMIT, nullptr);
  }
  if (!Forget(store) && Gaps().closesBehindTheCallback) {
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

StoreFixes::StoreFixes(HMODULE module) {
  const auto patch = [&](const char* function, auto* replacement) {
    patches_.push_back(std::make_unique<ImportPatch>(module, "CRYPT32.dll", function, replacement));
  };
  const StoreGaps& gaps = Gaps();
  if (gaps.closesBehindTheCallback) {
    patch("CertOpenStore", &OpenFix);
    patch("CryptGetMessageCertificates", &MessageFix);
  }
  if (gaps.closesBehindTheCallback || gaps.leaksWhatIsAddedAgain ||
      gaps.repeatsADeletedCertificate) {
    patch("CertCloseStore", &CloseFix);
  }
  if (gaps.keepsDeletedOnes) {
    patch("CertDeleteCertificateFromStore", &DeleteFix);
  }
  if (gaps.repeatsADeletedCertificate) {
    patch("CertEnumCertificatesInStore", &EnumFix);
  }
}

StoreFixes::~StoreFixes() = default;

BOOL DeleteFromStore(PCCERT_CONTEXT context) {
  return Gaps().keepsDeletedOnes ? DeleteFix(context) : CertDeleteCertificateFromStore(context);
}

ModuleClock::ModuleClock(HMODULE module, long long now)
    : patch_(module, "msvcrt.dll", "_time64", &ModuleTime) {
  Set(now);
}

void ModuleClock::Set(long long now) { moduleTime = now; }

long long ModuleClock::Now() { return moduleTime; }

void ModuleClock::Advance(long long seconds) { moduleTime += seconds; }

}  // namespace zarext::test
