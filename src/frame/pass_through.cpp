// Exports that trace and report success. Their result is a constant: if the frame catches
// something, the last error is set and the result is still success, which the framework's callers
// rely on. Nothing is written to any output parameter.
#include "frame/export_frame.h"

using namespace zarext;

namespace {

BOOL TraceAndSucceed(const char* exportName, Callback<ExportTrace&> work) {
  CallInFrame(exportName, work);
  return TRUE;
}

}  // namespace

extern "C" {

BOOL WINAPI ZarCertVerifyCTLUsage(DWORD /*dwEncodingType*/, DWORD dwSubjectType,
                                  void* /*pvSubject*/, PCTL_USAGE /*pSubjectUsage*/,
                                  DWORD /*dwFlags*/, PCTL_VERIFY_USAGE_PARA /*pVerifyUsagePara*/,
                                  PCTL_VERIFY_USAGE_STATUS /*pVerifyUsageStatus*/) {
  return TraceAndSucceed("ZarCertVerifyCTLUsage", [&](ExportTrace& trace) {
    trace.Line("dwSubjectType = %x.", Hex(dwSubjectType));
  });
}

// The second argument is read as a certificate's information, not as the framework's revocation
// type: who reads traces finds a signature algorithm there. A number in its place counts as none.
BOOL WINAPI ZarCertVerifyRevocation(DWORD dwCertEncodingType, const CERT_INFO* pCertInfo,
                                    DWORD cCrlInfo, const PCRL_INFO* /*rgpCrlInfo*/) {
  return TraceAndSucceed("ZarCertVerifyRevocation", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x, cCrlInfo = %i.", Hex(dwCertEncodingType), Int(cCrlInfo));
    if (!IS_INTRESOURCE(pCertInfo)) {
      trace.Line("Algorithm.pszObjId = %s.", pCertInfo->SignatureAlgorithm.pszObjId);
    }
  });
}

BOOL WINAPI ZarCryptDecodeObject(DWORD dwCertEncodingType, LPCSTR /*lpszStructType*/,
                                 const BYTE* /*pbEncoded*/, DWORD cbEncoded, DWORD /*dwFlags*/,
                                 void* /*pvStructInfo*/, DWORD* /*pcbStructInfo*/) {
  return TraceAndSucceed("ZarCryptDecodeObject", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x (cbEncoded=%i).", Hex(dwCertEncodingType), Int(cbEncoded));
  });
}

// Built, but not in the export list: ordinal 22 stays empty for those who link by ordinal.
BOOL WINAPI ZarCryptDecodeObjectEx(DWORD dwCertEncodingType, LPCSTR /*lpszStructType*/,
                                   const BYTE* /*pbEncoded*/, DWORD cbEncoded, DWORD /*dwFlags*/,
                                   PCRYPT_DECODE_PARA /*pDecodePara*/, void* /*pvStructInfo*/,
                                   DWORD* /*pcbStructInfo*/) {
  return TraceAndSucceed("ZarCryptDecodeObjectEx", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x (cbEncoded=%i).", Hex(dwCertEncodingType), Int(cbEncoded));
  });
}

BOOL WINAPI ZarCryptEncodeObject(DWORD dwCertEncodingType, LPCSTR /*lpszStructType*/,
                                 const void* /*pvStructInfo*/, BYTE* /*pbEncoded*/,
                                 DWORD* /*pcbEncoded*/) {
  return TraceAndSucceed("ZarCryptEncodeObject", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x.", Hex(dwCertEncodingType));
  });
}

BOOL WINAPI ZarCryptEncodeObjectEx(DWORD dwCertEncodingType, LPCSTR /*lpszStructType*/,
                                   const void* /*pvStructInfo*/, DWORD /*dwFlags*/,
                                   PCRYPT_ENCODE_PARA /*pEncodePara*/, void* /*pvEncoded*/,
                                   DWORD* /*pcbEncoded*/) {
  return TraceAndSucceed("ZarCryptEncodeObjectEx", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x.", Hex(dwCertEncodingType));
  });
}

// The wide name is printed with %s, so who reads the trace sees its octets up to the first 0: of a
// Latin name the first character. The result is one zero octet, not a wide terminator: a caller
// that reads it as wide text reads on.
LPCWSTR WINAPI ZarCryptFindLocalizedName(LPCWSTR pwszCryptName) {
  TraceAndSucceed("ZarCryptFindLocalizedName", [&](ExportTrace& trace) {
    trace.Line("pwszCryptName = %s.", reinterpret_cast<const char*>(pwszCryptName));
  });
  static constexpr char kEmpty[] = "";
  return reinterpret_cast<LPCWSTR>(kEmpty);
}

BOOL WINAPI ZarCryptFormatObject(DWORD dwCertEncodingType, DWORD /*dwFormatType*/,
                                 DWORD /*dwFormatStrType*/, void* /*pFormatStruct*/,
                                 LPCSTR /*lpszStructType*/, const BYTE* /*pbEncoded*/,
                                 DWORD /*cbEncoded*/, void* /*pbFormat*/, DWORD* /*pcbFormat*/) {
  return TraceAndSucceed("ZarCryptFormatObject", [&](ExportTrace& trace) {
    trace.Line("dwCertEncodingType = %x.", Hex(dwCertEncodingType));
  });
}

}  // extern "C"
