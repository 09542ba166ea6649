// The older forms, and the CMS forms as an application calls them itself: the framework under test
// has no caller for them.
#include "e2e/envelope_fixture.h"
#include "support/module_calls.h"
#include "support/provider_handle_as_key.h"

namespace zarext::test {
namespace {

constexpr char kContentOid[] = "1.3.6.1.4.1.32473.1.2.4";
constexpr char kKeyOid[] = "1.3.6.1.4.1.32473.1.4.4";

class ContentKeyTest : public ProviderTest {
 protected:
  ContentKeyTest() {
    content.pszObjId = const_cast<char*>(kContentOid);
    keyAlgorithm.pszObjId = const_cast<char*>(kKeyOid);
  }

  // The public key of a party as the older forms take it.
  CERT_PUBLIC_KEY_INFO KeyInfo(Octets& blob) const {
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = keyAlgorithm.pszObjId;
    info.PublicKey = {static_cast<DWORD>(blob.size()), blob.data(), 0};
    return info;
  }

  Key ImportAt(const Party& party, Octets encoded) {
    Key key;
    auto* import = test::Export<ImportEncryptKey>("ZarImportEncryptKey");
    Must(import(party.Provider(), AT_KEYEXCHANGE, &content, &keyAlgorithm, encoded.data(),
                static_cast<DWORD>(encoded.size()), key.Out()),
         "ZarImportEncryptKey");
    return key;
  }

  Party first{"first"};
  Party second{"second"};
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  CRYPT_ALGORITHM_IDENTIFIER keyAlgorithm = {};
  const Octets plain = {'p', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't'};
};

TEST_F(ContentKeyTest, GoesToTwoRecipientsInTheOlderForms) {
  const Party sender("sender");
  Octets firstBlob = first.PublicBlob();
  Octets secondBlob = second.PublicBlob();
  CERT_PUBLIC_KEY_INFO firstInfo = KeyInfo(firstBlob);
  CERT_PUBLIC_KEY_INFO secondInfo = KeyInfo(secondBlob);
  auto* generate = test::Export<GenEncryptKey>("ZarGenEncryptKey");
  auto* exportKey = test::Export<ExportEncryptKey>("ZarExportEncryptKey");
  HCRYPTPROV provider = sender.Provider();
  Key key;
  BYTE* parameters = nullptr;
  DWORD parametersSize = 0;
  ASSERT_TRUE(generate(&provider, &content, nullptr, &firstInfo, nullptr, key.Out(), &parameters,
                       &parametersSize))
      << GetLastError();
  const Octets encrypted = Encrypt(key.Get(), plain);
  EXPECT_NE(plain, encrypted);

  // The parameters are the key as wrapped for the first recipient.
  const Octets wrapped(parameters, parameters + parametersSize);
  LocalFree(parameters);
  EXPECT_EQ(plain, Decrypt(ImportAt(first, wrapped).Get(), encrypted));

  for (const auto& [party, info] :
       {std::pair{&first, &firstInfo}, std::pair{&second, &secondInfo}}) {
    const Octets exported = Fetch("ZarExportEncryptKey", [&, to = info](BYTE* data, DWORD* size) {
      return exportKey(provider, key.Get(), to, data, size);
    });
    const Key imported = ImportAt(*party, exported);
    EXPECT_EQ(plain, Decrypt(imported.Get(), encrypted));
    // It is exportable, so that a recipient can pass it on.
    EXPECT_NE(0u, KeyNumberParam(imported, KP_PERMISSIONS) & CRYPT_EXPORT);
  }
  EXPECT_THROW(ImportAt(second, wrapped), CallFailed);
}

TEST_F(ContentKeyTest, IsGeneratedInTheDefaultContainerForAnExchangeKey) {
  const Party user(nullptr);
  Octets blob = first.PublicBlob();
  CERT_PUBLIC_KEY_INFO info = KeyInfo(blob);
  auto* generate = test::Export<GenEncryptKey>("ZarGenEncryptKey");
  Context acquired;
  Key key;
  ASSERT_TRUE(
      generate(acquired.Out(), &content, nullptr, &info, nullptr, key.Out(), nullptr, nullptr))
      << GetLastError();
  EXPECT_EQ(25u, NumberParam(acquired, PP_PROVTYPE));
  EXPECT_EQ(TextParam(user.Own(), PP_CONTAINER), TextParam(acquired, PP_CONTAINER));
}

TEST_F(ContentKeyTest, GoesToTwoRecipientsInTheCmsForms) {
  const ProviderHandleAsKey providerHandleAsKey;
  const Party sender("sender");
  Octets blobs[] = {first.PublicBlob(), second.PublicBlob()};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans[2] = {};
  CMSG_RECIPIENT_ENCODE_INFO recipients[2] = {};
  for (std::size_t i = 0; i < 2; ++i) {
    keyTrans[i].cbSize = sizeof keyTrans[i];
    keyTrans[i].KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(kExchangeOid);
    keyTrans[i].RecipientPublicKey = {static_cast<DWORD>(blobs[i].size()), blobs[i].data(), 0};
    recipients[i].dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    recipients[i].pKeyTrans = &keyTrans[i];
  }
  CMSG_CONTENT_ENCRYPT_INFO info = {};
  info.cbSize = sizeof info;
  info.hCryptProv = sender.Provider();
  info.ContentEncryptionAlgorithm = content;
  info.cRecipients = 2;
  info.rgCmsRecipients = recipients;
  info.cbContentEncryptKey = 1;
  auto* generate = test::Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>(
      "ZarMsgGenContentEncryptKey");
  ASSERT_TRUE(generate(&info, 0, nullptr)) << GetLastError();
  const Key key(info.hContentEncryptKey);
  const Octets encrypted = Encrypt(key.Get(), plain);

  // What generation left is the same key, wrapped for the first recipient.
  Octets wrapped(info.pbContentEncryptKey, info.pbContentEncryptKey + info.cbContentEncryptKey);
  LocalFree(info.pbContentEncryptKey);
  EXPECT_EQ(plain, Decrypt(Import(first.Own(), wrapped).Get(), encrypted));

  auto* exportKey =
      test::Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                               CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*)>("ZarMsgExportKeyTrans");
  auto* importKey =
      test::Export<BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                               DWORD, void*, HCRYPTKEY*)>("ZarMsgImportKeyTrans");
  const Party* parties[] = {&first, &second};
  for (DWORD i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
    output.cbSize = sizeof output;
    output.dwRecipientIndex = i;
    ASSERT_TRUE(exportKey(&info, &keyTrans[i], &output, 0, nullptr)) << GetLastError();
    CMSG_KEY_TRANS_RECIPIENT_INFO received = {};
    received.KeyEncryptionAlgorithm = keyTrans[i].KeyEncryptionAlgorithm;
    received.EncryptedKey = output.EncryptedKey;
    CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = parties[i]->Provider();
    para.dwKeySpec = AT_KEYEXCHANGE;
    para.pKeyTrans = &received;
    para.dwRecipientIndex = i;
    Key imported;
    ASSERT_TRUE(importKey(&content, &para, 0, nullptr, imported.Out())) << GetLastError();
    EXPECT_EQ(output.EncryptedKey.cbData - 80, received.EncryptedKey.cbData);
    EXPECT_EQ(plain, Decrypt(imported.Get(), encrypted));
    EXPECT_EQ(0u, KeyNumberParam(imported, KP_PERMISSIONS) & CRYPT_EXPORT);
    LocalFree(output.EncryptedKey.pbData);
  }
}

}  // namespace
}  // namespace zarext::test
