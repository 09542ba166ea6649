// The load test's opens of the store, its callbacks, and the exports that write elsewhere.
#include "contract/store_fixture.h"
#include "e2e/soak_worker.h"

namespace zarext::test {
namespace {

// The language library's mutex makes a handle when it is first waited for, and keeps it.
class Turn {
 public:
  explicit Turn(SRWLOCK& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
  ~Turn() { ReleaseSRWLockExclusive(&lock_); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  SRWLOCK& lock_;
};
SRWLOCK registrationTurn = SRWLOCK_INIT;
SRWLOCK systemStoreTurn = SRWLOCK_INIT;

}  // namespace

// An open, and every callback of the store.
int SoakWorker::UseStore() {
  ModuleClock::Advance(2);
  const MemoryStore store;
  CERT_STORE_PROV_INFO info = {};
  const bool fails = Fail("GetProvParam");
  const bool isOpen = Check(fails, NextFailure().code, [&] {
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0x10000, context_.Get(), 0,
                                                         nullptr, store.Get(), &info);
  });
  NextFailure().function = nullptr;
  if (!isOpen) return 1;
  const auto callback = [&]<typename Function>(Function*, int slot) {
    return reinterpret_cast<Function*>(info.rgpvStoreProvFunc[slot]);
  };
  CERT_STORE_PROV_FIND_INFO what = {};
  what.dwMsgAndCertEncodingType = X509_ASN_ENCODING;
  what.dwFindType = CERT_FIND_ANY;
  PCCERT_CONTEXT found = nullptr;
  using Find = BOOL WINAPI(HCERTSTOREPROV, PCCERT_STORE_PROV_FIND_INFO, PCCERT_CONTEXT, DWORD,
                           void**, PCCERT_CONTEXT*);
  Check(false, 0, [&] {
    return callback(static_cast<Find*>(nullptr), 14)(store.Get(), &what, nullptr, 0, nullptr,
                                                     &found);
  });
  if (found == nullptr) {
    ++WrongCalls();
    return 2;
  }
  using Property = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, DWORD, void*, DWORD*);
  Check(false, 0, [&] {
    DWORD size = 4096;
    return callback(static_cast<Property*>(nullptr), 16)(
        store.Get(), found, CERT_KEY_PROV_INFO_PROP_ID, 0, block_.data(), &size);
  });
  using Write = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD);
  Check(false, 0, [&] { return callback(static_cast<Write*>(nullptr), 2)(store.Get(), found, 1); });
  Check(true, 0x12345678,
        [&] { return callback(static_cast<Write*>(nullptr), 3)(store.Get(), found, 0); });
  CertFreeCertificateContext(found);
  return 5;
}

// In turn: the platform of the tests loses registry handles when threads write a system store at
// the same time, also without the module.
int SoakWorker::UseSystemStores() {
  const Turn turn(systemStoreTurn);
  using Set = BOOL WINAPI(int, DWORD, const BYTE*, DWORD);
  const auto size = static_cast<DWORD>(mine_.size());
  const DWORD index = random_() % 4 + 1;
  Check(false, 0, [&] { return Export<Set>("SetOtherCert")(0, index, mine_.data(), size); });
  Check(false, 0, [&] { return Export<Set>("DelOtherCert")(0, index, mine_.data(), size); });
  Check(false, 0, [&] {
    return Export<BOOL WINAPI(int, const char*, DWORD, const BYTE*, DWORD)>("SetSelfCert")(
        0, "c", 1, mine_.data(), size);
  });
  Check(false, 0, [&] { return Export<Set>("DelOtherCert")(0, 4, mine_.data(), size); });
  return 4;
}

// Not at the same time, as the interface has it. The platform of the tests refuses the records,
// so that registering ends with the first.
int SoakWorker::Registration() {
  const Turn turn(registrationTurn);
  const HRESULT registered = Export<HRESULT WINAPI()>("DllRegisterServer")();
  const HRESULT removed = Export<HRESULT WINAPI()>("DllUnregisterServer")();
  if ((registered != S_OK && registered != E_UNEXPECTED) || removed != S_OK) ++WrongCalls();
  return 2;
}

}  // namespace zarext::test
