// The exports of content-encryption keys, with each of their calls into the platform failing.
#include "contract/anomaly_loop.h"
#include "contract/msgkeys_fixture.h"

namespace zarext::test {
namespace {

constexpr auto kNoMemory = static_cast<DWORD>(NTE_NO_MEMORY);
constexpr char kExchangeKey[] = "1.3.6.1.4.1.32473.1.4.4";
constexpr char kContent[] = "1.3.6.1.4.1.32473.1.2.4";

// A caller's allocator whose refusals count as failure points.
void* WINAPI CallersAllocate(size_t size) {
  if (AnomalyLoop::Fails("pfnAlloc")) return nullptr;
  void* const block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
  AnomalyLoop::Book("caller's block", 1);
  return block;
}
void CallersFree(void* block) {
  if (block != nullptr) HeapFree(GetProcessHeap(), 0, block);
}

class AnomalyMessageKeys : public MessageKeysTest {
 protected:
  AnomalyMessageKeys() {
    provider.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
    provider.blobs[PUBLICKEYBLOB] = Sequence(80, 0x80);
    keyInfo.Algorithm.pszObjId = OidText(kExchangeKey);
    keyInfo.PublicKey = {static_cast<DWORD>(publicKey.size()), publicKey.data(), 0};
    recipientInfo.cbSize = sizeof recipientInfo;
    recipientInfo.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.19");
    recipientInfo.RecipientPublicKey = keyInfo.PublicKey;
    first.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    first.pKeyTrans = &recipientInfo;
    contentAlgorithm.pszObjId = OidText(kContent);
  }

  static Rule Stop(const char* function, int occurrence, const Effect& effect) {
    Rule rule{function, occurrence, effect};
    rule.effect.writes = true;
    return rule;
  }
  // A refused allocation: no line, and these left.
  static Rule Refused(const char* function, int occurrence, const Leftovers& left) {
    return Stop(function, occurrence, StopsSilently(kNoMemory, left));
  }

  ProviderHandleAsKey handleAsKey;
  AnomalyLoop loop{Module()};
  Octets publicKey = {0x06, 0x02, 0xAB, 0xCD};
  CERT_PUBLIC_KEY_INFO keyInfo = {};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO recipientInfo = {};
  CMSG_RECIPIENT_ENCODE_INFO first = {};
  CRYPT_ALGORITHM_IDENTIFIER contentAlgorithm = {};
};

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

TEST_F(AnomalyMessageKeys, ZarMsgExportKeyTrans) {
  const std::string own = "EXT : ZarMsgExportKeyTrans : ";
  const HCRYPTPROV context = Context();
  HCRYPTKEY contentKey = 0;
  CryptGenKey(context, 0x681F, CRYPT_EXPORTABLE, &contentKey);
  CMSG_CONTENT_ENCRYPT_INFO info = {};
  info.cbSize = sizeof info;
  info.hCryptProv = context;
  info.hContentEncryptKey = contentKey;
  info.ContentEncryptionAlgorithm = contentAlgorithm;
  info.cRecipients = 1;
  info.rgCmsRecipients = &first;
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
  for (const bool ownAllocator : {false, true}) {
    info.pfnAlloc = ownAllocator ? &CallersAllocate : nullptr;
    Scenario scenario;
    scenario.name = ownAllocator ? "ZarMsgExportKeyTrans, pfnAlloc" : "ZarMsgExportKeyTrans";
    scenario.prepare = [&] {
      output = {};
      output.cbSize = sizeof output;
      output.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.20");
    };
    scenario.call = [&] {
      return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                                CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*)>(
          "ZarMsgExportKeyTrans")(&info, &recipientInfo, &output, 0, nullptr);
    };
    scenario.release = [&] {
      EXPECT_THAT(provider.OpenKeys(), testing::SizeIs(1));
      if (ownAllocator) {
        CallersFree(output.EncryptedKey.pbData);
      } else {
        LocalFree(output.EncryptedKey.pbData);
      }
    };
    scenario.outputs = [&] {
      return std::vector<std::span<BYTE>>{{reinterpret_cast<BYTE*>(&info), sizeof info},
                                          {reinterpret_cast<BYTE*>(&output), sizeof output}};
    };
    scenario.lines = {own + "ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
                      own + "dwEncryptFlags = 0, dwFlags=0, pfnAlloc=*.",
                      own + "hContentEncryptKey = *, hCryptProv=*.",
                      own + "rgCmsRecipients.dwRecipientChoice = 1.",
                      own + "pKeyTrans->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
                      own + "pKeyTrans->hCryptProv = 0.",
                      own + "pKeyTrans->RecipientPublicKeySize = 4 (*).",
                      own + "pKeyTransEncodeInfo->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
                      own + "pKeyTransEncodeInfo->hCryptProv=0.",
                      own + "pKeyTransEncodeInfo->RecipientId.dwIdChoice = 0.",
                      own + "pKeyTransEncodeInfo->RecipientPublicKeySize = 4 (*).",
                      own + "pKeyTransEncryptInfo->dwFlags = 0, dwRecipientIndex=0.",
                      own + "pKeyTransEncryptInfo->KeyEncryptionAlgorithm=1.2.643.2.2.20.",
                      own + "pKeyTransEncryptInfo->EncryptedKeySize=0.",
                      own + "EncryptedKeySize=140."};
    // Without the sender's blob.
    const auto withoutSender = [&](const std::string& line) {
      Lines lines = scenario.lines;
      lines.insert(lines.begin() + 11, line);
      lines.back() = own + "EncryptedKeySize=60.";
      return GoesOnAs(lines);
    };
    const std::string block = ownAllocator ? "caller's block" : "local block";
    const char* const allocate = ownAllocator ? "pfnAlloc" : "LocalAlloc";
    scenario.left = {{block, 2}};
    scenario.rules = {
        {"CryptImportKey", 1, Stops(11, own + "CryptImportKey = 5a5a.")},
        {"CryptGetUserKey", 1, withoutSender(own + "CryptGetUserKey = 5a5a.")},
        {"CryptSetProvParam", 1, GoesOn()},
        {"CryptExportKey", 1, withoutSender(own + "CryptExportKey = 5a5a.")},
        {allocate, 1, StopsSilently(kNoMemory)},
        // The descriptor is never given back.
        {allocate, 2, StopsSilently(kNoMemory, {{block, 1}})},
        {"CryptExportKey", 2, Stops(14, own + "CryptExportKey = 5a5a.", {{block, 2}})}};
    loop.Run(scenario);
  }
  CryptDestroyKey(contentKey);
}

TEST_F(AnomalyMessageKeys, ZarExportEncryptKey) {
  const HCRYPTPROV context = Context();
  HCRYPTKEY contentKey = 0;
  CryptGenKey(context, 0x681F, CRYPT_EXPORTABLE, &contentKey);
  Octets data;
  for (const bool sizeOnly : {false, true}) {
    Scenario scenario;
    scenario.name = sizeOnly ? "ZarExportEncryptKey, size query" : "ZarExportEncryptKey";
    scenario.prepare = [&] { data.assign(100, 0xA5); };
    scenario.call = [&] {
      DWORD size = 100;
      return Export<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, CERT_PUBLIC_KEY_INFO*, BYTE*, DWORD*)>(
          "ZarExportEncryptKey")(context, contentKey, &keyInfo, sizeOnly ? nullptr : data.data(),
                                 &size);
    };
    scenario.release = [&] { EXPECT_THAT(provider.OpenKeys(), testing::SizeIs(1)); };
    scenario.outputs = [&] { return std::vector<std::span<BYTE>>{data}; };
    scenario.lines = {"EXT : ZarExportEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.4.4."};
    scenario.rules = {
        {"CryptImportKey", 1, Stops(1, "EXT : ZarExportEncryptKey : CryptImportKey = 5a5a.")},
        {"CryptExportKey", 1,
         Stops(1, sizeOnly ? "EXT : ZarExportEncryptKey : CryptExportKey 1 = 5a5a."
                           : "EXT : ZarExportEncryptKey : CryptExportKey 2 = 5a5a.")}};
    loop.Run(scenario);
  }
  CryptDestroyKey(contentKey);
}

TEST_F(AnomalyMessageKeys, ZarMsgImportKeyTrans) {
  const std::string own = "EXT : ZarMsgImportKeyTrans : ";
  Octets encrypted = Sequence(180, 0);
  CMSG_KEY_TRANS_RECIPIENT_INFO keyTrans = {};
  keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.19");
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
  para.cbSize = sizeof para;
  para.hCryptProv = Context();
  para.pKeyTrans = &keyTrans;
  HCRYPTKEY key = 0;
  Scenario scenario;
  scenario.name = "ZarMsgImportKeyTrans";
  scenario.prepare = [&] {
    keyTrans.EncryptedKey = {180, encrypted.data()};
    key = 0;
  };
  scenario.call = [&] {
    return Export<BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*, DWORD,
                              void*, HCRYPTKEY*)>("ZarMsgImportKeyTrans")(&contentAlgorithm, &para,
                                                                          0, nullptr, &key);
  };
  scenario.release = [&] {
    if (key != 0) CryptDestroyKey(key);
    EXPECT_TRUE(provider.OpenKeys().empty());
  };
  scenario.outputs = [&] {
    return std::vector<std::span<BYTE>>{encrypted, {reinterpret_cast<BYTE*>(&key), 8}};
  };
  // Shortened once the sender's key is imported, and then for good.
  scenario.check = [&](const FailurePoint* point, long) {
    const bool withoutSender =
        point != nullptr && point->function == "CryptImportKey" && point->occurrence == 1;
    EXPECT_EQ(withoutSender ? 180u : 100u, keyTrans.EncryptedKey.cbData);
  };
  scenario.lines = {own + "ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
                    own + "hCryptProv=*.",
                    own + "dwKeySpec = 0, dwRecipientIndex=0.",
                    own + "KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
                    own + "RecipientId.dwIdChoice = 0, dwVersion=0.",
                    own + "pKeyTrans->EncryptedKeySize = 180.",
                    own + "CryptImportKey - OK."};
  scenario.left = {{"key", 1}};
  scenario.rules = {{"CryptImportKey", 1, GoesOnWith(6, {own + "CryptImportKey 1 = 5a5a."})},
                    {"CryptImportKey", 2, Stops(6, own + "CryptImportKey = 5a5a.")}};
  loop.Run(scenario);
}

TEST_F(AnomalyMessageKeys, ZarImportEncryptKey) {
  const HCRYPTPROV context = Context();
  Octets encoded = Sequence(60, 0x10);
  CRYPT_ALGORITHM_IDENTIFIER keyAlgorithm = {};
  keyAlgorithm.pszObjId = OidText(kExchangeKey);
  HCRYPTKEY key = 0;
  Scenario scenario;
  scenario.name = "ZarImportEncryptKey";
  scenario.prepare = [&] { key = 0; };
  scenario.call = [&] {
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CRYPT_ALGORITHM_IDENTIFIER*,
                              CRYPT_ALGORITHM_IDENTIFIER*, BYTE*, DWORD, HCRYPTKEY*)>(
        "ZarImportEncryptKey")(context, 1, &contentAlgorithm, &keyAlgorithm, encoded.data(), 60,
                               &key);
  };
  scenario.release = [&] {
    if (key != 0) CryptDestroyKey(key);
    EXPECT_TRUE(provider.OpenKeys().empty());
  };
  scenario.outputs = [&] {
    return std::vector<std::span<BYTE>>{encoded, {reinterpret_cast<BYTE*>(&key), 8}};
  };
  scenario.lines = {"EXT : ZarImportEncryptKey : paiPubKey = 1.3.6.1.4.1.32473.1.4.4.",
                    "EXT : ZarImportEncryptKey : paiEncrypt = 1.3.6.1.4.1.32473.1.2.4."};
  scenario.left = {{"key", 1}};
  scenario.rules = {
      {"CryptImportKey", 1, Stops(2, "EXT : ZarImportEncryptKey : CryptImportKey = 5a5a.")}};
  loop.Run(scenario);
}

}  // namespace
}  // namespace zarext::test
