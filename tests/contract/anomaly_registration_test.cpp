// Registration, and the exports that only trace, with each call into the platform failing.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>

#include "contract/anomaly_loop.h"
#include "contract/anomaly_points.h"
#include "contract/recording_framework.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

constexpr long kUnexpected = static_cast<long>(0x8000FFFF);

class AnomalyRegistration : public testing::Test {
 protected:
  AnomalyRegistration() {
    // The registration functions themselves are reached by their addresses.
    framework.onCall = [this](const std::string& call) {
      const std::string function = call.substr(0, call.find('('));
      const bool isImport = function == "LoadLibraryA" || function == "GetProcAddress" ||
                            function == "FreeLibrary" || function == "GetModuleFileNameA" ||
                            function == "MultiByteToWideChar";
      if (!isImport && AnomalyLoop::Fails(function)) {
        AnomalyLoop::EndFailure();
        framework.FailAt(framework.CallCount() + 1);
      }
    };
  }

  Scenario Start(const char* name) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [this] {
      framework.FailNothing();
      framework.Clear();
    };
    scenario.call = [name] { return Export<HRESULT WINAPI()>(name)(); };
    scenario.release = [this] { EXPECT_EQ(0u, framework.HeldAllocations()); };
    scenario.result = S_OK;
    scenario.thrown = [](const FailurePoint&, Manner, Effect& effect) {
      effect.result = kUnexpected;
      effect.left.reset();
    };
    return scenario;
  }

  // A failure ends the call at once with E_UNEXPECTED.
  static Rule Ends(const char* function, int occurrence = 0, const Leftovers& left = {}) {
    Effect effect;
    effect.result = kUnexpected;
    effect.left = left;
    return {function, occurrence, effect};
  }

  RecordingFramework framework;
  AnomalyLoop loop{Module()};
};

TEST_F(AnomalyRegistration, DllRegisterServer) {
  Scenario scenario = Start("DllRegisterServer");
  scenario.rules = {Ends("LoadLibraryA"), Ends("GetProcAddress"), Ends("CryptRegisterOIDInfo"),
                    Ends("malloc"), Ends("GetModuleFileNameA"), Ends("MultiByteToWideChar"),
                    // The one failure that leaves crypt32 loaded.
                    Ends("CryptRegisterOIDFunction", 1, {{"module", 1}}),
                    Ends("CertRegisterPhysicalStore"), Ends("CryptRegisterOIDFunction")};
  std::vector<std::string> good;
  scenario.check = [&](const FailurePoint* point, long) {
    const auto calls = framework.Calls();
    if (point == nullptr) {
      good = calls;
      EXPECT_EQ(551u, calls.size());
    }
    // Nothing but the release of crypt32 comes behind the failure.
    const auto end = std::mismatch(calls.begin(), calls.end(), good.begin(), good.end()).first;
    EXPECT_TRUE(end == calls.end() || (*end == "FreeLibrary()" && end + 1 == calls.end()));
  };
  EXPECT_EQ(552, loop.Run(scenario));
}

TEST_F(AnomalyRegistration, DllUnregisterServer) {
  Scenario scenario = Start("DllUnregisterServer");
  scenario.rules = {Ends("LoadLibraryA"),
                    Ends("GetProcAddress"),
                    Ends("malloc"),
                    Ends("GetModuleFileNameA"),
                    Ends("MultiByteToWideChar"),
                    {"CertUnregisterPhysicalStore", 0, GoesOn()},
                    {"CryptUnregisterOIDInfo", 0, GoesOn()},
                    {"CryptUnregisterOIDFunction", 0, GoesOn()}};
  scenario.check = [&](const FailurePoint* point, long result) {
    if (point == nullptr || result == S_OK) {
      EXPECT_LE(524u, framework.Calls().size());
    }
  };
  EXPECT_EQ(526, loop.Run(scenario));
}

// No import is left out of the loops by mistake.
TEST(AnomalyPoints, EveryImportIsKnown) {
  EXPECT_THAT(UnknownImports(Module()), testing::IsEmpty());
}

// They call nothing that can fail, so there is nothing to walk.
TEST(AnomalyPassThrough, HasNoFailurePoints) {
  AnomalyLoop loop(Module());
  CERT_INFO info = {};
  char oid[] = "1.2.3";
  info.SignatureAlgorithm.pszObjId = oid;
  struct Case {
    const char* name;
    Lines lines;
  };
  const Case cases[] = {
      {"ZarCertVerifyCTLUsage", {"EXT : ZarCertVerifyCTLUsage : dwSubjectType = *."}},
      {"ZarCertVerifyRevocation",
       {"EXT : ZarCertVerifyRevocation : dwCertEncodingType = 1, cCrlInfo = 0.",
        "EXT : ZarCertVerifyRevocation : Algorithm.pszObjId = 1.2.3."}},
      {"ZarCryptDecodeObject",
       {"EXT : ZarCryptDecodeObject : dwCertEncodingType = 1 (cbEncoded=0)."}},
      {"ZarCryptEncodeObject", {"EXT : ZarCryptEncodeObject : dwCertEncodingType = 1."}},
      {"ZarCryptEncodeObjectEx", {"EXT : ZarCryptEncodeObjectEx : dwCertEncodingType = 1."}},
      {"ZarCryptFormatObject", {"EXT : ZarCryptFormatObject : dwCertEncodingType = 1."}},
  };
  for (const Case& test : cases) {
    Scenario scenario;
    scenario.name = test.name;
    scenario.prepare = [] {};
    scenario.release = [] {};
    scenario.lines = test.lines;
    scenario.call = [&] {
      return Export<BOOL WINAPI(DWORD, const void*, DWORD, DWORD, void*, void*, DWORD, void*,
                                void*)>(test.name)(1, &info, 0, 0, nullptr, nullptr, 0, nullptr,
                                                   nullptr);
    };
    EXPECT_EQ(0, loop.Run(scenario));
  }
  Scenario name;
  name.name = "ZarCryptFindLocalizedName";
  name.prepare = [] {};
  name.release = [] {};
  name.lines = {"EXT : ZarCryptFindLocalizedName : pwszCryptName = M."};
  name.call = [] {
    const auto* const found =
        Export<const char * WINAPI(const wchar_t*)>("ZarCryptFindLocalizedName")(L"MY");
    return static_cast<long>(found != nullptr && *found == '\0');
  };
  EXPECT_EQ(0, loop.Run(name));
}

}  // namespace
}  // namespace zarext::test
