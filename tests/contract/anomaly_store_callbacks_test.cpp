// The callbacks of an open store, with each call into the platform and into the provider failing.
#include "contract/anomaly_loop.h"
#include "contract/anomaly_store_fixture.h"

namespace zarext::test {
namespace {

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

}  // namespace
}  // namespace zarext::test
