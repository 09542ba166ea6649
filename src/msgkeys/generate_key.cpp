// Content-encryption keys of enveloped messages: generation, in the framework's CMS form and in its
// older form. Both also wrap the new key at once for a recipient.
#include <cstddef>

#include "asn1/oid.h"
#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/provider_type.h"
#include "msgkeys/message_keys.h"

namespace zarext {
namespace {

struct ContentAlgorithm {
  const char* oid;
  ALG_ID algId;
};

// For AES-128-CBC providers are asked for the generic AES identifier, not for CALG_AES_128
// (0x660E).
constexpr ContentAlgorithm kGeneratedAlgorithms[] = {
    {"2.16.840.1.101.3.4.1.2", 0x6611},
    {"1.3.6.1.4.1.32473.1.2.4", 0x681F},
    {"1.3.6.1.4.1.32473.1.20.1", 0x6620},
};

// The ALG_ID to generate for a content-encryption OID; throws NTE_BAD_ALGID for any other.
ALG_ID FindContentAlgorithm(ExportTrace& trace, const char* oid) {
  for (const ContentAlgorithm& row : kGeneratedAlgorithms) {
    if (SameOid(oid, row.oid)) {
      return row.algId;
    }
  }
  constexpr auto kCode = static_cast<ErrorCode>(NTE_BAD_ALGID);
  trace.LineAndThrow(kCode, "pszObjId error = %x.", Hex(kCode));
}

// Refuses a caller's provider whose type is neither the module's own nor PROV_RSA_FULL.
void CheckProviderType(ExportTrace& trace, HCRYPTPROV hCryptProv) {
  const DWORD type = ReadProviderType(hCryptProv, [&](ErrorCode code) {
    trace.LineAndThrow(code, "CryptGetProvParam error = %x.", Hex(code));
  });
  if (!IsServedProviderType(type)) {
    trace.Line("CryptGetProvParam[%x] : PP_PROVTYPE=%x.", Hex(GetCurrentThreadId()), Hex(type));
    // Signed: callers know this failure as NTE_NO_MEMORY.
    throw static_cast<HRESULT>(NTE_BAD_TYPE);
  }
}

// Checks the provider in *phCryptProv, or acquires one into it if that is 0, and returns whether it
// was acquired here.
bool ProvideContext(ExportTrace& trace, HCRYPTPROV* phCryptProv, DWORD acquireFlags) {
  if (*phCryptProv != 0) {
    CheckProviderType(trace, *phCryptProv);
    return false;
  }
  if (!CryptAcquireContextA(phCryptProv, nullptr, nullptr, kProviderType, acquireFlags)) {
    ThrowFailedCall(trace, "CryptAcquireContext");
  }
  return true;
}

void GenerateKey(ExportTrace& trace, HCRYPTPROV hCryptProv, ALG_ID algId, HCRYPTKEY* phKey) {
  RequirePlace(trace, "CryptGenKey", phKey);
  if (!CryptGenKey(hCryptProv, algId, CRYPT_EXPORTABLE, phKey)) {
    ThrowFailedCall(trace, "CryptGenKey");
  }
}

void TraceGenerateCall(ExportTrace& trace, const CMSG_CONTENT_ENCRYPT_INFO& info) {
  trace.Line("ContentEncryptionAlgorithm = %s.", info.ContentEncryptionAlgorithm.pszObjId);
  trace.Line("dwEncryptFlags = %x, dwFlags=%x.", Hex(info.dwEncryptFlags), Hex(info.dwFlags));
  trace.Line("hContentEncryptKey = %x, hCryptProv=%x.", Hex(info.hContentEncryptKey),
             Hex(info.hCryptProv));
  trace.Line("cRecipients = %i.", Int(info.cRecipients));
}

void TraceRecipient(ExportTrace& trace, const CMSG_RECIPIENT_ENCODE_INFO& recipient) {
  trace.Line("rgCmsRecipients.dwRecipientChoice = %i.", Int(recipient.dwRecipientChoice));
  if (recipient.dwRecipientChoice == CMSG_KEY_TRANS_RECIPIENT) {
    const auto* keyTrans = recipient.pKeyTrans;
    trace.Line("CMSG_KEY_TRANS_RECIPIENT = %s.",
               keyTrans != nullptr ? keyTrans->KeyEncryptionAlgorithm.pszObjId : nullptr);
  } else if (recipient.dwRecipientChoice == CMSG_KEY_AGREE_RECIPIENT) {
    const auto* keyAgree = recipient.pKeyAgree;
    trace.Line("CMSG_KEY_AGREE_RECIPIENT = %s.",
               keyAgree != nullptr ? keyAgree->KeyEncryptionAlgorithm.pszObjId : nullptr);
  }
}

// Whether the record has the wrapped key's pointer and length. The record of older callers, 104
// octets, ends before them, and what lies there is the caller's own. Callers that leave the size at
// 0 have always been taken to pass a whole record.
bool HasWrappedKey(const CMSG_CONTENT_ENCRYPT_INFO& info) {
  constexpr std::size_t kSizeWithIt =
      offsetof(CMSG_CONTENT_ENCRYPT_INFO, cbContentEncryptKey) + sizeof info.cbContentEncryptKey;
  return info.cbSize == 0 || info.cbSize >= kSizeWithIt;
}

// Wraps for the first recipient. Later recipients are served by the export functions.
void WrapForRecipient(ExportTrace& trace, CMSG_CONTENT_ENCRYPT_INFO& info,
                      const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO* keyTrans) {
  RequireParameter(keyTrans != nullptr);
  // This key stays open, here and on every failure below: who counts the provider's keys sees one
  // for each call until its context is released.
  const HCRYPTKEY recipientKey =
      ImportRecipientKey(trace, info.hCryptProv, keyTrans->RecipientPublicKey.pbData,
                         keyTrans->RecipientPublicKey.cbData, 0)
          .Detach();
  // The allocator's owner keeps the block, also where the record has no place for it.
  auto* const buffer = static_cast<BYTE*>(AllocateForCaller(info.pfnAlloc, kWrapBufferSize));
  const bool hasWrappedKey = HasWrappedKey(info);
  if (hasWrappedKey) {
    info.pbContentEncryptKey = buffer;
  }
  // The key to export is named by the provider's handle, not by hContentEncryptKey: the provider
  // decides which key that is. advapi32 may refuse the handle, and the message then fails.
  const DWORD length = WrapKey(trace, info.hCryptProv, recipientKey, buffer);
  // A zero length field stays zero: the caller then has the block without its length.
  if (hasWrappedKey && info.cbContentEncryptKey != 0) {
    info.cbContentEncryptKey = length;
  }
}

void GenerateForMessage(ExportTrace& trace, CMSG_CONTENT_ENCRYPT_INFO* info, DWORD dwFlags) {
  RequireParameter(info != nullptr);
  TraceGenerateCall(trace, *info);
  const bool hasRecipients = info->cRecipients != 0;
  if (hasRecipients) {
    RequireParameter(info->rgCmsRecipients != nullptr);
    TraceRecipient(trace, info->rgCmsRecipients[0]);
  }
  RequireParameter(dwFlags == 0);
  const ALG_ID algId = FindContentAlgorithm(trace, info->ContentEncryptionAlgorithm.pszObjId);
  if (ProvideContext(trace, &info->hCryptProv, CRYPT_VERIFYCONTEXT)) {
    // Replaced, not combined: the framework releases the context for this flag.
    info->dwFlags = CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG;
  }
  GenerateKey(trace, info->hCryptProv, algId, &info->hContentEncryptKey);
  if (!hasRecipients) {
    return;
  }
  const CMSG_RECIPIENT_ENCODE_INFO& first = info->rgCmsRecipients[0];
  if (first.dwRecipientChoice == CMSG_KEY_TRANS_RECIPIENT) {
    WrapForRecipient(trace, *info, first.pKeyTrans);
  } else if (HasWrappedKey(*info)) {
    info->cbContentEncryptKey = 0;
  }
}

// The arguments of the older form.
struct KeyRequest {
  HCRYPTPROV* phCryptProv;
  const CRYPT_ALGORITHM_IDENTIFIER* paiEncrypt;
  const CERT_PUBLIC_KEY_INFO* pPublicKeyInfo;
  PFN_CMSG_ALLOC pfnAlloc;
  HCRYPTKEY* phEncryptKey;
  BYTE** ppbEncryptParameters;
  DWORD* pcbEncryptParameters;
};

void GenerateForPublicKey(ExportTrace& trace, const KeyRequest& request,
                          UniqueCryptKey& recipientKey) {
  RequireParameter(request.pPublicKeyInfo != nullptr);
  const char* const keyOid = request.pPublicKeyInfo->Algorithm.pszObjId;
  trace.Line("Algorithm = %s.", keyOid);
  // The exchange key lives in a container, and the default one is opened for it.
  const DWORD acquireFlags = SameOid(keyOid, kExchangeKeyOid) ? 0 : CRYPT_VERIFYCONTEXT;
  RequireParameter(request.paiEncrypt != nullptr);
  trace.Line("CryptAlgorithm = %s.", request.paiEncrypt->pszObjId);
  const ALG_ID algId = FindContentAlgorithm(trace, request.paiEncrypt->pszObjId);
  trace.Line("Flags = %x, tempAlg = %x.", Hex(acquireFlags), Hex(algId));

  RequireParameter(request.phCryptProv != nullptr);
  // Nothing tells the framework to release a context that is acquired here: it is the caller's.
  ProvideContext(trace, request.phCryptProv, acquireFlags);
  const HCRYPTPROV hCryptProv = *request.phCryptProv;
  GenerateKey(trace, hCryptProv, algId, request.phEncryptKey);
  const CRYPT_BIT_BLOB& publicKey = request.pPublicKeyInfo->PublicKey;
  recipientKey = ImportRecipientKey(trace, hCryptProv, publicKey.pbData, publicKey.cbData, 0);
  // Not released when the wrapping fails: there is no function to give it back to `pfnAlloc`.
  auto* const buffer = static_cast<BYTE*>(AllocateForCaller(request.pfnAlloc, kWrapBufferSize));
  const DWORD length = WrapKey(trace, *request.phEncryptKey, recipientKey.Get(), buffer);
  // Callers find the wrapped key in the slot of the encryption parameters, not encoded parameters.
  if (request.ppbEncryptParameters != nullptr) {
    *request.ppbEncryptParameters = buffer;
  }
  if (request.pcbEncryptParameters != nullptr) {
    *request.pcbEncryptParameters = length;
  }
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

// Framework function CryptMsgDllGenContentEncryptKey. On failure what was already written to the
// structure stays in place.
BOOL WINAPI ZarMsgGenContentEncryptKey(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                       DWORD dwFlags, void* /*pvReserved*/) {
  return RunExport("ZarMsgGenContentEncryptKey", [&](ExportTrace& trace) {
    GenerateForMessage(trace, pContentEncryptInfo, dwFlags);
  });
}

// Framework function CryptMsgDllGenEncryptKey.
BOOL WINAPI ZarGenEncryptKey(HCRYPTPROV* phCryptProv, PCRYPT_ALGORITHM_IDENTIFIER paiEncrypt,
                             PVOID /*pvEncryptAuxInfo*/, PCERT_PUBLIC_KEY_INFO pPublicKeyInfo,
                             PFN_CMSG_ALLOC pfnAlloc, HCRYPTKEY* phEncryptKey,
                             PBYTE* ppbEncryptParameters, PDWORD pcbEncryptParameters) {
  return RunExportKeeping<UniqueCryptKey>(
      "ZarGenEncryptKey", [&](ExportTrace& trace, UniqueCryptKey& recipientKey) {
        GenerateForPublicKey(trace,
                             {phCryptProv, paiEncrypt, pPublicKeyInfo, pfnAlloc, phEncryptKey,
                              ppbEncryptParameters, pcbEncryptParameters},
                             recipientKey);
      });
}

}  // extern "C"
