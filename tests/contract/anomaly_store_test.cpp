// The provider store, with each call into the platform and into the provider failing.
#include <algorithm>
#include <memory>

#include "contract/anomaly_loop.h"
#include "contract/anomaly_points.h"
#include "contract/store_fixture.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

constexpr auto kNoMemory = static_cast<DWORD>(NTE_NO_MEMORY);

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

// The callbacks of an open store, as the framework calls them.
class AnomalyCallbacks : public AnomalyStore {
 protected:
  AnomalyCallbacks() {
    UseKeys({});
    StartEmpty();
    EXPECT_EQ(TRUE, Open(0));
  }
  // One container with one key that has this chain and no certificate.
  void UseKeys(const Octets& keyChain) {
    containers[0].keys = {KeyWith(0x11, {}, {})};
    containers[0].keys[0].chain = keyChain;
  }
  template <typename Function>
  Function* Callback(int slot) const {
    return reinterpret_cast<Function*>(info.rgpvStoreProvFunc[slot]);
  }
  Scenario Start(const char* name) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [this] {
      provider.containers = containers;
      provider.written.clear();
    };
    scenario.release = [] {};
    return scenario;
  }
  // FALSE with what the last error was.
  static Effect Refused(std::size_t linesBefore) {
    Effect effect;
    effect.linesBefore = linesBefore;
    effect.left = Leftovers();
    return effect;
  }
  Scenario Write(const char* name, const UniqueCertContext& context) {
    Scenario scenario = Start(name);
    scenario.call = [this, &context] {
      return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD)>(2)(store->Get(),
                                                                             context.Get(), 1);
    };
    scenario.check = [this](const FailurePoint*, long result) {
      EXPECT_TRUE(result == TRUE || provider.written.empty() ||
                  AnomalyLoop::CurrentManner() != Manner::kFails);
    };
    // Anything but a code leaves the last error alone.
    scenario.thrown = [](const FailurePoint&, Manner manner, Effect& effect) {
      if (manner != Manner::kThrowsCode) effect.error.reset();
    };
    scenario.rules = {{"CPAcquireContext", 1, Refused(2)}, {"CPGetProvParam 57", 1, Refused(2)},
                      {"CPGetProvParam 57", 2, GoesOn()},  {"CPGetProvParam 64", 1, Refused(3)},
                      {"CPAcquireContext", 2, Refused(3)}, {"CPGetProvParam 45", 1, Refused(3)}};
    return scenario;
  }

  StoreFixes fixes{Module()};
  ModuleClock clock{Module(), NextStart()};
  AnomalyLoop loop{Module()};
  const std::string own = "EXT : CertStoreProv";
};

TEST_F(AnomalyCallbacks, Write) {
  const UniqueCertContext context = MakeContext(leaf);
  Scenario scenario = Write("CertStoreProvWriteCertCallback", context);
  scenario.lines = {own + "WriteCertCallback [hStoreProv = *] [dwFlags = 1]",
                    own +
                        "WriteCertCallback [Algorithm.pszObjId = 1.2.398.3.10.1.1.1.1]"
                        "[s/n= 1b a...]",
                    own + "WriteCertCallback [URL = profile://alphabet]"};
  scenario.rules.push_back({"CPGetKeyParam 26", 1, GoesOn()});
  scenario.rules.push_back({"CPSetKeyParam 26", 1, Refused(3)});
  loop.Run(scenario);
}

TEST_F(AnomalyCallbacks, WriteOfARoot) {
  UseKeys(MakeChain({leaf}));
  const UniqueCertContext context = MakeContext(root);
  Scenario scenario = Write("CertStoreProvWriteCertCallback, a root", context);
  scenario.lines = {own + "WriteCertCallback [hStoreProv = *] [dwFlags = 1]",
                    own +
                        "WriteCertCallback [Algorithm.pszObjId = 1.2.398.3.10.1.1.1.1]"
                        "[s/n= 66 77...]",
                    own + "WriteCertCallback [URL = profile://alphabet]",
                    own + "WriteCertCallback : CertEnumCertificatesInStore : size = " +
                        Text(MakeChain({leaf}).size()) +
                        ", oid = 1.2.398.3.10.1.1.1.2, [s/n= 1b a...]"};
  const Effect unread = GoesOnWith(3, {}, 1);
  scenario.rules.push_back({"CPGetKeyParam 69", 1, unread});
  scenario.rules.push_back({"CryptGetMessageCertificates", 1, unread});
  scenario.rules.push_back({"CertEnumCertificatesInStore", 1, unread});
  scenario.rules.push_back({"CertEnumCertificatesInStore", 2, GoesOn()});
  scenario.rules.push_back({"CPSetKeyParam 68", 1, Refused(4)});
  loop.Run(scenario);
}

TEST_F(AnomalyCallbacks, TheOthers) {
  const UniqueCertContext context = MakeContext(leaf);
  PCCERT_CONTEXT found = nullptr;
  CERT_STORE_PROV_FIND_INFO what = {};
  what.cbSize = sizeof what;
  what.dwMsgAndCertEncodingType = X509_ASN_ENCODING;
  what.dwFindType = CERT_FIND_ANY;
  EXPECT_TRUE(CertAddCertificateContextToStore(store->Get(), context.Get(), CERT_STORE_ADD_ALWAYS,
                                               nullptr));

  Scenario find = Start("CertStoreProvFindCert");
  find.call = [&] {
    return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_STORE_PROV_FIND_INFO, PCCERT_CONTEXT, DWORD,
                                void**, PCCERT_CONTEXT*)>(14)(store->Get(), &what, nullptr, 0,
                                                              nullptr, &found);
  };
  find.release = [&] { CertFreeCertificateContext(std::exchange(found, nullptr)); };
  find.lines = {own + "FindCert [hCertStore = *] [dwFlags = 0]"};
  find.left = {{"certificate", 1}};
  find.rules = {{"CertFindCertificateInStore", 1, GoesOnAs(find.lines, {})}};
  find.check = [&](const FailurePoint* point, long) {
    EXPECT_EQ(point == nullptr, found != nullptr);
  };
  loop.Run(find);

  DWORD version = 0;
  DWORD size = sizeof version;
  Octets hash(20);
  Scenario property = Start("CertStoreProvGetCertProperty");
  property.call = [&] {
    size = 20;
    return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, DWORD, void*, DWORD*)>(16)(
        store->Get(), context.Get(), CERT_SHA1_HASH_PROP_ID, 0, hash.data(), &size);
  };
  property.lines = {own + "GetCertProperty [hCertStore = *] [dwPropId = 3]"};
  property.rules = {{"CertGetCertificateContextProperty", 1, Stops(1, "")}};
  loop.Run(property);

  // These call nothing.
  Scenario none = Start("CertStoreProvReadCertCallback");
  none.call = [&] {
    return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, PCCERT_CONTEXT*)>(1)(
        store->Get(), context.Get(), 0, &found);
  };
  none.result = FALSE;
  none.lines = {own + "ReadCertCallback [hCertStore = *] [dwFlags = 0]"};
  EXPECT_EQ(0, loop.Run(none));
  none.name = "CertStoreProvDeleteCertCallback";
  none.call = [&] {
    return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD)>(3)(store->Get(),
                                                                           context.Get(), 0);
  };
  none.lines = {own +
                "DeleteCertCallback [hCertStore = *] [pszObjId = 1.2.398.3.10.1.1.1.2, "
                "size = " +
                Text(leaf.size()) + "]"};
  EXPECT_EQ(0, loop.Run(none));
  none.name = "CertStoreProvFreeFindCert";
  none.call = [&] {
    return Callback<BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, void*, DWORD)>(15)(
        store->Get(), context.Get(), nullptr, 0);
  };
  none.result = TRUE;
  none.lines = {own + "FreeFindCert"};
  EXPECT_EQ(0, loop.Run(none));
}

TEST_F(AnomalyCallbacks, Close) {
  Scenario scenario = Start("CertStoreProvCloseCallback");
  HCERTSTORE closed = nullptr;
  scenario.prepare = [&] { closed = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr); };
  scenario.call = [&] { return Callback<BOOL WINAPI(HCERTSTOREPROV, DWORD)>(0)(closed, 1); };
  // The framework's own reference, with the fix for its platform.
  scenario.release = [&] { CertCloseStore(closed, 0); };
  scenario.lines = {own + "CloseCallback [hCertStore = *] [dwFlags = 1, hLib = *]"};
  scenario.left = {{"store", -1}};
  // Not a release of the module's own: the caller hears of it.
  scenario.thrown = [](const FailurePoint&, Manner manner, Effect& effect) {
    effect =
        StopsSilently(manner == Manner::kThrowsCode ? kInjectedError : kNoMemory, {{"store", -1}});
  };
  EXPECT_EQ(1, loop.Run(scenario));
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
