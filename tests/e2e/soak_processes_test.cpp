// Four processes that open the store while a fifth writes into the containers and the openers are
// killed at random, over the development provider's real containers.
#include <atomic>
#include <cstdio>
#include <random>
#include <set>

#include "contract/store_fixture.h"
#include "e2e/envelope_fixture.h"
#include "e2e/soak_support.h"
#include "support/child_process.h"
#include "support/dev_provider.h"

namespace zarext::test {
namespace {

constexpr int kOpeners = 4;
constexpr std::size_t kLasting = 3;  // containers that are there all the time
constexpr char kCountsName[] = "zarext_soak_counts";

// Counted by all processes.
struct Counts {
  std::atomic<long> opens, walks, certificates, wrong, writes, written;
  std::atomic<long> stop;
};

class SharedCounts {
 public:
  SharedCounts()
      : mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    sizeof(Counts), kCountsName)),
        view_(MapViewOfFile(mapping_.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)) {}
  Counts* operator->() const { return static_cast<Counts*>(view_.Get()); }

 private:
  UniqueKernelObject mapping_;
  UniqueView view_;
};

HCERTSTORE OpenProviderStore() { return CertOpenStore(kProviderStore, 0, 0, 0, nullptr); }

// What every process of the test has.
struct Process {
  Process() { UseDevProvider(); }
  StoreFixes fixes{Module()};
  // Far ahead of the other processes and of what they publish, or far behind them.
  ModuleClock clock{Module(), 1700000000 + 1000 * static_cast<long long>(GetCurrentProcessId())};
  SharedCounts counts;
};

bool IsWhole(const StoredCertificate& certificate) {
  return certificate.hasProperty && certificate.container.starts_with(L"profile://") &&
         certificate.container.find(L"/?sn=") != std::wstring::npos &&
         certificate.provider == L"Zarvel CSP" && certificate.providerType == 25;
}

// Opens until it is told to stop or killed. 0: nothing stayed behind.
ZAREXT_CHILD(SoakOpen) {
  const Process process;
  std::mt19937 random(GetCurrentProcessId());
  const auto open = [&] {
    const bool walks = random() % 4 == 0;
    ModuleClock::Advance(walks ? 61 : 1);
    const HCERTSTORE store = OpenProviderStore();
    std::size_t lasting = 0;
    bool whole = store != nullptr;
    for (const StoredCertificate& certificate : Content(store)) {
      whole = whole && IsWhole(certificate);
      lasting += certificate.container.starts_with(L"profile://lasting") ? 1u : 0u;
      ++process.counts->certificates;
    }
    whole = whole && lasting == kLasting;
    if (store != nullptr) CertCloseStore(store, 0);
    ++process.counts->opens;
    process.counts->walks += walks ? 1 : 0;
    process.counts->wrong += whole ? 0 : 1;
  };
  for (int round = 0; round < 20; ++round) open();
  const SoakUsage start;
  while (process.counts->stop == 0) open();
  const SoakUsage end;
  if (end.handles != start.handles) {
    std::printf("opener: %zu handles became %zu\n", start.handles, end.handles);
    return 2;
  }
  return end.memory <= start.memory + 1048576 ? 0 : 3;
}

// Makes a container, writes a certificate into it through the store, finds it there, and deletes
// the container.
ZAREXT_CHILD(SoakWrite) {
  const Process process;
  const Issuer issuer;
  for (int round = 0; process.counts->stop == 0; ++round) {
    const std::string name = "passing" + std::to_string(round);
    {
      const Party party(name.c_str());
      const UniqueCertContext certificate = issuer.Certify(party, kExchangeOid);
      const UniqueCertStore<0> store(OpenProviderStore());
      ++process.counts->writes;
      process.counts->written += CertAddCertificateContextToStore(store.Get(), certificate.Get(),
                                                                  CERT_STORE_ADD_ALWAYS, nullptr)
                                     ? 1
                                     : 0;
    }
    ModuleClock::Advance(61);
    const UniqueCertStore<0> store(OpenProviderStore());
    bool found = false;
    for (const StoredCertificate& certificate : Content(store.Get())) {
      found = found || certificate.container.starts_with(
                           L"profile://" + std::wstring(name.begin(), name.end()) + L"/");
    }
    process.counts->wrong += found ? 0 : 1;
    HCRYPTPROV none = 0;
    CryptAcquireContextA(&none, name.c_str(), "Zarvel CSP", 25, CRYPT_DELETEKEYSET);
  }
  return 0;
}

TEST(SoakProcesses, FourOpenWhileOneWritesAndOneIsKilled) {
  const auto milliseconds = static_cast<ULONGLONG>(SoakNumber("ZAREXT_SOAK_SECONDS", 5)) * 1000;
  const DevHome home;
  const std::string path = ProgramFolder() + "ZAREXT.dll";
  CryptRegisterOIDFunction(0, "CertDllOpenStoreProv", kProviderStore,
                           std::wstring(path.begin(), path.end()).c_str(), "ZarOpenStoreProv");
  const Process process;
  {
    const Issuer issuer;
    for (std::size_t number = 0; number < kLasting; ++number) {
      const Party party(("lasting" + std::to_string(number)).c_str());
      const UniqueCertContext certificate = issuer.Certify(party, kExchangeOid);
      const UniqueCertStore<0> store(OpenProviderStore());
      ASSERT_TRUE(CertAddCertificateContextToStore(store.Get(), certificate.Get(),
                                                   CERT_STORE_ADD_ALWAYS, nullptr));
    }
    HCRYPTPROV none = 0;
    CryptAcquireContextA(&none, "issuer", "Zarvel CSP RSA", 1, CRYPT_DELETEKEYSET);
  }

  std::vector<ChildProcess> openers;
  for (int number = 0; number < kOpeners; ++number) openers.emplace_back("SoakOpen");
  const ChildProcess writer("SoakWrite");
  std::mt19937 random(42);
  long killed = 0;
  ULONGLONG longestStill = 0;  // time without any open, in milliseconds
  ULONGLONG lastProgress = GetTickCount64();
  long lastOpens = 0;
  const auto end = GetTickCount64() + milliseconds;
  while (GetTickCount64() < end) {
    Sleep(200 + random() % 1500);
    // Whoever holds the turn at the section may be the one that dies; the others go on.
    const std::size_t victim = random() % kOpeners;
    openers[victim].Kill();
    ++killed;
    std::vector<ChildProcess> next;
    for (std::size_t number = 0; number < kOpeners; ++number) {
      next.push_back(number == victim ? ChildProcess("SoakOpen") : std::move(openers[number]));
    }
    openers = std::move(next);
    if (process.counts->opens != lastOpens) {
      lastOpens = process.counts->opens;
      lastProgress = GetTickCount64();
    }
    longestStill = std::max(longestStill, GetTickCount64() - lastProgress);
  }
  // Those that live on are given the time to settle.
  Sleep(1000);
  process.counts->stop = 1;
  for (const ChildProcess& opener : openers) EXPECT_EQ(0u, opener.Wait(120000).value_or(255));
  EXPECT_EQ(0u, writer.Wait(120000).value_or(255));

  EXPECT_EQ(0, process.counts->wrong);
  EXPECT_EQ(process.counts->writes, process.counts->written);
  EXPECT_LT(0, process.counts->written);
  // Nobody waits for one that is dead.
  EXPECT_GT(60000u, longestStill);
  std::printf(
      "%llu s: %ld opens (%ld of them walks) by %d processes, %ld certificates seen, %ld "
      "written, %ld processes killed, at most %llu ms without an open, %ld wrong\n",
      static_cast<unsigned long long>(milliseconds / 1000), process.counts->opens.load(),
      process.counts->walks.load(), kOpeners, process.counts->certificates.load(),
      process.counts->written.load(), killed, static_cast<unsigned long long>(longestStill),
      process.counts->wrong.load());
}

}  // namespace
}  // namespace zarext::test
