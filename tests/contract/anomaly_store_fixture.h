// A provider store whose provider fails where the loop says so.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_STORE_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_STORE_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <string>
#include <vector>

#include "contract/anomaly_loop.h"
#include "contract/store_fixture.h"
#include "support/import_patch.h"

namespace zarext::test {

// The provider's entry points, which the module calls without an import, are failure points too.
class FailingContainers : public ContainerProvider {
 public:
  BOOL AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                      void* table) override {
    if (Refuses("CPAcquireContext")) return FALSE;
    const BOOL done = ContainerProvider::AcquireContext(provider, container, flags, table);
    if (done) AnomalyLoop::Book("provider context", 1);
    return done;
  }
  BOOL ReleaseContext(HCRYPTPROV provider, DWORD flags) override {
    const bool refuses = AnomalyLoop::Fails("CPReleaseContext");
    if (refuses) SetLastError(kInjectedError);
    if (ContainerProvider::ReleaseContext(provider, flags)) {
      AnomalyLoop::Book("provider context", -1);
    }
    if (refuses) AnomalyLoop::EndFailure();
    return refuses ? FALSE : TRUE;
  }
  BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override {
    // The type is asked for through advapi32, which counts.
    if (parameter != PP_PROVTYPE && Refuses("CPGetProvParam " + std::to_string(parameter))) {
      return FALSE;
    }
    return ContainerProvider::GetProvParam(provider, parameter, data, size, flags);
  }
  BOOL GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD flags) override {
    if (Refuses("CPGetKeyParam " + std::to_string(parameter))) return FALSE;
    return ContainerProvider::GetKeyParam(provider, key, parameter, data, size, flags);
  }
  BOOL SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, const BYTE* data,
                   DWORD flags) override {
    if (Refuses("CPSetKeyParam " + std::to_string(parameter))) return FALSE;
    return ContainerProvider::SetKeyParam(provider, key, parameter, data, flags);
  }

 private:
  static bool Refuses(const std::string& function) {
    const bool refuses = AnomalyLoop::Fails(function);
    if (refuses) {
      SetLastError(kInjectedError);
      AnomalyLoop::EndFailure();
    }
    return refuses;
  }
};

// The user's "ROOT", empty at every open, instead of the real one with its many certificates.
class EmptyRoot {
 public:
  explicit EmptyRoot(HMODULE module) : patch_(module, "CRYPT32.dll", "CertOpenStore", &Open) {
    original_ = patch_.Original<decltype(CertOpenStore)>();
  }

 private:
  static HCERTSTORE WINAPI Open(LPCSTR, DWORD, HCRYPTPROV_LEGACY, DWORD flags, const void* name) {
    EXPECT_EQ(static_cast<DWORD>(CERT_SYSTEM_STORE_CURRENT_USER), flags);
    EXPECT_STREQ(L"ROOT", static_cast<const wchar_t*>(name));
    return original_(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  }
  static inline decltype(CertOpenStore)* original_ = nullptr;
  ImportPatch patch_;
};

class AnomalyStore : public testing::Test {
 protected:
  AnomalyStore() {
    UseScript(&provider);
    TestKey key = KeyWith(0x11, leaf, {0x0A, 0x1B});
    key.chain = chain;
    TestContainer container;
    container.name = "alphabet";
    container.keys = {key};
    containers = {container};
  }
  ~AnomalyStore() override { UseScript(nullptr); }

  BOOL Open(HCRYPTPROV context) {
    info = {};
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0x10000, context, 0,
                                                         nullptr, store->Get(), &info);
  }
  // Old enough for a walk, with an empty list and an empty section.
  void StartEmpty() {
    store = std::make_unique<MemoryStore>();
    provider.ClearCalls();
    provider.written.clear();
    SharedSection().Wipe();
    ModuleClock::Advance(1000);
    provider.containers.clear();
    EXPECT_EQ(TRUE, Open(0));
    ModuleClock::Advance(1000);
    provider.containers = containers;
    info = {};
  }
  // Every test starts far behind the others in time.
  static long long NextStart() {
    static long long start = 1700000000;
    return start += 1000000;
  }
  [[nodiscard]] std::string Text(std::size_t number) const { return std::to_string(number); }

  const Octets leaf = MakeCertificate({.serial = {0x0A, 0x1B}});
  const Octets root = MakeCertificate({.serial = {0x77, 0x66}, .issuer = "R", .subject = "R"});
  const Octets chain = MakeChain({leaf, root});  // shown from the end
  FailingContainers provider;
  std::vector<TestContainer> containers;
  std::unique_ptr<MemoryStore> store;
  CERT_STORE_PROV_INFO info = {};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_STORE_FIXTURE_H_
