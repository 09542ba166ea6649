// Content-encryption keys of enveloped messages: wrapping for a recipient, in the framework's CMS
// form and in its older form.
#include <array>
#include <cstring>

#include "asn1/oid.h"
#include "frame/export_frame.h"
#include "frame/handles.h"
#include "msgkeys/message_keys.h"

namespace zarext {
namespace {

// The provider's own parameter that is set to 1 before the sender's public key is exported.
constexpr DWORD kSenderKeyExportParameter = 60;

// The provider that wraps, and the recipient's key. The first element of rgCmsRecipients gives the
// defaults; the recipient argument overrides those that it states.
struct Recipient {
  HCRYPTPROV hCryptProv = 0;
  const BYTE* pbData = nullptr;
  DWORD cbData = 0;

  void Override(HCRYPTPROV provider) noexcept {
    if (provider != 0) {
      hCryptProv = provider;
    }
  }
  void Override(const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& info) noexcept {
    Override(info.hCryptProv);
    const CRYPT_BIT_BLOB& key = info.RecipientPublicKey;
    if (key.cbData == 0) {
      return;
    }
    // A length alone shortens the key that is there. For a longer one nobody has octets: the
    // platform refuses it.
    if (key.pbData != nullptr || key.cbData > cbData) {
      pbData = key.pbData;
    }
    cbData = key.cbData;
  }
};

// The PUBLICKEYBLOB of the sender's exchange key; length 0 if there is none.
struct SenderBlob {
  std::array<BYTE, 512> octets{};
  DWORD length = 0;
};

void TraceExportCall(ExportTrace& trace, const CMSG_CONTENT_ENCRYPT_INFO& info) {
  trace.Line("ContentEncryptionAlgorithm = %s.", info.ContentEncryptionAlgorithm.pszObjId);
  trace.Line("dwEncryptFlags = %x, dwFlags=%x, pfnAlloc=%p.", Hex(info.dwEncryptFlags),
             Hex(info.dwFlags), reinterpret_cast<void*>(info.pfnAlloc));
  trace.Line("hContentEncryptKey = %x, hCryptProv=%x.", Hex(info.hContentEncryptKey),
             Hex(info.hCryptProv));
  // The first element decides for every recipient, whatever cRecipients says: a second recipient of
  // another kind is served as the first one is.
  RequireParameter(info.rgCmsRecipients != nullptr);
  trace.Line("rgCmsRecipients.dwRecipientChoice = %x.",
             Hex(info.rgCmsRecipients[0].dwRecipientChoice));
}

void TakeDefaults(ExportTrace& trace, const CMSG_RECIPIENT_ENCODE_INFO& first,
                  Recipient& recipient) {
  switch (first.dwRecipientChoice) {
    case CMSG_KEY_TRANS_RECIPIENT: {
      const auto* const keyTrans = first.pKeyTrans;
      RequireParameter(keyTrans != nullptr);
      recipient.Override(*keyTrans);
      trace.Line("pKeyTrans->KeyEncryptionAlgorithm = %s.",
                 keyTrans->KeyEncryptionAlgorithm.pszObjId);
      trace.Line("pKeyTrans->hCryptProv = %x.", Hex(keyTrans->hCryptProv));
      trace.Line("pKeyTrans->RecipientPublicKeySize = %i (%p).",
                 Int(keyTrans->RecipientPublicKey.cbData),
                 static_cast<void*>(keyTrans->RecipientPublicKey.pbData));
      break;
    }
    case CMSG_KEY_AGREE_RECIPIENT:
      throw static_cast<ErrorCode>(ERROR_INVALID_PARAMETER);
    case CMSG_MAIL_LIST_RECIPIENT: {
      // Only the provider is taken, not the mail list's key.
      const auto* const mailList = first.pMailList;
      RequireParameter(mailList != nullptr);
      recipient.Override(mailList->hCryptProv);
      trace.Line("pMailList->KeyEncryptionAlgorithm = %s.",
                 mailList->KeyEncryptionAlgorithm.pszObjId);
      trace.Line("pMailList->hCryptProv = %x.", Hex(mailList->hCryptProv));
      trace.Line("pMailList->dwKeyChoice = %i.", Int(mailList->dwKeyChoice));
      break;
    }
    default:
      break;
  }
}

void TakeArgument(ExportTrace& trace, const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& info,
                  Recipient& recipient) {
  recipient.Override(info);
  trace.Line("pKeyTransEncodeInfo->KeyEncryptionAlgorithm = %s.",
             info.KeyEncryptionAlgorithm.pszObjId);
  trace.Line("pKeyTransEncodeInfo->hCryptProv=%x.", Hex(info.hCryptProv));
  trace.Line("pKeyTransEncodeInfo->RecipientId.dwIdChoice = %x.", Hex(info.RecipientId.dwIdChoice));
  trace.Line("pKeyTransEncodeInfo->RecipientPublicKeySize = %i (%x).",
             Int(info.RecipientPublicKey.cbData), Hex(info.RecipientPublicKey.pbData));
}

// Opens the provider's exchange key and exports its public half. Neither failure ends the export of
// the content key: the wrapped key then goes without a sender blob.
SenderBlob ExportSenderKey(ExportTrace& trace, HCRYPTPROV hCryptProv, UniqueCryptKey& senderKey) {
  SenderBlob blob;
  HCRYPTKEY key = 0;
  if (!CryptGetUserKey(hCryptProv, AT_KEYEXCHANGE, &key)) {
    trace.Line("CryptGetUserKey = %x.", Hex(GetLastError()));
    return blob;
  }
  senderKey.Reset(key);
  // Result unchecked: not every provider knows the parameter.
  const DWORD on = 1;
  CryptSetProvParam(hCryptProv, kSenderKeyExportParameter, reinterpret_cast<const BYTE*>(&on), 0);
  blob.length = static_cast<DWORD>(blob.octets.size());
  if (!CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob.octets.data(), &blob.length)) {
    blob.length = 0;
    trace.Line("CryptExportKey = %x.", Hex(GetLastError()));
  }
  return blob;
}

// Puts the sender blob behind the SIMPLEBLOB of `length` octets and returns the length of both. The
// receiver takes it off by the algorithm alone, so a key that leaves no room for it cannot be
// handed out at all.
DWORD AppendSenderBlob(ExportTrace& trace, const SenderBlob& blob, BYTE* buffer, DWORD length) {
  if (length > kWrapBufferSize - kSenderBlobSize) {
    RefuseWrappedKey(trace);
  }
  std::memcpy(buffer + length, blob.octets.data(), kSenderBlobSize);
  return length + kSenderBlobSize;
}

void TraceOutput(ExportTrace& trace, const CMSG_KEY_TRANS_ENCRYPT_INFO& output) {
  trace.Line("pKeyTransEncryptInfo->dwFlags = %x, dwRecipientIndex=%x.", Hex(output.dwFlags),
             Hex(output.dwRecipientIndex));
  trace.Line("pKeyTransEncryptInfo->KeyEncryptionAlgorithm=%s.",
             output.KeyEncryptionAlgorithm.pszObjId);
  trace.Line("pKeyTransEncryptInfo->EncryptedKeySize=%i.", Int(output.EncryptedKey.cbData));
}

// A blob's data from the caller's allocator, which also sees a request for the blob's descriptor,
// of size 1, as it always has. The descriptor's two fields would not fit and are kept here. Neither
// block is released, also not when a later step fails.
CRYPT_DATA_BLOB AllocateEncryptedKey(PFN_CMSG_ALLOC pfnAlloc) {
  static_cast<void>(AllocateForCaller(pfnAlloc, 1));
  CRYPT_DATA_BLOB blob{};
  blob.cbData = kWrapBufferSize;
  blob.pbData = static_cast<BYTE*>(AllocateForCaller(pfnAlloc, blob.cbData));
  return blob;
}

// The arguments of the CMS form.
struct Transport {
  const CMSG_CONTENT_ENCRYPT_INFO* content;
  const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO* recipient;
  CMSG_KEY_TRANS_ENCRYPT_INFO* output;
  DWORD dwFlags;
};

struct TransportKeys {
  // Declared in this order because the recipient's key is destroyed first.
  UniqueCryptKey sender;
  UniqueCryptKey recipient;
};

void ExportForMessage(ExportTrace& trace, const Transport& transport, TransportKeys& keys) {
  const CMSG_CONTENT_ENCRYPT_INFO* const content = transport.content;
  RequireParameter(content != nullptr);
  TraceExportCall(trace, *content);
  RequireParameter(transport.dwFlags == 0);
  Recipient recipient{.hCryptProv = content->hCryptProv};
  TakeDefaults(trace, content->rgCmsRecipients[0], recipient);
  RequireParameter(transport.recipient != nullptr);
  TakeArgument(trace, *transport.recipient, recipient);

  keys.recipient =
      ImportRecipientKey(trace, recipient.hCryptProv, recipient.pbData, recipient.cbData, 0);
  SenderBlob senderBlob;
  if (IsOwnAlgorithmOid(transport.recipient->KeyEncryptionAlgorithm.pszObjId)) {
    senderBlob = ExportSenderKey(trace, recipient.hCryptProv, keys.sender);
  }
  RequireParameter(transport.output != nullptr);
  TraceOutput(trace, *transport.output);
  CRYPT_DATA_BLOB encryptedKey = AllocateEncryptedKey(content->pfnAlloc);
  encryptedKey.cbData =
      WrapKey(trace, content->hContentEncryptKey, keys.recipient.Get(), encryptedKey.pbData);
  // A sender key whose blob has any other length is left out without a line: receivers take 80
  // octets.
  if (keys.sender && senderBlob.length == kSenderBlobSize) {
    encryptedKey.cbData =
        AppendSenderBlob(trace, senderBlob, encryptedKey.pbData, encryptedKey.cbData);
  }
  transport.output->EncryptedKey = encryptedKey;
  trace.Line("EncryptedKeySize=%i.", Int(encryptedKey.cbData));
}

void ExportForPublicKey(ExportTrace& trace, HCRYPTPROV hCryptProv, HCRYPTKEY hEncryptKey,
                        const CERT_PUBLIC_KEY_INFO* pPublicKeyInfo, BYTE* pbData, DWORD* pcbData,
                        UniqueCryptKey& recipientKey) {
  RequireParameter(pPublicKeyInfo != nullptr);
  trace.Line("Algorithm = %s.", pPublicKeyInfo->Algorithm.pszObjId);
  if (!IsRecipientKeyOid(pPublicKeyInfo->Algorithm.pszObjId)) {
    throw static_cast<ErrorCode>(NTE_BAD_ALGID);
  }
  recipientKey = ImportRecipientKey(trace, hCryptProv, pPublicKeyInfo->PublicKey.pbData,
                                    pPublicKeyInfo->PublicKey.cbData, CRYPT_EXPORTABLE);
  if (!CryptExportKey(hEncryptKey, recipientKey.Get(), SIMPLEBLOB, 0, pbData, pcbData)) {
    ThrowFailedCall(trace, pbData == nullptr ? "CryptExportKey 1" : "CryptExportKey 2");
  }
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

// Framework function CryptMsgDllExportKeyTrans. EncryptedKey receives the wrapped key, for the
// module's own key-encryption algorithms followed by the sender's public key blob, in a block of
// 512 octets from the caller's allocator.
BOOL WINAPI ZarMsgExportKeyTrans(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                 PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO pKeyTransEncodeInfo,
                                 PCMSG_KEY_TRANS_ENCRYPT_INFO pKeyTransEncryptInfo, DWORD dwFlags,
                                 void* /*pvReserved*/) {
  const Transport transport = {pContentEncryptInfo, pKeyTransEncodeInfo, pKeyTransEncryptInfo,
                               dwFlags};
  return RunExportKeeping<TransportKeys>(
      "ZarMsgExportKeyTrans",
      [&](ExportTrace& trace, TransportKeys& keys) { ExportForMessage(trace, transport, keys); });
}

// Framework function CryptMsgDllExportEncryptKey, with the size protocol of CryptExportKey.
BOOL WINAPI ZarExportEncryptKey(HCRYPTPROV hCryptProv, HCRYPTKEY hEncryptKey,
                                PCERT_PUBLIC_KEY_INFO pPublicKeyInfo, PBYTE pbData,
                                PDWORD pcbData) {
  return RunExportKeeping<UniqueCryptKey>(
      "ZarExportEncryptKey", [&](ExportTrace& trace, UniqueCryptKey& recipientKey) {
        ExportForPublicKey(trace, hCryptProv, hEncryptKey, pPublicKeyInfo, pbData, pcbData,
                           recipientKey);
      });
}

}  // extern "C"
