#include "msgkeys/message_keys.h"

#include "asn1/oid.h"

namespace zarext {

bool IsRecipientKeyOid(const char* oid) noexcept {
  return SameOid(oid, kExchangeKeyOid) || SameOid(oid, kElGamalKeyOid);
}

void* AllocateForCaller(PFN_CMSG_ALLOC pfnAlloc, std::size_t size) {
  void* const block = pfnAlloc != nullptr ? pfnAlloc(size) : LocalAlloc(LPTR, size);
  if (block == nullptr) {
    throw static_cast<ErrorCode>(NTE_NO_MEMORY);
  }
  return block;
}

UniqueCryptKey ImportRecipientKey(ExportTrace& trace, HCRYPTPROV hCryptProv, const BYTE* pbData,
                                  DWORD cbData, DWORD dwFlags) {
  HCRYPTKEY recipientKey = 0;
  if (!CryptImportKey(hCryptProv, pbData, cbData, 0, dwFlags, &recipientKey)) {
    ThrowFailedCall(trace, "CryptImportKey");
  }
  return UniqueCryptKey(recipientKey);
}

void RefuseWrappedKey(ExportTrace& trace) {
  constexpr auto kCode = static_cast<ErrorCode>(NTE_BAD_LEN);
  trace.LineAndThrow(kCode, "CryptExportKey = %x.", Hex(kCode));
}

DWORD WrapKey(ExportTrace& trace, HCRYPTKEY hKey, HCRYPTKEY hRecipientKey, BYTE* wrapBuffer) {
  DWORD length = kWrapBufferSize;
  if (!CryptExportKey(hKey, hRecipientKey, SIMPLEBLOB, 0, wrapBuffer, &length)) {
    ThrowFailedCall(trace, "CryptExportKey");
  }
  if (length > kWrapBufferSize) {
    RefuseWrappedKey(trace);
  }
  return length;
}

}  // namespace zarext
