#include "keyinfo/key_calls.h"

#include "asn1/oid.h"
#include "frame/encoding_type.h"
#include "frame/provider_type.h"

namespace zarext {

void RequireEncodingType(DWORD dwCertEncodingType) {
  RequireParameter(dwCertEncodingType == X509_ASN_ENCODING ||
                   dwCertEncodingType == PKCS_7_ASN_ENCODING ||
                   dwCertEncodingType == kBothEncodings);
}

void RequireOwnAlgorithm(ExportTrace& trace, const char* label, const char* oid) {
  if (!IsOwnAlgorithmOid(oid)) {
    constexpr auto kError = static_cast<ErrorCode>(NTE_BAD_ALGID);
    trace.LineAndThrow(kError, "%s = %s, error = %x.", label, oid, Hex(kError));
  }
}

void NoteProviderType(ExportTrace& trace, HCRYPTPROV hCryptProv) {
  const DWORD type = ReadProviderType(hCryptProv, [&](ErrorCode error) {
    trace.LineAndThrow(error, "CryptGetProvParam hProv=%x, error = %x.", Hex(hCryptProv),
                       Hex(error));
  });
  if (!IsServedProviderType(type)) {
    trace.Line("CryptGetProvParam[%x] : hProv=%x, PP_PROVTYPE=%x.", Hex(GetCurrentThreadId()),
               Hex(hCryptProv), Hex(type));
  }
}

}  // namespace zarext
