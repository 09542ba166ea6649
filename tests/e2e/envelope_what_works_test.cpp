// The table "Enveloped messages: what works" of docs/reference.md, case by case.
#include <array>
#include <functional>
#include <stdexcept>

#include "e2e/envelope_fixture.h"
#include "support/certificates.h"
#include "support/framework_patches/framework_patches.h"
#include "support/message_gaps.h"
#include "support/module_calls.h"
#include "support/prepared_process.h"
#include "support/provider_handle_as_key.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;

constexpr char kAes128[] = "2.16.840.1.101.3.4.1.2";
constexpr char kAes256[] = "2.16.840.1.101.3.4.1.42";
constexpr char kBlockCipher[] = "1.3.6.1.4.1.32473.1.2.4";
constexpr char kSecondBlockCipher[] = "1.3.6.1.4.1.32473.1.20.1";
constexpr char kGenerate[] = "CryptMsgDllGenContentEncryptKey";
constexpr char kImport[] = "CryptMsgDllImportKeyTrans";
constexpr char kNationalOid[] = "1.2.398.3.10.1.4.1.1.1";

// The module's own registration, and what only these tests need: information records for content
// algorithms that the module does not register, and where the platform is not Windows' the import
// function bound by the content algorithm as well, and for AES-128 a record with the ALG_ID of
// Windows' own.
void RegisterModule() {
  RegisterInThisProcess(test::Export<HRESULT WINAPI()>("DllRegisterServer"));
  if (ContentAlgorithmIsUnknown(kAes128)) {
    RegisterOidInfo(kAes128, 2, L"AES-128-CBC", 0x660E);
  }
  RegisterOidInfo(kSecondBlockCipher, 2, L"1.3.6.1.4.1.32473.1.20.1", 0x6620);
  if (DispatchOfImport().byContent) {
    for (const char* oid : {kAes128, kBlockCipher, kSecondBlockCipher}) {
      BindOidFunction(kImport, oid, "ZarMsgImportKeyTrans");
    }
  }
}
const PreparedProcess prepared(&RegisterModule);

void RemoveBinding(const char* function, const char* oid) {
  const std::string path = std::string("SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 1\\") +
                           function + "\\" + oid;
  if (RegDeleteKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), KEY_WOW64_64KEY, 0) != ERROR_SUCCESS) {
    throw std::runtime_error("cannot delete " + path);
  }
}

// What install.md advises, for the life of this object; and on the receiving side the binding that
// Wine needs.
class Aes256NotBound {
 public:
  Aes256NotBound() { RemoveBinding(kGenerate, kAes256); }
  ~Aes256NotBound() { BindOidFunction(kGenerate, kAes256, "ZarMsgGenContentEncryptKey"); }
  Aes256NotBound(const Aes256NotBound&) = delete;
  Aes256NotBound& operator=(const Aes256NotBound&) = delete;
};
class ImportBound {
 public:
  explicit ImportBound(const char* oid) : oid_(oid) {
    BindOidFunction(kImport, oid_, "ZarMsgImportKeyTrans");
  }
  ~ImportBound() { RemoveBinding(kImport, oid_); }
  ImportBound(const ImportBound&) = delete;
  ImportBound& operator=(const ImportBound&) = delete;

 private:
  const char* oid_;
};

class WhatWorks : public EnvelopeTest {
 protected:
  // The message goes from the sender to the recipient and back into plain text.
  void ExpectPassage(const char* contentOid) {
    const auto certificate = issuer.Certify(recipient, kExchangeOid);
    ASSERT_TRUE(Encrypt(contentOid, sender.Provider(), {certificate.Get()})) << GetLastError();
    EXPECT_FALSE(MessageHolds(content));
    const Message received(message);
    ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
    EXPECT_EQ(content, received.Content());
  }

  // Encryption fails with 87 (whatever the module reports, as Wine's clean-up leaves that) behind
  // this line.
  void ExpectRefusal(const char* contentOid, HCRYPTPROV provider,
                     const UniqueCertContext& certificate, const char* line) {
    SCOPED_TRACE(contentOid);
    TraceCapture trace;
    EXPECT_FALSE(Encrypt(contentOid, provider, {certificate.Get()}));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(line, trace.Messages().back());
  }
};

// The module is bound to three content algorithms and generates for one of them; for that one the
// platform does not take the provider's handle for a key.
TEST_F(WhatWorks, NoneOfTheBoundContentAlgorithmsReachesAKeyTransportRecipient) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  ExpectRefusal(kBlockCipher, sender.Provider(), certificate,
                "EXT : ZarMsgGenContentEncryptKey : CryptExportKey = 57.");
  for (const char* oid : {"2.16.840.1.101.3.4.1.42", "1.2.643.2.2.21"}) {
    ExpectRefusal(oid, sender.Provider(), certificate,
                  "EXT : ZarMsgGenContentEncryptKey : pszObjId error = 80090008.");
  }
}

// The framework has the provider generate the key; the module wraps and unwraps it.
TEST_F(WhatWorks, ContentAlgorithmsThatAreNotBoundReachTheRecipient) {
  ExpectPassage(kAes128);
  ExpectPassage(kSecondBlockCipher);
}

// Without the binding AES-256 is one of these.
TEST_F(WhatWorks, Aes256WithoutItsBindingReachesTheRecipient) {
  const Aes256NotBound notBound;
  const ImportBound importBound(kAes256);
  ExpectPassage(kAes256);
}

// While AES-256 is bound, no other program can use it either: here for an RSA recipient and with
// the platform's own provider. The command of install.md ends that.
TEST_F(WhatWorks, ABoundAes256IsRefusedToThePlatformsOwnProviderToo) {
  constexpr char kContainer[] = "zarext-test-platform";
  CryptAcquireContextA(Context().Out(), kContainer, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                       CRYPT_DELETEKEYSET);
  Context platform;
  Must(CryptAcquireContextA(platform.Out(), kContainer, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                            CRYPT_NEWKEYSET),
       "CryptAcquireContext");
  Generate(platform, AT_KEYEXCHANGE, 1024U << 16U);
  const auto certificate = issuer.Certify(SubjectKey::Rsa(platform, AT_KEYEXCHANGE));
  ExpectRefusal(kAes256, platform.Get(), certificate,
                "EXT : ZarMsgGenContentEncryptKey : pszObjId error = 80090008.");
  TraceCapture trace;
  {
    const Aes256NotBound notBound;
    ASSERT_TRUE(Encrypt(kAes256, platform.Get(), {certificate.Get()})) << GetLastError();
  }
  // Reading is not concerned.
  const Message received(message);
  ASSERT_TRUE(received.Decrypt(platform.Get())) << GetLastError();
  EXPECT_EQ(content, received.Content());
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

// Where Wine's record ends it keeps xmm6 of its caller, where a longer record would have the
// wrapped key's pointer and length.
[[gnu::noinline]] std::array<std::uint64_t, 2> RegisterAcross(const std::function<void()>& call) {
  std::array<std::uint64_t, 2> kept = {0x1111111111111111, 0x2222222222222222};
  asm volatile("movdqu %0, %%xmm6" : : "m"(kept) : "xmm6");
  call();
  asm volatile("movdqu %%xmm6, %0" : "=m"(kept) : :);
  return kept;
}

TEST_F(WhatWorks, ARegisterOfTheCallerStaysAsItIs) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const auto kept = RegisterAcross(
      [&] { EXPECT_FALSE(Encrypt(kBlockCipher, sender.Provider(), {certificate.Get()})); });
  EXPECT_EQ(0x1111111111111111u, kept[0]);
  EXPECT_EQ(0x2222222222222222u, kept[1]);
}

TEST_F(WhatWorks, WithoutRecipientsNobodyCanReadIt) {
  TraceCapture trace;
  ASSERT_TRUE(Encrypt(kBlockCipher, sender.Provider(), {})) << GetLastError();
  EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : cRecipients = 0.", trace.Messages().back());
  const Message received(message);
  EXPECT_FALSE(received.Decrypt(recipient.Provider()));
  EXPECT_EQ(0x80091008u, GetLastError());
}

// Behind the hook the provider gets its own context handle as the key to export, and the
// development provider takes that for the key generated last.
TEST_F(WhatWorks, BehindTheHookTheModuleGeneratesTheContentKey) {
  const ProviderHandleAsKey providerHandleAsKey;
  TraceCapture trace;
  ExpectPassage(kBlockCipher);
  const auto messages = trace.Messages();
  ASSERT_LT(20u, messages.size());
  const std::string generating = "EXT : ZarMsgGenContentEncryptKey : ";
  EXPECT_EQ(generating + "ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.", messages[0]);
  EXPECT_EQ(generating + "dwEncryptFlags = 0, dwFlags=0.", messages[1]);
  EXPECT_EQ(generating + "cRecipients = 1.", messages[3]);
  EXPECT_EQ(generating + "rgCmsRecipients.dwRecipientChoice = 1.", messages[4]);
  EXPECT_EQ(generating + "CMSG_KEY_TRANS_RECIPIENT = 1.3.6.1.4.1.32473.1.8.8.", messages[5]);
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : EncryptedKeySize=152.", messages[20]);
}

using GenContentEncryptKey = BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*);
using ExportKeyTrans = BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*,
                                   CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                                   CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*);
using ImportKeyTrans = BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                                   DWORD, void*, HCRYPTKEY*);

// One call of the CMS forms for one key-transport recipient, as a framework makes them that knows
// all kinds of recipients.
class CmsCall {
 public:
  CmsCall(const Party& sender, Octets publicKey, const char* keyOid)
      : publicKey_(std::move(publicKey)) {
    keyTrans.cbSize = sizeof keyTrans;
    keyTrans.KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(keyOid);
    keyTrans.RecipientPublicKey = {static_cast<DWORD>(publicKey_.size()), publicKey_.data(), 0};
    recipients[0].dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    recipients[0].pKeyTrans = &keyTrans;
    info.cbSize = sizeof info;
    info.hCryptProv = sender.Provider();
    info.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(kBlockCipher);
    info.cRecipients = 1;
    info.rgCmsRecipients = recipients;
    output.cbSize = sizeof output;
  }
  ~CmsCall() {
    CryptDestroyKey(info.hContentEncryptKey);
    LocalFree(output.EncryptedKey.pbData);
  }
  CmsCall(const CmsCall&) = delete;
  CmsCall& operator=(const CmsCall&) = delete;

  // The first recipient becomes a mail list, the key-transport one the second.
  void PutMailListFirst() {
    recipients[1] = recipients[0];
    recipients[0].dwRecipientChoice = CMSG_MAIL_LIST_RECIPIENT;
    recipients[0].pMailList = &mailList_;
    info.cRecipients = 2;
    output.dwRecipientIndex = 1;
  }

  BOOL Generate() {
    return test::Export<GenContentEncryptKey>("ZarMsgGenContentEncryptKey")(&info, 0, nullptr);
  }
  // A key for export alone.
  void UseKeyOf(const Party& sender) {
    Must(CryptGenKey(sender.Provider(), 0x681F, CRYPT_EXPORTABLE, &info.hContentEncryptKey),
         "CryptGenKey");
  }
  BOOL Export() {
    SetLastError(0);
    return test::Export<ExportKeyTrans>("ZarMsgExportKeyTrans")(&info, &keyTrans, &output, 0,
                                                                nullptr);
  }
  Key ImportAs(const Party& party) {
    CMSG_KEY_TRANS_RECIPIENT_INFO received = {};
    received.KeyEncryptionAlgorithm = keyTrans.KeyEncryptionAlgorithm;
    received.EncryptedKey = output.EncryptedKey;
    CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = party.Provider();
    para.dwKeySpec = AT_KEYEXCHANGE;
    para.pKeyTrans = &received;
    Key key;
    Must(test::Export<ImportKeyTrans>("ZarMsgImportKeyTrans")(&info.ContentEncryptionAlgorithm,
                                                              &para, 0, nullptr, key.Out()),
         "ZarMsgImportKeyTrans");
    return key;
  }

  CMSG_CONTENT_ENCRYPT_INFO info = {};
  CMSG_RECIPIENT_ENCODE_INFO recipients[2] = {};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};

 private:
  Octets publicKey_;
  CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO mailList_ = {};
};

// Behind a mail list the generation wraps nothing, and the key-transport recipients get theirs.
TEST_F(WhatWorks, AMailListInFrontLetsTheModuleGenerate) {
  CmsCall call(sender, recipient.PublicBlob(), kExchangeOid);
  call.PutMailListFirst();
  ASSERT_TRUE(call.Generate()) << GetLastError();
  EXPECT_EQ(nullptr, call.info.pbContentEncryptKey);
  ASSERT_TRUE(call.Export()) << GetLastError();
  const Octets encrypted = test::Encrypt(call.info.hContentEncryptKey, content);
  EXPECT_EQ(content, Decrypt(call.ImportAs(recipient).Get(), encrypted));
}

// Head of 12 octets and an encrypted key of 512: more than the block of 512. What the key is does
// not matter to the wrapping; it is as long as one of 4,096 bits.
TEST_F(WhatWorks, Rsa4096RecipientsAreRefused) {
  const Party rsaSender("rsa-sender", 0xA050, 1);
  Octets blob = {0x06, 0x02, 0, 0, 0x54, 0xA0, 0, 0, 'R', 'S', 'A', '1', 0, 0x10, 0, 0, 1, 0, 1, 0};
  blob.resize(20 + 512, 0xD5);
  CmsCall call(rsaSender, blob, "1.3.6.1.4.1.32473.1.8.24");
  call.UseKeyOf(rsaSender);
  TraceCapture trace;
  EXPECT_FALSE(call.Export());
  EXPECT_EQ(234u, GetLastError());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : CryptExportKey = ea.", trace.Messages().back());
  // The older form wraps at once.
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.3.6.1.4.1.32473.1.3.4");
  info.PublicKey = {static_cast<DWORD>(blob.size()), blob.data(), 0};
  HCRYPTPROV provider = rsaSender.Provider();
  Key key;
  EXPECT_FALSE(test::Export<GenEncryptKey>("ZarGenEncryptKey")(
      &provider, &call.info.ContentEncryptionAlgorithm, nullptr, &info, nullptr, key.Out(), nullptr,
      nullptr));
  EXPECT_EQ(234u, GetLastError());
  EXPECT_EQ("EXT : ZarGenEncryptKey : CryptExportKey = ea.", trace.Messages().back());
}

// A certificate of the national arc holds its key as an OCTET STRING, which imports and cannot be
// enveloped for, or as the provider's blob, with which it is the other way round.
TEST_F(WhatWorks, NationalCertificatesServeOneOfTheTwoPurposes) {
  const Party national("national", 0xA055);
  const Key key = UserKey(national.Own(), AT_KEYEXCHANGE);
  for (const bool asOctetString : {true, false}) {
    SCOPED_TRACE(asOctetString);
    const auto certificate = issuer.Certify(asOctetString ? SubjectKey::National(kNationalOid, key)
                                                          : SubjectKey::Makers(kNationalOid, key));
    CERT_PUBLIC_KEY_INFO& info = certificate.Get()->pCertInfo->SubjectPublicKeyInfo;
    Key imported;
    const DWORD code = CodeOf(
        CryptImportPublicKeyInfo(sender.Provider(), X509_ASN_ENCODING, &info, imported.Out()));
    EXPECT_EQ(asOctetString ? 0u : 0x8009000Eu, code);
    TraceCapture trace;
    EXPECT_EQ(!asOctetString, Encrypt(kAes128, sender.Provider(), {certificate.Get()}) != FALSE);
    if (asOctetString) {
      EXPECT_EQ("EXT : ZarMsgExportKeyTrans : CryptImportKey = 8009000a.", trace.Messages().back());
      continue;
    }
    const Message received(message);
    ASSERT_TRUE(received.Decrypt(national.Provider())) << GetLastError();
    EXPECT_EQ(content, received.Content());
  }
}

}  // namespace
}  // namespace zarext::test
