// A message whose content key is exported for a recipient.
#ifndef ZAREXT_TESTS_CONTRACT_MSGKEYS_EXPORT_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_MSGKEYS_EXPORT_FIXTURE_H_

#include "contract/msgkeys_fixture.h"

namespace zarext::test {

using ExportKeyTrans = BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*,
                                   CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                                   CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*);

// A content key, one recipient that is both the first of the array and the argument, and a provider
// with a 60-octet wrapped key and an 80-octet exchange key blob.
class ExportForMessageTest : public MessageKeysTest {
 protected:
  ExportForMessageTest() {
    info.cbSize = sizeof info;
    info.hCryptProv = Context();
    info.ContentEncryptionAlgorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.2.4");
    info.cRecipients = 1;
    info.rgCmsRecipients = &first;
    info.pfnAlloc = &RecordedAllocator::Allocate;
    first.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    first.pKeyTrans = &keyTrans;
    keyTrans.cbSize = sizeof keyTrans;
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.19");
    keyTrans.RecipientPublicKey = {static_cast<DWORD>(publicKey.size()), publicKey.data(), 0};
    output.cbSize = sizeof output;
    output.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.20");
    provider.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
    provider.blobs[PUBLICKEYBLOB] = Sequence(80, 0x80);
    CryptGenKey(Context(), 0x681F, CRYPT_EXPORTABLE, &info.hContentEncryptKey);
    provider.ClearCalls();
  }

  BOOL Call(CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO* recipient, CMSG_KEY_TRANS_ENCRYPT_INFO* result,
            DWORD dwFlags = 0) {
    SetLastError(0);
    // What is reserved is not looked at.
    return Export<ExportKeyTrans>("ZarMsgExportKeyTrans")(&info, recipient, result, dwFlags,
                                                          reinterpret_cast<void*>(1));
  }
  BOOL Call() { return Call(&keyTrans, &output); }

  [[nodiscard]] Octets EncryptedKey() const {
    return {output.EncryptedKey.pbData, output.EncryptedKey.pbData + output.EncryptedKey.cbData};
  }

  GuardedMemory memory{sizeof(CMSG_CONTENT_ENCRYPT_INFO)};
  CMSG_CONTENT_ENCRYPT_INFO& info = *memory.As<CMSG_CONTENT_ENCRYPT_INFO>();
  CMSG_RECIPIENT_ENCODE_INFO first = {};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
  Octets publicKey = {0x06, 0x02, 0xAB, 0xCD};
  RecordedAllocator allocator;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_MSGKEYS_EXPORT_FIXTURE_H_
