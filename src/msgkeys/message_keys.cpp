#include "msgkeys/message_keys.h"

#include "asn1/oid.h"

namespace zarext {

bool IsRecipientKeyOid(const char* oid) noexcept {
  return SameOid(oid, kExchangeKeyOid) || SameOid(oid, kElGamalKeyOid);
}

void ThrowFailedCall(ExportTrace& trace, const char* exportName, const char* call) {
  ThrowFailedCall(trace, exportName, call, GetLastError());
}

void ThrowFailedCall(ExportTrace& trace, const char* exportName, const char* call, ErrorCode code) {
  trace.Line("EXT : %s : %s = %x.", exportName, call, Hex(code));
  throw code;
}

void* AllocateForCaller(PFN_CMSG_ALLOC pfnAlloc, std::size_t size) {
  void* const block = pfnAlloc != nullptr ? pfnAlloc(size) : LocalAlloc(LPTR, size);
  if (block == nullptr) {
    throw static_cast<ErrorCode>(NTE_NO_MEMORY);
  }
  return block;
}

UniqueCryptKey ImportRecipientKey(ExportTrace& trace, const char* exportName, HCRYPTPROV hCryptProv,
                                  const BYTE* pbData, DWORD cbData, DWORD dwFlags) {
  HCRYPTKEY recipientKey = 0;
  if (!CryptImportKey(hCryptProv, pbData, cbData, 0, dwFlags, &recipientKey)) {
    ThrowFailedCall(trace, exportName, "CryptImportKey");
  }
  return UniqueCryptKey(recipientKey);
}

void RefuseWrappedKey(ExportTrace& trace, const char* exportName) {
  ThrowFailedCall(trace, exportName, "CryptExportKey", static_cast<ErrorCode>(NTE_BAD_LEN));
}

DWORD WrapKey(ExportTrace& trace, const char* exportName, HCRYPTKEY hKey, HCRYPTKEY hRecipientKey,
              BYTE* wrapBuffer) {
  DWORD length = kWrapBufferSize;
  if (!CryptExportKey(hKey, hRecipientKey, SIMPLEBLOB, 0, wrapBuffer, &length)) {
    ThrowFailedCall(trace, exportName, "CryptExportKey");
  }
  if (length > kWrapBufferSize) {
    RefuseWrappedKey(trace, exportName);
  }
  return length;
}

}  // namespace zarext
