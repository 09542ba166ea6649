// The exports that export and import content-encryption keys, with each of their calls into the
// platform failing.
#include "contract/anomaly_msgkeys_fixture.h"

namespace zarext::test {
namespace {

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
