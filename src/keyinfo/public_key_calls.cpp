#include "keyinfo/public_key_calls.h"

#include "asn1/oid.h"
#include "frame/provider_type.h"

namespace zarext {

void RequireEncodingType(DWORD dwCertEncodingType) {
  RequireParameter(dwCertEncodingType == X509_ASN_ENCODING ||
                   dwCertEncodingType == PKCS_7_ASN_ENCODING ||
                   dwCertEncodingType == (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING));
}

void RequireOwnAlgorithm(ExportTrace& trace, const char* name, const char* label, const char* oid) {
  if (!IsOwnAlgorithmOid(oid)) {
    constexpr auto kError = static_cast<ErrorCode>(NTE_BAD_ALGID);
    trace.Line("EXT : %s : %s = %s, error = %x.", name, label, oid, Hex(kError));
    throw kError;
  }
}

void NoteProviderType(ExportTrace& trace, const char* name, HCRYPTPROV hCryptProv) {
  DWORD type = 0;
  if (!ReadProviderType(hCryptProv, &type)) {
    const ErrorCode error = GetLastError();
    trace.Line("EXT : %s : CryptGetProvParam hProv=%x, error = %x.", name, Hex(hCryptProv),
               Hex(error));
    throw error;
  }
  if (!IsServedProviderType(type)) {
    trace.Line("EXT : %s : CryptGetProvParam[%x] : hProv=%x, PP_PROVTYPE=%x.", name,
               Hex(GetCurrentThreadId()), Hex(hCryptProv), Hex(type));
  }
}

}  // namespace zarext
