// What an open of the provider store costs, with 1 to 10,000 keys in containers of ten, walked and
// served from the list, and who takes the time: the provider (measured inside its calls), the
// framework (the same certificates put into a memory store by a bare loop), the debugger output
// (as many bare calls of it), the shared section (its calls and copies, bare), and the module
// itself, which is the rest. Of every part the shortest of several rounds counts: what else the
// machine does only ever adds.
//
// Run as store_bench.exe --child=Bench: the test support's entry point is linked in.
#include <stdio.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <stdexcept>
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

using bench::Shortest;

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

// One look into the section and one publication, as an open that walks makes them.
void ShareOnce(DWORD size) {
  static const HANDLE mapping =
      OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "$zarvel_csp_store_map_name");
  static const HANDLE mutex = OpenMutexA(MUTEX_ALL_ACCESS, FALSE, "$zarvel_csp_store_mutex_name");
  static const std::vector<BYTE> block(262144);
  for (const DWORD copied : {DWORD{0}, size}) {
    void* const view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    WaitForSingleObject(mutex, INFINITE);
    std::copy(block.begin(), block.begin() + copied, static_cast<BYTE*>(view) + 8);
    ReleaseMutex(mutex);
    UnmapViewOfFile(view);
  }
}

struct Parts {
  std::vector<double> total, provider, framework, output, shared;
};

void Row(const char* what, int keys, const Parts& parts) {
  const double total = Shortest(parts.total);
  const double provider = Shortest(parts.provider);
  const double framework = Shortest(parts.framework);
  const double output = Shortest(parts.output);
  const double shared = Shortest(parts.shared);
  const double own = total - provider - framework - output - shared;
  printf("| %s | %d | %.3f | %.3f | %.3f | %.3f | %.3f | %.3f | %.1f %% | %.2f |\n", what, keys,
         total, provider, framework, output, shared, own, 100 * own / total, 1000 * own / keys);
}

void Measure(int keys) {
  TimedProvider provider;
  provider.records = false;
  UseScript(&provider);
  const std::vector<Octets> certificates = Fill(provider, keys);
  ModuleClock::Advance(1000);
  const std::vector<std::string> walkedLines = LinesOfOneOpen();
  const std::vector<std::string> servedLines = LinesOfOneOpen();
  DWORD published = 0;
  for (const Octets& certificate : certificates) {
    published += static_cast<DWORD>(certificate.size()) + 40;
  }
  Parts walked;
  Parts served;
  const int rounds = keys >= 10000 ? 2 : keys >= 1000 ? 9 : 51;
  for (int round = 0; round < rounds; ++round) {
    ModuleClock::Advance(1000);
    provider.spent = 0;
    {
      const OpenedStore store;
      walked.total.push_back(TimeOf([&] { OpenOnce(store.handle); }));
    }
    walked.provider.push_back(provider.spent);
    provider.calls = 0;
    {
      const OpenedStore store;
      served.total.push_back(TimeOf([&] { OpenOnce(store.handle); }));
    }
    if (provider.calls != 0) {
      throw std::runtime_error("a served open called the provider");
    }
    served.provider.push_back(0);
    {
      const OpenedStore store;
      walked.framework.push_back(TimeOf([&] { AddOnce(store.handle, certificates); }));
    }
    walked.output.push_back(TimeOf([&] { Output(walkedLines); }));
    served.output.push_back(TimeOf([&] { Output(servedLines); }));
    walked.shared.push_back(TimeOf([&] { ShareOnce(published <= 262136 ? published : 0); }));
    served.shared.push_back(0);
  }
  served.framework = walked.framework;
  Row("walked", keys, walked);
  Row("served", keys, served);
  UseScript(nullptr);
}

ZAREXT_CHILD(Bench) {
  const StoreFixes fixes(Module());
  const ModuleClock clock(Module(), 1700000000);
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
