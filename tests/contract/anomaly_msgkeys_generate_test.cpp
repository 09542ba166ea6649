// The exports that generate content-encryption keys, with each of their calls into the platform
// failing.
#include "contract/anomaly_msgkeys_fixture.h"

namespace zarext::test {
namespace {

// What stood in the record when the call came back.
class AnomalyGenerateForMessage : public AnomalyMessageKeys {
 protected:
  Scenario Start(const char* name, bool ownAllocator) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [this, ownAllocator] {
      info = {};
      info.cbSize = sizeof info;
      info.ContentEncryptionAlgorithm = contentAlgorithm;
      info.cRecipients = 1;
      info.rgCmsRecipients = &first;
      info.dwFlags = 7;
      info.cbContentEncryptKey = 3;
      info.pfnAlloc = ownAllocator ? &CallersAllocate : nullptr;
    };
    scenario.call = [this] {
      return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>(
          "ZarMsgGenContentEncryptKey")(&info, 0, nullptr);
    };
    scenario.release = [this, ownAllocator] {
      if (info.hContentEncryptKey != 0) CryptDestroyKey(info.hContentEncryptKey);
      // Nobody has the handle of the recipient's key.
      provider.ForgetKeys();
      if (info.hCryptProv != 0) CryptReleaseContext(info.hCryptProv, 0);
      if (ownAllocator) {
        CallersFree(info.pbContentEncryptKey);
      } else {
        LocalFree(info.pbContentEncryptKey);
      }
    };
    scenario.lines = {
        // One text in two parts. NOLINTNEXTLINE(bugprone-suspicious-missing-comma)
        "EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = "
        "1.3.6.1.4.1.32473.1.2.4.",
        "EXT : ZarMsgGenContentEncryptKey : dwEncryptFlags = 0, dwFlags=7.",
        "EXT : ZarMsgGenContentEncryptKey : hContentEncryptKey = 0, hCryptProv=0.",
        "EXT : ZarMsgGenContentEncryptKey : cRecipients = 1.",
        "EXT : ZarMsgGenContentEncryptKey : rgCmsRecipients.dwRecipientChoice = 1.",
        "EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_TRANS_RECIPIENT = 1.2.643.2.2.19."};
    scenario.check = [this](const FailurePoint* point, long) { CheckRecord(point); };
    return scenario;
  }

  // Step by step, each stays when a later one fails.
  void CheckRecord(const FailurePoint* point) const {
    const std::vector<std::string> steps = {"CryptAcquireContextA", "CryptGenKey", "CryptImportKey",
                                            "alloc", "CryptExportKey"};
    std::string name = point == nullptr ? "" : point->function;
    if (name == "LocalAlloc" || name == "pfnAlloc") name = "alloc";
    const auto done = std::find(steps.begin(), steps.end(), name) - steps.begin();
    EXPECT_EQ(done > 0, info.hCryptProv != 0);
    EXPECT_EQ(done > 0 ? 0x8000u : 7u, info.dwFlags);
    EXPECT_EQ(done > 1, info.hContentEncryptKey != 0);
    EXPECT_EQ(done > 3, info.pbContentEncryptKey != nullptr);
    EXPECT_EQ(done > 4 ? 60u : 3u, info.cbContentEncryptKey);
  }

  CMSG_CONTENT_ENCRYPT_INFO info = {};
};

TEST_F(AnomalyGenerateForMessage, ZarMsgGenContentEncryptKey) {
  const std::string own = "EXT : ZarMsgGenContentEncryptKey : ";
  for (const bool ownAllocator : {false, true}) {
    Scenario scenario =
        Start(ownAllocator ? "ZarMsgGenContentEncryptKey, pfnAlloc" : "ZarMsgGenContentEncryptKey",
              ownAllocator);
    const std::string block = ownAllocator ? "caller's block" : "local block";
    scenario.left = {{"provider", 1}, {"key", 2}, {block, 1}};
    scenario.rules = {
        Stop("CryptAcquireContextA", 1, Stops(6, own + "CryptAcquireContext = 5a5a.")),
        Stop("CryptGenKey", 1, Stops(6, own + "CryptGenKey = 5a5a.", {{"provider", 1}})),
        Stop("CryptImportKey", 1,
             Stops(6, own + "CryptImportKey = 5a5a.", {{"provider", 1}, {"key", 1}})),
        Refused(ownAllocator ? "pfnAlloc" : "LocalAlloc", 1, {{"provider", 1}, {"key", 2}}),
        Stop("CryptExportKey", 1,
             Stops(6, own + "CryptExportKey = 5a5a.", {{"provider", 1}, {"key", 2}, {block, 1}}))};
    loop.Run(scenario);
  }
}

TEST_F(AnomalyGenerateForMessage, WithAProvider) {
  Scenario scenario = Start("ZarMsgGenContentEncryptKey, hCryptProv", false);
  const HCRYPTPROV context = Context();
  scenario.prepare = [this, context] {
    info = {};
    info.cbSize = sizeof info;
    info.ContentEncryptionAlgorithm = contentAlgorithm;
    info.hCryptProv = context;
  };
  scenario.release = [this] {
    if (info.hContentEncryptKey != 0) CryptDestroyKey(info.hContentEncryptKey);
    EXPECT_TRUE(provider.OpenKeys().empty());
  };
  scenario.outputs = [this] {
    return std::vector<std::span<BYTE>>{{reinterpret_cast<BYTE*>(&info), sizeof info}};
  };
  scenario.check = nullptr;
  scenario.lines = {
      "EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
      "EXT : ZarMsgGenContentEncryptKey : dwEncryptFlags = 0, dwFlags=0.",
      "EXT : ZarMsgGenContentEncryptKey : hContentEncryptKey = 0, hCryptProv=*.",
      "EXT : ZarMsgGenContentEncryptKey : cRecipients = 0."};
  scenario.left = {{"key", 1}};
  scenario.rules = {
      {"CryptGetProvParam", 1,
       Stops(4, "EXT : ZarMsgGenContentEncryptKey : CryptGetProvParam error = 5a5a.")},
      {"CryptGenKey", 1, Stops(4, "EXT : ZarMsgGenContentEncryptKey : CryptGenKey = 5a5a.")}};
  loop.Run(scenario);
}

TEST_F(AnomalyMessageKeys, ZarGenEncryptKey) {
  const std::string own = "EXT : ZarGenEncryptKey : ";
  HCRYPTPROV context = 0;
  HCRYPTKEY key = 0;
  BYTE* parameters = nullptr;
  DWORD size = 0;
  for (const bool ownAllocator : {false, true}) {
    for (const bool ownProvider : {false, true}) {
      Scenario scenario;
      scenario.name = std::string("ZarGenEncryptKey") + (ownProvider ? ", *phCryptProv" : "") +
                      (ownAllocator ? ", pfnAlloc" : "");
      scenario.prepare = [&] {
        context = ownProvider ? Context() : 0;
        key = 0;
        parameters = nullptr;
        size = 0xA5;
      };
      scenario.call = [&] {
        return Export<BOOL WINAPI(HCRYPTPROV*, CRYPT_ALGORITHM_IDENTIFIER*, void*,
                                  CERT_PUBLIC_KEY_INFO*, PFN_CMSG_ALLOC, HCRYPTKEY*, BYTE**,
                                  DWORD*)>("ZarGenEncryptKey")(
            &context, &contentAlgorithm, nullptr, &keyInfo,
            ownAllocator ? &CallersAllocate : nullptr, &key, &parameters, &size);
      };
      scenario.release = [&] {
        if (key != 0) CryptDestroyKey(key);
        EXPECT_TRUE(provider.OpenKeys().empty());
        if (!ownProvider && context != 0) CryptReleaseContext(context, 0);
        if (ownAllocator) {
          CallersFree(parameters);
        } else {
          LocalFree(parameters);
        }
      };
      scenario.outputs = [&] {
        return std::vector<std::span<BYTE>>{{reinterpret_cast<BYTE*>(&parameters), 8},
                                            {reinterpret_cast<BYTE*>(&size), 4}};
      };
      scenario.lines = {own + "Algorithm = 1.3.6.1.4.1.32473.1.4.4.",
                        own + "CryptAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
                        own + "Flags = 0, tempAlg = 681f."};
      const std::string block = ownAllocator ? "caller's block" : "local block";
      // A context that was acquired stays with the caller, and so does the generated key. The
      // block of a wrap that fails is lost.
      Leftovers acquired;
      if (!ownProvider) acquired["provider"] = 1;
      Leftovers generated = acquired;
      generated["key"] = 1;
      Leftovers all = generated;
      all[block] = 1;
      scenario.left = all;
      scenario.rules = {
          {"CryptAcquireContextA", 1, Stops(3, own + "CryptAcquireContext = 5a5a.")},
          {"CryptGetProvParam", 1, Stops(3, own + "CryptGetProvParam error = 5a5a.")},
          {"CryptGenKey", 1, Stops(3, own + "CryptGenKey = 5a5a.", acquired)},
          {"CryptImportKey", 1, Stops(3, own + "CryptImportKey = 5a5a.", generated)},
          {ownAllocator ? "pfnAlloc" : "LocalAlloc", 1, StopsSilently(kNoMemory, generated)},
          {"CryptExportKey", 1, Stops(3, own + "CryptExportKey = 5a5a.", all)}};
      loop.Run(scenario);
    }
  }
}

}  // namespace
}  // namespace zarext::test
