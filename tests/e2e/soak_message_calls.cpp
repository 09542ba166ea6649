// The load test's calls of the functions for message keys.
#include "e2e/soak_worker.h"

namespace zarext::test {
namespace {

// A message for one recipient.
struct Message {
  explicit Message(Octets& bits) {
    keyTrans.KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(kNationalOid);
    keyTrans.RecipientPublicKey = {static_cast<DWORD>(bits.size()), bits.data(), 0};
    recipient.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    recipient.pKeyTrans = &keyTrans;
    info.cbSize = sizeof info;
    info.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(kContentOid);
    info.cRecipients = 1;
    info.rgCmsRecipients = &recipient;
    info.pfnAlloc = &AllocateForSoak;
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
  CMSG_RECIPIENT_ENCODE_INFO recipient = {};
  CMSG_CONTENT_ENCRYPT_INFO info = {};
};

}  // namespace

int SoakWorker::GenerateForMessage() {
  Message message(bits_);
  CMSG_CONTENT_ENCRYPT_INFO& info = message.info;
  if (Sometimes()) info.hCryptProv = context_.Get();
  const char* const function = Sometimes() ? "GenKey" : Sometimes() ? "ExportKey" : "ImportKey";
  const bool fails = Fail(function);
  LastImported() = 0;
  Check(fails, NextFailure().code, [&] {
    return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>(
        "ZarMsgGenContentEncryptKey")(&info, 0, nullptr);
  });
  if (LastImported() != 0) CryptDestroyKey(LastImported());
  if (info.hContentEncryptKey != 0) CryptDestroyKey(info.hContentEncryptKey);
  if (info.dwFlags == 0x8000) CryptReleaseContext(info.hCryptProv, 0);
  return 1;
}

int SoakWorker::Generate() {
  CERT_PUBLIC_KEY_INFO info = Info(kExchangeOid, bits_);
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
  algorithm.pszObjId = const_cast<char*>(kContentOid);
  const bool own = Sometimes();
  HCRYPTPROV provider = own ? context_.Get() : 0;
  HCRYPTKEY key = 0;
  BYTE* parameters = nullptr;
  DWORD size = 0;
  const bool fails = Fail(Sometimes() ? "GenKey" : "ExportKey");
  Check(fails, NextFailure().code, [&] {
    return Export<BOOL WINAPI(HCRYPTPROV*, CRYPT_ALGORITHM_IDENTIFIER*, void*,
                              CERT_PUBLIC_KEY_INFO*, PFN_CMSG_ALLOC, HCRYPTKEY*, BYTE**, DWORD*)>(
        "ZarGenEncryptKey")(&provider, &algorithm, nullptr, &info, &AllocateForSoak, &key,
                            &parameters, &size);
  });
  if (key != 0) CryptDestroyKey(key);
  if (!own && provider != 0) CryptReleaseContext(provider, 0);
  return 1;
}

int SoakWorker::ExportForMessage() {
  Message message(bits_);
  message.info.hCryptProv = context_.Get();
  message.info.hContentEncryptKey = contentKey_;
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
  const bool fails = Fail(Sometimes() ? "ImportKey" : "ExportKey");
  Check(fails, NextFailure().code, [&] {
    return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                              CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*)>("ZarMsgExportKeyTrans")(
        &message.info, &message.keyTrans, &output, 0, nullptr);
  });
  return 1;
}

int SoakWorker::ExportForKey() {
  CERT_PUBLIC_KEY_INFO info = Info(kExchangeOid, bits_);
  const bool fails = Fail(Sometimes() ? "ImportKey" : "ExportKey");
  Check(fails, NextFailure().code, [&] {
    DWORD size = 4096;
    return Export<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, CERT_PUBLIC_KEY_INFO*, BYTE*, DWORD*)>(
        "ZarExportEncryptKey")(context_.Get(), contentKey_, &info, block_.data(), &size);
  });
  return 1;
}

int SoakWorker::ImportEncoded() {
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  content.pszObjId = const_cast<char*>(kContentOid);
  CRYPT_ALGORITHM_IDENTIFIER keyAlgorithm = {};
  keyAlgorithm.pszObjId = const_cast<char*>(kExchangeOid);
  HCRYPTKEY key = 0;
  const bool fails = Fail("ImportKey");
  if (Check(fails, NextFailure().code, [&] {
        return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CRYPT_ALGORITHM_IDENTIFIER*,
                                  CRYPT_ALGORITHM_IDENTIFIER*, BYTE*, DWORD, HCRYPTKEY*)>(
            "ZarImportEncryptKey")(context_.Get(), 1, &content, &keyAlgorithm, wrapped_.data(), 60,
                                   &key);
      })) {
    CryptDestroyKey(key);
  }
  return 1;
}

int SoakWorker::ImportForMessage() {
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  content.pszObjId = const_cast<char*>(kContentOid);
  CMSG_KEY_TRANS_RECIPIENT_INFO keyTrans = {};
  keyTrans.KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(kNationalOid);
  keyTrans.EncryptedKey = {180, wrapped_.data()};
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
  para.cbSize = sizeof para;
  para.hCryptProv = context_.Get();
  para.pKeyTrans = &keyTrans;
  HCRYPTKEY key = 0;
  const bool fails = Fail("ImportKey");
  if (Check(fails, NextFailure().code, [&] {
        return Export<BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                                  DWORD, void*, HCRYPTKEY*)>("ZarMsgImportKeyTrans")(
            &content, &para, 0, nullptr, &key);
      })) {
    CryptDestroyKey(key);
  }
  return 1;
}

}  // namespace zarext::test
