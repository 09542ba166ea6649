// A message whose content key is generated.
#ifndef ZAREXT_TESTS_CONTRACT_MSGKEYS_GENERATE_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_MSGKEYS_GENERATE_FIXTURE_H_

#include <string>

#include "contract/msgkeys_fixture.h"

namespace zarext::test {

inline constexpr char kBlockCipher[] = "1.3.6.1.4.1.32473.1.2.4";
inline constexpr char kForeignContent[] = "1.2.840.113549.3.7";

// A record that ends at a forbidden page, with one recipient of which the tests choose the kind.
class GenerateForMessageTest : public MessageKeysTest {
 protected:
  GenerateForMessageTest() {
    info.cbSize = sizeof info;
    info.ContentEncryptionAlgorithm.pszObjId = OidText(kBlockCipher);
    keyTrans.cbSize = sizeof keyTrans;
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.19");
    keyTrans.RecipientPublicKey = {static_cast<DWORD>(publicKey.size()), publicKey.data(), 0};
    provider.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
  }

  void UseRecipient(DWORD choice) {
    info.cRecipients = 1;
    info.rgCmsRecipients = &recipient;
    recipient.dwRecipientChoice = choice;
    recipient.pKeyTrans = &keyTrans;
  }

  // A recipient for whom the key is wrapped, under the tests' context and in blocks of the recorded
  // allocator's.
  void UseWrapping() {
    UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
    info.hCryptProv = Context();
    info.pfnAlloc = &RecordedAllocator::Allocate;
  }

  BOOL Call(DWORD dwFlags = 0) {
    auto* generate =
        Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>("ZarMsgGenContentEncryptKey");
    SetLastError(0);
    // What is reserved is not looked at.
    return generate(&info, dwFlags, reinterpret_cast<void*>(1));
  }

  [[nodiscard]] std::string ProviderLine() const {
    return "EXT : ZarMsgGenContentEncryptKey : hContentEncryptKey = " +
           Low(info.hContentEncryptKey) + ", hCryptProv=" + Low(info.hCryptProv) + ".";
  }

  GuardedMemory memory{sizeof(CMSG_CONTENT_ENCRYPT_INFO)};
  CMSG_CONTENT_ENCRYPT_INFO& info = *memory.As<CMSG_CONTENT_ENCRYPT_INFO>();
  CMSG_RECIPIENT_ENCODE_INFO recipient = {};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
  Octets publicKey = {0x06, 0x02, 0xAB, 0xCD};
  RecordedAllocator allocator;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_MSGKEYS_GENERATE_FIXTURE_H_
