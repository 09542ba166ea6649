// Content-encryption keys of enveloped messages: unwrapping at the recipient, in the framework's
// CMS form and in its older form.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include "asn1/oid.h"
#include "frame/export_frame.h"
#include "frame/handles.h"
#include "msgkeys/message_keys.h"

namespace zarext {
namespace {

// The content-encryption algorithms of the older form. Not the list that generation serves:
// callers can import keys that they cannot generate here, and the other way round.
constexpr const char* kUnwrappedAlgorithms[] = {
    "1.3.6.1.4.1.32473.1.1.4",
    "1.3.6.1.4.1.32473.1.2.4",
    "1.2.643.2.2.21",
};

std::nullopt_t TraceSenderKey(ExportTrace& trace, ErrorCode error) {
  trace.Line("CryptImportKey 1 = %x.", Hex(error));
  return std::nullopt;
}

// Imports the sender blob that ends the encrypted key. None if the provider refuses it, or if the
// key is too short to hold one; that is traced.
std::optional<UniqueCryptKey> ImportSenderKey(ExportTrace& trace, HCRYPTPROV hCryptProv,
                                              const CRYPT_DATA_BLOB& encryptedKey) {
  if (encryptedKey.pbData == nullptr || encryptedKey.cbData < kSenderBlobSize) {
    return TraceSenderKey(trace, static_cast<ErrorCode>(NTE_BAD_DATA));
  }
  // A copy: the provider gets no pointer into the middle of the caller's record.
  std::array<BYTE, kSenderBlobSize> blob{};
  std::memcpy(blob.data(), encryptedKey.pbData + (encryptedKey.cbData - kSenderBlobSize),
              blob.size());
  HCRYPTKEY key = 0;
  if (!CryptImportKey(hCryptProv, blob.data(), kSenderBlobSize, 0, 0, &key)) {
    return TraceSenderKey(trace, GetLastError());
  }
  return UniqueCryptKey(key);
}

// The record of the recipient, after the lines that describe the call.
CMSG_KEY_TRANS_RECIPIENT_INFO& TraceImportCall(ExportTrace& trace,
                                               const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA& para) {
  trace.Line("hCryptProv=%x.", Hex(para.hCryptProv));
  trace.Line("dwKeySpec = %i, dwRecipientIndex=%i.", Int(para.dwKeySpec),
             Int(para.dwRecipientIndex));
  auto* const keyTrans = para.pKeyTrans;
  trace.Line("KeyEncryptionAlgorithm = %s.",
             keyTrans != nullptr ? keyTrans->KeyEncryptionAlgorithm.pszObjId : nullptr);
  RequireParameter(keyTrans != nullptr);
  trace.Line("RecipientId.dwIdChoice = %i, dwVersion=%x.", Int(keyTrans->RecipientId.dwIdChoice),
             Hex(keyTrans->dwVersion));
  trace.Line("pKeyTrans->EncryptedKeySize = %i.", Int(keyTrans->EncryptedKey.cbData));
  return *keyTrans;
}

BOOL ImportForMessage(ExportTrace& trace, const CRYPT_ALGORITHM_IDENTIFIER* contentAlgorithm,
                      const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA* para, DWORD dwFlags,
                      HCRYPTKEY* phContentEncryptKey, UniqueCryptKey& senderKey) {
  RequireParameter(contentAlgorithm != nullptr);
  trace.Line("ContentEncryptionAlgorithm = %s.", contentAlgorithm->pszObjId);
  RequireParameter(dwFlags == 0);
  RequireParameter(para != nullptr);
  CMSG_KEY_TRANS_RECIPIENT_INFO& keyTrans = TraceImportCall(trace, *para);
  CRYPT_DATA_BLOB& encryptedKey = keyTrans.EncryptedKey;
  if (IsOwnAlgorithmOid(keyTrans.KeyEncryptionAlgorithm.pszObjId)) {
    if (auto imported = ImportSenderKey(trace, para->hCryptProv, encryptedKey)) {
      senderKey = std::move(*imported);
      // In the caller's own record, which describes the bare SIMPLEBLOB from here on, also if the
      // import below fails: who tries the same message again starts from there.
      encryptedKey.cbData -= kSenderBlobSize;
    }
  }
  RequirePlace(trace, "CryptImportKey", phContentEncryptKey);
  if (!CryptImportKey(para->hCryptProv, encryptedKey.pbData, encryptedKey.cbData, senderKey.Get(),
                      0, phContentEncryptKey)) {
    ThrowFailedCall(trace, "CryptImportKey");
  }
  trace.Line("CryptImportKey - OK.");
  return *phContentEncryptKey != 0 ? TRUE : FALSE;
}

void ImportEncodedKey(ExportTrace& trace, HCRYPTPROV hCryptProv,
                      const CRYPT_ALGORITHM_IDENTIFIER* paiEncrypt,
                      const CRYPT_ALGORITHM_IDENTIFIER* paiPubKey,
                      const CRYPT_DATA_BLOB& encodedKey, HCRYPTKEY* phEncryptKey) {
  RequireParameter(paiPubKey != nullptr);
  trace.Line("paiPubKey = %s.", paiPubKey->pszObjId);
  if (!IsRecipientKeyOid(paiPubKey->pszObjId)) {
    throw static_cast<ErrorCode>(NTE_BAD_ALGID);
  }
  RequireParameter(paiEncrypt != nullptr);
  trace.Line("paiEncrypt = %s.", paiEncrypt->pszObjId);
  if (std::none_of(std::begin(kUnwrappedAlgorithms), std::end(kUnwrappedAlgorithms),
                   [&](const char* oid) { return SameOid(paiEncrypt->pszObjId, oid); })) {
    // The line names the export function, as who reads traces knows it.
    constexpr auto kCode = static_cast<ErrorCode>(NTE_BAD_ALGID);
    trace.WholeLine("EXT : ZarExportEncryptKey : pszObjId error = %x.", Hex(kCode));
    throw kCode;
  }
  RequireParameter(encodedKey.pbData != nullptr && encodedKey.cbData != 0);
  RequirePlace(trace, "CryptImportKey", phEncryptKey);
  // Without an exchange key: the provider unwraps with the container's own.
  if (!CryptImportKey(hCryptProv, encodedKey.pbData, encodedKey.cbData, 0, CRYPT_EXPORTABLE,
                      phEncryptKey)) {
    ThrowFailedCall(trace, "CryptImportKey");
  }
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

// Framework function CryptMsgDllImportKeyTrans. TRUE exactly when the handle is not 0.
BOOL WINAPI ZarMsgImportKeyTrans(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                 PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA pKeyTransDecryptPara,
                                 DWORD dwFlags, void* /*pvReserved*/,
                                 HCRYPTKEY* phContentEncryptKey) {
  return RunExportKeeping<UniqueCryptKey>(
      "ZarMsgImportKeyTrans", [&](ExportTrace& trace, UniqueCryptKey& senderKey) {
        return ImportForMessage(trace, pContentEncryptionAlgorithm, pKeyTransDecryptPara, dwFlags,
                                phContentEncryptKey, senderKey);
      });
}

// Framework function CryptMsgDllImportEncryptKey.
BOOL WINAPI ZarImportEncryptKey(HCRYPTPROV hCryptProv, DWORD /*dwKeySpec*/,
                                PCRYPT_ALGORITHM_IDENTIFIER paiEncrypt,
                                PCRYPT_ALGORITHM_IDENTIFIER paiPubKey, PBYTE pbEncodedKey,
                                DWORD cbEncodedKey, HCRYPTKEY* phEncryptKey) {
  return RunExport("ZarImportEncryptKey", [&](ExportTrace& trace) {
    ImportEncodedKey(trace, hCryptProv, paiEncrypt, paiPubKey,
                     {.cbData = cbEncodedKey, .pbData = pbEncodedKey}, phEncryptKey);
  });
}

}  // extern "C"
