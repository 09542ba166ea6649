// The exports that maintain the system stores, with each of their calls into the platform failing.
#include <algorithm>

#include "contract/anomaly_loop.h"
#include "contract/anomaly_points.h"
#include "contract/store_fixture.h"

namespace zarext::test {
namespace {

constexpr char kLog[] = "c:\\zarext.log";

// What FileLog wrote, without the beginning of each line.
Lines LogMessages() {
  Lines messages;
  const UniqueFile file(fopen(kLog, "r"));
  char line[4096];
  while (file && fgets(line, sizeof line, file.Get()) != nullptr) {
    std::string text = line;
    text.erase(text.find_last_not_of('\n') + 1);
    // "thid=268 : time=Sat Nov 21 10:55:22.438 : message"
    const std::size_t time = text.find(" : time=");
    messages.push_back(text.substr(text.find(" : ", time + 3) + 3));
  }
  return messages;
}

class AnomalySystemStores : public testing::Test {
 protected:
  AnomalySystemStores() { ClearLog(); }
  ~AnomalySystemStores() override { DeleteFileA(kLog); }

  // Without a log file each line would cost the process a descriptor.
  static void ClearLog() { const UniqueFile log(fopen(kLog, "wb")); }

  // The certificates of the user's "MY"; optionally takes them out.
  static std::size_t CountMine(bool removes) {
    const UniqueCertStore<0> store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY"));
    const std::size_t count = Content(store.Get()).size();
    while (removes) {
      const PCCERT_CONTEXT found = CertFindCertificateInStore(store.Get(), X509_ASN_ENCODING, 0,
                                                              CERT_FIND_ANY, nullptr, nullptr);
      if (found == nullptr) break;
      DeleteFromStore(found);
    }
    return count;
  }

  // `present`: what of "MY" is left by the good call.
  Scenario Start(const char* name) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [] {};
    scenario.release = [] {
      CountMine(true);
      ClearLog();
    };
    scenario.check = [this](const FailurePoint* point, long) {
      const std::string key =
          point == nullptr ? "" : point->function + " " + std::to_string(point->occurrence);
      const Manner manner = AnomalyLoop::CurrentManner();
      if (point != nullptr && manner != Manner::kFails) {
        const bool isLogged = manner == Manner::kThrowsCode && !IsRelease(*point);
        EXPECT_EQ(isLogged ? Lines{failureLine} : Lines(), LogMessages());
        return;
      }
      const auto found = log.find(key);
      EXPECT_EQ(found == log.end() ? Lines() : found->second, LogMessages());
      const auto stays = count.find(key);
      EXPECT_EQ(stays == count.end() ? count.at("") : stays->second, CountMine(false));
    };
    scenario.thrown = [](const FailurePoint&, Manner, Effect& effect) { effect.error.reset(); };
    return scenario;
  }

  static bool IsRelease(const FailurePoint& point) {
    return KindOfPoint(point.function) == PointKind::kRelease;
  }
  // With whatever last error the last call into the platform leaves.
  static Effect Fails() {
    Effect effect = Stops(0, "");
    effect.error.reset();
    return effect;
  }

  StoreFixes fixes{Module()};
  AnomalyLoop loop{Module()};
  // By failure point: the lines of the log, and the certificates in "MY" afterwards.
  std::map<std::string, Lines> log;
  std::map<std::string, std::size_t> count;
  // Behind a code that is thrown.
  std::string failureLine = "SetOtherCert : Error = 5a5a.";
  const Octets certificate = MakeCertificate({.serial = {0x51}});
};

TEST_F(AnomalySystemStores, SetSelfCert) {
  Scenario scenario = Start("SetSelfCert");
  failureLine = "SetSelfCert : Error = 5a5a.";
  scenario.call = [&] {
    return Export<BOOL WINAPI(int, const char*, DWORD, const BYTE*, DWORD)>("SetSelfCert")(
        0, "c", 1, certificate.data(), static_cast<DWORD>(certificate.size()));
  };
  scenario.rules = {{"CertOpenStore", 1, Fails()},
                    {"CertAddEncodedCertificateToStore", 1, Fails()},
                    {"MultiByteToWideChar", 1, Fails()},
                    {"MultiByteToWideChar", 2, Fails()},
                    {"CertSetCertificateContextProperty", 1, Fails()}};
  count = {{"", 1}, {"CertOpenStore 1", 0}, {"CertAddEncodedCertificateToStore 1", 0}};
  log = {{"CertOpenStore 1", {"SetSelfCert : Error = 5a5a."}},
         {"CertAddEncodedCertificateToStore 1", {"SetSelfCert : Error = 5a5a."}},
         {"CertSetCertificateContextProperty 1", {"SetSelfCert : Error = 5a5a."}}};
  EXPECT_LT(0, loop.Run(scenario));
}

TEST_F(AnomalySystemStores, SetOtherCert) {
  Scenario scenario = Start("SetOtherCert");
  scenario.call = [&] {
    return Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("SetOtherCert")(
        0, 4, certificate.data(), static_cast<DWORD>(certificate.size()));
  };
  scenario.rules = {{"CertOpenStore", 1, Fails()},
                    {"CertAddEncodedCertificateToStore", 1, Fails()}};
  count = {{"", 1}, {"CertOpenStore 1", 0}, {"CertAddEncodedCertificateToStore 1", 0}};
  log = {{"CertOpenStore 1", {"SetOtherCert : Error = 5a5a."}},
         {"CertAddEncodedCertificateToStore 1", {"SetOtherCert : Error = 5a5a."}}};
  EXPECT_LT(0, loop.Run(scenario));
}

TEST_F(AnomalySystemStores, DelOtherCert) {
  Scenario scenario = Start("DelOtherCert");
  const Octets other = MakeCertificate({.serial = {0x52}});
  scenario.prepare = [&] {
    const UniqueCertStore<0> store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY"));
    for (const Octets& octets : {certificate, other}) {
      EXPECT_TRUE(CertAddEncodedCertificateToStore(store.Get(), X509_ASN_ENCODING, octets.data(),
                                                   static_cast<DWORD>(octets.size()),
                                                   CERT_STORE_ADD_ALWAYS, nullptr));
    }
  };
  scenario.call = [&] {
    return Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("DelOtherCert")(
        0, 4, certificate.data(), static_cast<DWORD>(certificate.size()));
  };
  scenario.rules = {{"CertOpenStore", 1, Fails()},
                    {"CertCreateCertificateContext", 1, Fails()},
                    {"CertEnumCertificatesInStore", 0, GoesOn()},
                    {"CertCompareCertificate", 0, GoesOn()},
                    {"CertDuplicateCertificateContext", 1, GoesOn()},
                    {"CertDeleteCertificateFromStore", 1, GoesOn()}};
  // The two stand in the registry's order, which is that of their hashes.
  const bool isFirst = [&] {
    scenario.prepare();
    const UniqueCertStore<0> store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY"));
    const bool first = Encodings(store.Get()).at(0) == certificate;
    CountMine(true);
    return first;
  }();
  count = {{"", 1},
           {"CertOpenStore 1", 2},
           {"CertCreateCertificateContext 1", 2},
           {"CertEnumCertificatesInStore 1", 2},
           {"CertEnumCertificatesInStore 2", isFirst ? 1u : 2u},
           {isFirst ? "CertCompareCertificate 1" : "CertCompareCertificate 2", 2},
           {"CertDuplicateCertificateContext 1", 2},
           {"CertDeleteCertificateFromStore 1", 2}};
  log = {{"CertOpenStore 1",
          {"DelOtherCert : CertOpenStore error = 5a5a.", "SetOtherCert : Error = 5a5a."}},
         {"CertCreateCertificateContext 1",
          {"DelOtherCert : CertCreateCertificateContext error = 5a5a.",
           "SetOtherCert : Error = 5a5a."}},
         {"CertDuplicateCertificateContext 1",
          {"DelOtherCert : CertDuplicateCertificateContext error = 5a5a."}},
         {"CertDeleteCertificateFromStore 1",
          {"DelOtherCert : CertDeleteCertificateFromStore error = 5a5a."}}};
  EXPECT_LT(0, loop.Run(scenario));
}

// The log's own calls: the line is written whatever fails.
TEST_F(AnomalySystemStores, TheLogOfARefusal) {
  Scenario scenario = Start("SetOtherCert, logging a refusal");
  const Octets garbage = {0x30, 0x03, 0x02, 0x01, 0x05};
  scenario.call = [&] {
    return Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("SetOtherCert")(
        0, 4, garbage.data(), static_cast<DWORD>(garbage.size()));
  };
  scenario.result = FALSE;
  scenario.rules = {{"CertOpenStore", 1, Fails()},
                    {"CertAddEncodedCertificateToStore", 1, Fails()},
                    // The memory of what is thrown.
                    {"malloc", 1, GoesOn()},
                    {"GetTempPathA", 1, GoesOn()},
                    {"LockFileEx", 1, GoesOn()}};
  scenario.check = [](const FailurePoint* point, long) {
    const Lines messages = LogMessages();
    if (AnomalyLoop::CurrentManner() > Manner::kThrowsCode && point != nullptr &&
        !IsRelease(*point)) {
      EXPECT_THAT(messages, testing::IsEmpty());
      return;
    }
    ASSERT_THAT(messages, testing::SizeIs(1));
    const bool injected = point != nullptr && point->function.starts_with("Cert") &&
                          point->function != "CertCloseStore";
    EXPECT_THAT(messages[0], testing::StartsWith(injected ? "SetOtherCert : Error = 5a5a."
                                                          : "SetOtherCert : Error = 8009310"));
  };
  EXPECT_LT(0, loop.Run(scenario));
}

}  // namespace
}  // namespace zarext::test
