// The open of the provider store, with each call into the platform and into the provider failing.
#include <memory>

#include "contract/anomaly_loop.h"
#include "contract/anomaly_points.h"
#include "contract/anomaly_store_fixture.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

class AnomalyOpenStore : public AnomalyStore {
 protected:
  AnomalyOpenStore() {
    url = own + " : URL = profile://alphabet (file : ).";
    size = own + " : size=88 (" + Text(leaf.size()) + ").";
    algorithm = own + " : algID=aa3a (alphabet).";
    rootLine = own + " [CertEnumCertificatesInStore : size = " + Text(chain.size()) +
               ", oid = 1.2.398.3.10.1.1.1.2, s/n= 66 77...]";
    leafLine = own + " [CertEnumCertificatesInStore : size = " + Text(chain.size()) +
               ", oid = 1.2.398.3.10.1.1.1.2, s/n= 1b a...]";
    cache = own + "_CACHE : dwKeySpec = 2 (aa3a), dwProvType = 19, size = " + Text(leaf.size()) +
            ", szwContainer = profile://alphabet/?sn=0A1B (1.2.398.3.10.1.1.1.1).";
  }

  Scenario Start(const char* name) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [this] { StartEmpty(); };
    scenario.call = [this] { return Open(context.Get()); };
    // After a load that threw, the thread still has the section.
    scenario.release = [] { LeaveKeptSections(); };
    scenario.outputs = [this] {
      return std::vector<std::span<BYTE>>{{reinterpret_cast<BYTE*>(&info), sizeof info}};
    };
    scenario.check = [this](const FailurePoint*, long result) {
      // Contained exactly where the trace says that it was added.
      const auto content = Encodings(store->Get());
      EXPECT_EQ(result == TRUE ? 40u : 0u, info.cbSize);
      EXPECT_GE(1u, content.size());
    };
    scenario.thrown = [this](const FailurePoint& point, Manner manner, Effect& effect) {
      if (effect.course == Effect::Course::kGoesOn) return;
      const std::string code = manner == Manner::kThrowsCode ? " = 5a5a" : "";
      effect.added = {"EXT : ZarOpenStoreProv : ERROR" + code, finish};
      // Everywhere but where the provider's type is asked for, the load throws.
      effect.left = Leftovers();
      const bool asksType = point.function == "CryptGetProvParam" &&
                            (!point.isEntry || (asks && point.occurrence == 1));
      if (!asksType) effect.left = {{"section", 1}};
      if (listsAKey && point.linesBefore >= 4) (*effect.left)["heap block"] = 5;
    };
    return scenario;
  }
  // The load throws; the thread keeps the section.
  static Effect Throws(const Lines& lines, DWORD error, const Leftovers& left) {
    Effect effect;
    effect.error = error;
    effect.lines = lines;
    effect.left = left;
    (*effect.left)["section"] = 1;
    return effect;
  }

  StoreFixes fixes{Module()};
  EmptyRoot emptyRoot{Module()};
  ModuleClock clock{Module(), NextStart()};
  AnomalyLoop loop{Module()};
  ProviderContext context;
  const std::string own = "EXT : load_certs_from_CSP";
  const std::string open =
      "EXT : ZarOpenStoreProv [lpszStoreProvider = Zarvel Store Provider] [hCryptProv = *] "
      "[dwFlags = 0] [hCertStore = *]";
  const std::string finish = "EXT : ZarOpenStoreProv : FINISH";
  bool asks = false;  // for the provider's type
  bool listsAKey = false;
  std::string url, size, algorithm, rootLine, leafLine, cache;
};

TEST_F(AnomalyOpenStore, AWalk) {
  Scenario scenario = Start("ZarOpenStoreProv, a walk");
  scenario.lines = {open, url, size, algorithm, rootLine, leafLine, cache, finish};
  // The listed key: node, record, container name, serial number, certificate.
  const Leftovers listed = {{"heap block", 5}};
  scenario.left = listed;
  asks = true;
  listsAKey = true;
  const Effect nothing = GoesOnAs({open, finish}, {});
  const Effect unopened = GoesOnAs({open, url, finish}, {});
  const Effect unlisted = GoesOnAs({open, url, size, algorithm, rootLine, leafLine, finish}, {});
  scenario.rules = {
      {"CryptGetProvParam", 1, Stops(0, "")},
      {"CPAcquireContext", 1, nothing},
      {"CPGetProvParam 57", 1, nothing},
      {"CPGetProvParam 57", 2, GoesOn()},
      {"CPGetProvParam 64", 1, nothing},
      {"CPAcquireContext", 2, unopened},
      {"CPGetProvParam 45", 1, unopened},
      {"CPGetProvParam 45", 2, GoesOn()},
      {"CPGetKeyParam 69", 1, GoesOnAs({open, url, size, algorithm, cache, finish})},
      {"CryptGetMessageCertificates", 1,
       GoesOnWith(4,
                  {own + " [cbCert = " + Text(chain.size()) +
                   ", CryptGetMessageCertificates(hPKCS7Store) : error = 5A5A]"},
                  2)},
      {"CertOpenStore", 1, GoesOnWith(4, {own + " [CertOpenStore(hRootStore) : error = 5A5A]"}, 2)},
      {"CertEnumCertificatesInStore", 1, GoesOnWith(4, {}, 2)},
      {"CertEnumCertificatesInStore", 2, GoesOnWith(5, {}, 1)},
      {"CertEnumCertificatesInStore", 3, GoesOn()},
      {"CertAddEncodedCertificateToStore", 1,
       GoesOnWith(5, {own + " [CertAddEncodedCertificateToStore : error = 5A5A]"})},
      {"CertCreateCertificateContext", 1, GoesOnWith(6, {}, 1)},
      {"CertSetCertificateContextProperty", 1, GoesOn()},
      {"CertAddCertificateContextToStore", 1, GoesOn()},
      // The URL, and the provider's name.
      {"MultiByteToWideChar", 1, GoesOn()},
      {"MultiByteToWideChar", 2,
       Throws({open, url, size, algorithm, rootLine, leafLine, "EXT : ZarOpenStoreProv : ERROR = 3",
               finish},
              3, listed)},
      // The section, in which there is nothing yet, and where the listing goes in the end.
      {"MapViewOfFile", 0, GoesOn()},
      {"WaitForSingleObject", 0, GoesOn()},
      {"ReadProcessMemory", 0, GoesOn()},
      {"WriteProcessMemory", 0, GoesOn()},
      // The section, the key's certificate and serial number, the section.
      {"VirtualQuery", 1, GoesOn()},
      {"VirtualQuery", 2, unlisted},
      {"VirtualQuery", 3, unlisted},
      {"VirtualQuery", 4, GoesOn()},
      // The listed key.
      {"allocation", 0, unlisted, 3},
      // What is published.
      {"allocation", 0, GoesOn(), 6},
  };
  scenario.rules[0].effect.lines = Lines{open, "EXT : ZarOpenStoreProv : ERROR = 5a5a", finish};
  loop.Run(scenario);
}

// From the list of the last minute, with a listing in the section that is fresh as well.
TEST_F(AnomalyOpenStore, ServedFromTheCache) {
  Scenario scenario = Start("ZarOpenStoreProv, from the cache");
  scenario.prepare = [this] {
    StartEmpty();
    EXPECT_EQ(TRUE, Open(0));
    info = {};
    store = std::make_unique<MemoryStore>();
  };
  scenario.call = [this] { return Open(0); };
  scenario.lines = {open, cache, finish};
  const std::string error = "EXT : ZarOpenStoreProv : ERROR";
  scenario.rules = {{"CertCreateCertificateContext", 1, GoesOnWith(1, {}, 1)},
                    {"CertSetCertificateContextProperty", 1, GoesOn()},
                    {"CertAddCertificateContextToStore", 1, GoesOn()},
                    {"MultiByteToWideChar", 1, GoesOn()},
                    {"MultiByteToWideChar", 2, Throws({open, error + " = 3", finish}, 3, {})}};
  loop.Run(scenario);
}

// The list is empty and the section's is fresh: it is read and parsed, and gives nothing.
TEST_F(AnomalyOpenStore, BehindAFreshSection) {
  Scenario scenario = Start("ZarOpenStoreProv, a fresh section");
  containers[0].keys.clear();
  scenario.prepare = [this] {
    StartEmpty();
    SharedSection().Put(static_cast<DWORD>(ModuleClock::Now()),
                        {0x30, 0x11, 0x30, 0x0F, 0x04, 0x01, 'n', 0x04, 0x01, 0xAB, 0x04, 0x01,
                         0xC5, 0x04, 0x04, 1, 0, 0, 0});
  };
  scenario.call = [this] { return Open(0); };
  scenario.lines = {open, url, finish};
  const Effect nothing = GoesOnAs({open, finish});
  scenario.rules = {{"MapViewOfFile", 1, GoesOn()},
                    {"VirtualQuery", 1, GoesOn()},
                    {"WaitForSingleObject", 1, GoesOn()},
                    {"ReadProcessMemory", 0, GoesOn()},
                    // The copy, and the tree that it is parsed into.
                    {"allocation", 0, GoesOn()},
                    {"CPAcquireContext", 1, nothing},
                    {"CPGetProvParam 57", 1, nothing},
                    {"CPGetProvParam 57", 2, GoesOn()},
                    {"CPGetProvParam 64", 1, nothing},
                    {"CPAcquireContext", 2, GoesOn()},
                    {"CPGetProvParam 45", 1, GoesOn()}};
  loop.Run(scenario);
}

// The provider's module is the scripted one under either of its names.
std::string loadedName;
HMODULE WINAPI LoadScripted(LPCSTR name) {
  loadedName = name;
  return LoadLibraryA(ScriptedProviderPath().c_str());
}

// A module that has not bound the provider yet, loaded anew for each round from a copy of the DLL.
TEST(AnomalyBinding, TheFirstOpen) {
  FailingContainers provider;
  UseScript(&provider);
  const std::string copy = ProgramFolder() + "zarext_copy.dll";
  ASSERT_TRUE(CopyFileA((ProgramFolder() + "ZAREXT.dll").c_str(), copy.c_str(), FALSE));
  const std::string own = "EXT : ZarOpenStoreProv";
  Scenario scenario;
  scenario.name = "ZarOpenStoreProv, the provider's module not bound";
  scenario.prepare = [] { SharedSection().Wipe(); };
  scenario.release = [] { LeaveKeptSections(); };
  scenario.lines = {own +
                        " [lpszStoreProvider = Zarvel Store Provider] [hCryptProv = 0] "
                        "[dwFlags = 0] [hCertStore = *]",
                    own + " : FINISH"};
  // The provider's module stays loaded.
  const Leftovers bound = {{"module", 1}};
  scenario.left = bound;
  Effect unbound;
  unbound.error = kInjectedError;
  unbound.lines = {scenario.lines[0], own + " : ERROR = 5a5a", own + " : FINISH"};
  unbound.left = {{"section", 1}};
  scenario.rules = {{"MapViewOfFile", 1, GoesOn()},       {"VirtualQuery", 1, GoesOn()},
                    {"WaitForSingleObject", 1, GoesOn()}, {"ReadProcessMemory", 1, GoesOn()},
                    {"RegOpenKeyExA", 1, GoesOn()},       {"RegQueryValueExA", 1, GoesOn()},
                    {"LoadLibraryA", 1, unbound},         {"GetProcAddress", 6, GoesOn()},
                    {"GetProcAddress", 0, unbound},       {"CPAcquireContext", 1, GoesOn()},
                    {"CPGetProvParam 57", 1, GoesOn()}};
  // Without its registration the provider is looked for by its file's name.
  scenario.check = [](const FailurePoint* point, long) {
    const std::string function = point == nullptr ? "" : point->function;
    EXPECT_EQ(function == "LoadLibraryA" ? ""
              : function == "RegOpenKeyExA" || function == "RegQueryValueExA"
                  ? "cpzarvel.dll"
                  : ScriptedProviderPath(),
              loadedName);
  };
  std::vector<FailurePoint> points;
  for (std::size_t failing = 0;; ++failing) {
    const UniqueModule module(LoadLibraryA(copy.c_str()));
    ASSERT_TRUE(module);
    const StoreFixes fixes(module.Get());
    const MemoryStore store;
    CERT_STORE_PROV_INFO info = {};
    const ImportPatch load(module.Get(), "KERNEL32.dll", "LoadLibraryA", &LoadScripted);
    loadedName.clear();
    AnomalyLoop loop(module.Get());
    scenario.call = [&] {
      return Export<OpenStoreFunction>(module.Get(), "ZarOpenStoreProv")(
          kProviderStore, 0x10000, 0, 0, nullptr, store.Get(), &info);
    };
    const auto point = loop.RunOne(scenario, failing);
    if (!point && failing != 0) break;
    if (point) points.push_back(*point);
  }
  EXPECT_LT(14, AnomalyLoop::Report(scenario.name, points));
  DeleteFileA(copy.c_str());
  UseScript(nullptr);
}

}  // namespace
}  // namespace zarext::test
