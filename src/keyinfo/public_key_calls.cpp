#include "keyinfo/public_key_calls.h"

#include "asn1/oid.h"

namespace zarext {
namespace {

// Under which "Zarvel CSP" is registered; its RSA companion has PROV_RSA_FULL.
constexpr DWORD kOwnProviderType = 25;

}  // namespace

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
  DWORD size = sizeof type;
  if (!CryptGetProvParam(hCryptProv, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0)) {
    const ErrorCode error = GetLastError();
    trace.Line("EXT : %s : CryptGetProvParam hProv=%x, error = %x.", name, Hex(hCryptProv),
               Hex(error));
    throw error;
  }
  if (type != kOwnProviderType && type != PROV_RSA_FULL) {
    trace.Line("EXT : %s : CryptGetProvParam[%x] : hProv=%x, PP_PROVTYPE=%x.", name,
               Hex(GetCurrentThreadId()), Hex(hCryptProv), Hex(type));
  }
}

}  // namespace zarext
