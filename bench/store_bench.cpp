// What an open of the provider store costs, with 1 to 10,000 keys in containers of ten, walked and
// served from the list, and who takes the time: the provider (measured inside its calls), the
// framework (the same certificates put into a memory store by a bare loop), the debugger output
// (as many bare calls of it), and the module itself, which is the rest.
//
// Run as store_bench.exe --child=Bench: the test support's entry point is linked in.
#include <stdio.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench/support/ratio.h"
#include "support/certificates.h"
#include "support/child_process.h"
#include "support/container_provider.h"
#include "support/module_under_test.h"
#include "support/store_fixes.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using bench::Median;

double Milliseconds() {
  static const double perMillisecond = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart) / 1000;
  }();
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) / perMillisecond;
}

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

void AddOnce(HCERTSTORE store, const std::vector<Octets>& certificates) {
  wchar_t container[] = L"profile://container-0000/?sn=01020304";
  wchar_t provider[] = L"Zarvel CSP";
  for (const Octets& certificate : certificates) {
    const PCCERT_CONTEXT context =
        CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, certificate.data(),
                                     static_cast<DWORD>(certificate.size()));
    CRYPT_KEY_PROV_INFO info = {};
    info.pwszContainerName = container;
    info.pwszProvName = provider;
    info.dwProvType = 25;
    info.dwFlags = 1;
    info.dwKeySpec = 2;
    CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
    CertAddCertificateContextToStore(store, context, CERT_STORE_ADD_NEW, nullptr);
    CertFreeCertificateContext(context);
  }
}

// Keys without chains, so that no open touches the user's root store.
std::vector<Octets> Fill(TimedProvider& provider, int keys) {
  std::vector<Octets> certificates;
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
    certificates.push_back(key.certificate);
    provider.containers.back().keys.push_back(key);
  }
  return certificates;
}

std::vector<std::string> LinesOfOneOpen() {
  const TraceCapture trace;
  const OpenedStore store;
  OpenOnce(store.handle);
  return trace.Lines();
}

void Output(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    OutputDebugStringA(line.c_str());
  }
}

void Row(const char* what, int keys, double total, double provider, double framework,
         double output) {
  const double own = total - provider - framework - output;
  printf("| %s | %d | %.3f | %.3f | %.3f | %.3f | %.3f | %.1f %% | %.2f |\n", what, keys, total,
         provider, framework, output, own, 100 * own / total, 1000 * own / keys);
}

void Measure(int keys) {
  TimedProvider provider;
  provider.records = false;
  UseScript(&provider);
  const std::vector<Octets> certificates = Fill(provider, keys);
  ModuleClock::Advance(1000);
  const std::vector<std::string> walkedLines = LinesOfOneOpen();
  const std::vector<std::string> servedLines = LinesOfOneOpen();
  std::vector<double> walked, walkedProvider, served, framework, walkedOutput, servedOutput;
  const int rounds = keys >= 10000 ? 3 : keys >= 1000 ? 7 : 31;
  for (int round = 0; round < rounds; ++round) {
    ModuleClock::Advance(1000);
    provider.spent = 0;
    {
      const OpenedStore store;
      walked.push_back(TimeOf([&] { OpenOnce(store.handle); }));
    }
    walkedProvider.push_back(provider.spent);
    provider.calls = 0;
    {
      const OpenedStore store;
      served.push_back(TimeOf([&] { OpenOnce(store.handle); }));
    }
    if (provider.calls != 0) throw std::runtime_error("a served open called the provider");
    {
      const OpenedStore store;
      framework.push_back(TimeOf([&] { AddOnce(store.handle, certificates); }));
    }
    walkedOutput.push_back(TimeOf([&] { Output(walkedLines); }));
    servedOutput.push_back(TimeOf([&] { Output(servedLines); }));
  }
  Row("walked", keys, Median(walked), Median(walkedProvider), Median(framework),
      Median(walkedOutput));
  Row("served", keys, Median(served), 0, Median(framework), Median(servedOutput));
  UseScript(nullptr);
}

ZAREXT_CHILD(Bench) {
  const StoreFixes fixes(Module());
  const ModuleClock clock(Module(), 1700000000);
  printf(
      "| open | keys | ms | provider | framework | output | own | own share | own us per key |\n"
      "| --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
  for (const int keys : {1, 10, 100, 1000, 10000}) {
    Measure(keys);
  }
  return 0;
}

}  // namespace
}  // namespace zarext::test
