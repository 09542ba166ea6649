// The exports of content-encryption keys with each of their calls failing: what their scenarios
// share.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_MSGKEYS_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_MSGKEYS_FIXTURE_H_

#include "contract/anomaly_loop.h"
#include "contract/msgkeys_fixture.h"

namespace zarext::test {

inline constexpr char kExchangeKey[] = "1.3.6.1.4.1.32473.1.4.4";
inline constexpr char kContent[] = "1.3.6.1.4.1.32473.1.2.4";

// A caller's allocator whose refusals count as failure points.
inline void* WINAPI CallersAllocate(size_t size) {
  if (AnomalyLoop::Fails("pfnAlloc")) return nullptr;
  void* const block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
  AnomalyLoop::Book("caller's block", 1);
  return block;
}
inline void CallersFree(void* block) {
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

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_MSGKEYS_FIXTURE_H_
