// What an open of the provider store costs, with 1 to 10,000 keys in containers of ten, walked and
// served from the list, and who takes the time: the provider (measured inside its calls), the
// framework, the debugger output, the shared section and the other calls into the system (measured
// at the module's imports), and the module itself, which is the rest.
//
// Run as store_bench.exe --child=Bench: the test support's entry point is linked in.
#include <stdio.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/timed_import.h"
#include "support/certificates.h"
#include "support/child_process.h"
#include "support/container_provider.h"
#include "support/module_under_test.h"
#include "support/store_fixes.h"

namespace zarext::test {
namespace {

double Milliseconds() { return Microseconds(Ticks()) / 1000; }

template <typename Work>
double TimeOf(Work work) {
  const double start = Milliseconds();
  work();
  return Milliseconds() - start;
}

// Adds up the time inside the provider's functions.
class TimedProvider : public ContainerProvider {
 public:
  double spent = 0;
  int calls = 0;

  BOOL AcquireContext(HCRYPTPROV* context, const char* container, DWORD flags,
                      void* table) override {
    return Timed(
        [&] { return ContainerProvider::AcquireContext(context, container, flags, table); });
  }
  BOOL ReleaseContext(HCRYPTPROV context, DWORD flags) override {
    return Timed([&] { return ContainerProvider::ReleaseContext(context, flags); });
  }
  BOOL GetProvParam(HCRYPTPROV context, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override {
    return Timed(
        [&] { return ContainerProvider::GetProvParam(context, parameter, data, size, flags); });
  }
  BOOL GetKeyParam(HCRYPTPROV context, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD flags) override {
    return Timed(
        [&] { return ContainerProvider::GetKeyParam(context, key, parameter, data, size, flags); });
  }

 private:
  template <typename Work>
  BOOL Timed(Work work) {
    const double start = Milliseconds();
    const BOOL result = work();
    spent += Milliseconds() - start;
    ++calls;
    return result;
  }
};

struct OpenedStore {
  OpenedStore() : handle(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)) {}
  ~OpenedStore() { CertCloseStore(handle, 0); }
  OpenedStore(const OpenedStore&) = delete;
  OpenedStore& operator=(const OpenedStore&) = delete;
  HCERTSTORE handle;
};

void OpenOnce(HCERTSTORE store) {
  using Function =
      BOOL WINAPI(LPCSTR, DWORD, HCRYPTPROV, DWORD, const void*, HCERTSTORE, CERT_STORE_PROV_INFO*);
  static auto* const open = Export<Function>("ZarOpenStoreProv");
  CERT_STORE_PROV_INFO info = {};
  if (!open("Zarvel Store Provider", 0, 0, 0, nullptr, store, &info)) {
    throw std::runtime_error("the store does not open");
  }
}

// Keys without chains, so that no open touches the user's root store.
void Fill(TimedProvider& provider, int keys) {
  for (int number = 0; number < keys; ++number) {
    if (number % 10 == 0) {
      provider.containers.emplace_back();
      provider.containers.back().name = "container-" + std::to_string(number / 10);
    }
    TestKey key;
    key.handle = static_cast<std::uint64_t>(number % 10 + 1);
    key.algorithm = 0xAA3A;
    key.serial = {0x10, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number),
                  1};
    key.certificate = MakeCertificate({.serial = key.serial, .keySize = 600});
    key.hasChain = false;
    provider.containers.back().keys.push_back(key);
  }
}

long long inFramework = 0;
long long inOutput = 0;
long long inSection = 0;

// Every call of the module's open into the platform.
struct TimedImports {
  Timed<CertCreateCertificateContext, &inFramework> create{"CRYPT32.dll",
                                                           "CertCreateCertificateContext"};
  Timed<CertSetCertificateContextProperty, &inFramework> set{"CRYPT32.dll",
                                                             "CertSetCertificateContextProperty"};
  Timed<CertAddCertificateContextToStore, &inFramework> add{"CRYPT32.dll",
                                                            "CertAddCertificateContextToStore"};
  Timed<CertFreeCertificateContext, &inFramework> free{"CRYPT32.dll", "CertFreeCertificateContext"};
  Timed<OutputDebugStringA, &inOutput> output{"KERNEL32.dll", "OutputDebugStringA"};
  Timed<MapViewOfFile, &inSection> map{"KERNEL32.dll", "MapViewOfFile"};
  Timed<UnmapViewOfFile, &inSection> unmap{"KERNEL32.dll", "UnmapViewOfFile"};
  Timed<VirtualQuery, &inSection> query{"KERNEL32.dll", "VirtualQuery"};
  Timed<ReadProcessMemory, &inSection> read{"KERNEL32.dll", "ReadProcessMemory"};
  Timed<WriteProcessMemory, &inSection> write{"KERNEL32.dll", "WriteProcessMemory"};
  Timed<WaitForSingleObject, &inSection> wait{"KERNEL32.dll", "WaitForSingleObject"};
  Timed<ReleaseMutex, &inSection> release{"KERNEL32.dll", "ReleaseMutex"};
};

// Of one open, in milliseconds.
struct Parts {
  double total, provider, framework, output, platform;
  [[nodiscard]] double Own() const { return total - provider - framework - output - platform; }
};

Parts OpenTimed(TimedProvider& provider) {
  provider.spent = 0;
  provider.calls = 0;
  inFramework = inOutput = inSection = 0;
  const OpenedStore store;
  const double total = TimeOf([&] { OpenOnce(store.handle); });
  return {total, provider.spent, Microseconds(inFramework) / 1000, Microseconds(inOutput) / 1000,
          Microseconds(inSection) / 1000};
}

// The round in which the module itself took the shortest time.
void Row(const char* what, int keys, const std::vector<Parts>& rounds) {
  const Parts& best = *std::min_element(
      rounds.begin(), rounds.end(),
      [](const Parts& left, const Parts& right) { return left.Own() < right.Own(); });
  printf("| %s | %d | %.3f | %.3f | %.3f | %.3f | %.3f | %.3f | %.1f %% | %.2f |\n", what, keys,
         best.total, best.provider, best.framework, best.output, best.platform, best.Own(),
         100 * best.Own() / best.total, 1000 * best.Own() / keys);
}

void Measure(int keys) {
  TimedProvider provider;
  provider.records = false;
  UseScript(&provider);
  Fill(provider, keys);
  std::vector<Parts> walked;
  std::vector<Parts> served;
  const int rounds = keys >= 10000 ? 2 : keys >= 1000 ? 9 : 101;
  for (int round = 0; round < rounds; ++round) {
    ModuleClock::Advance(1000);
    walked.push_back(OpenTimed(provider));
    served.push_back(OpenTimed(provider));
    if (provider.calls != 0) {
      throw std::runtime_error("a served open called the provider");
    }
  }
  Row("walked", keys, walked);
  Row("served", keys, served);
  UseScript(nullptr);
}

ZAREXT_CHILD(Bench) {
  const StoreFixes fixes(Module());
  const ModuleClock clock(Module(), 1700000000);
  const TimedImports timed;
  printf(
      "| open | keys | ms | provider | framework | output | section | own | own share | own us per "
      "key |\n| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
  for (const int keys : {1, 10, 100, 1000, 10000}) {
    Measure(keys);
  }
  return 0;
}

}  // namespace
}  // namespace zarext::test
