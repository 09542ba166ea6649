// The public half of a container's key pair as a CERT_PUBLIC_KEY_INFO: the provider's blob, whole,
// under an OID chosen by the key's ALG_ID.
#include <algorithm>
#include <cstring>
#include <vector>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "keyinfo/algorithm_map.h"
#include "keyinfo/key_blob.h"
#include "keyinfo/key_calls.h"

namespace zarext {
namespace {

// A longer blob fails in the provider.
constexpr DWORD kBlobCapacity = 1024;

// Writes the structure, the OID behind it and the blob behind the OID's area, into a block that the
// caller takes to be large enough. Algorithm.Parameters stays as the caller had it.
void LayOut(const std::vector<BYTE>& blob, CERT_PUBLIC_KEY_INFO* pInfo) {
  const char* oid = OidOfAlgorithm(BlobAlgorithm(blob));
  char* oidArea = reinterpret_cast<char*>(pInfo + 1);
  BYTE* blobArea = reinterpret_cast<BYTE*>(oidArea) + kOidAreaSize;
  std::memcpy(oidArea, oid, std::strlen(oid) + 1);
  std::copy(blob.begin(), blob.end(), blobArea);
  pInfo->Algorithm.pszObjId = oidArea;
  pInfo->PublicKey.cbData = static_cast<DWORD>(blob.size());
  pInfo->PublicKey.pbData = blobArea;
  pInfo->PublicKey.cUnusedBits = 0;
}

// The size that is reported counts the blob `blobsInSize` times.
void ExportPublicKey(ExportTrace& trace, DWORD blobsInSize, HCRYPTPROV hCryptProv, DWORD dwKeySpec,
                     CERT_PUBLIC_KEY_INFO* pInfo, DWORD* pcbInfo) {
  NoteProviderType(trace, hCryptProv);
  const UniqueCryptKey key = OpenUserKey(hCryptProv, dwKeySpec, [&](ErrorCode error) {
    trace.LineAndThrow(error, "CryptGetUserKey hProv=%x, error = %x.", Hex(hCryptProv), Hex(error));
  });
  std::vector<BYTE> blob(kBlobCapacity);
  blob.resize(ExportKeyInto(key.Get(), PUBLICKEYBLOB, blob, [&](ErrorCode error) {
    trace.LineAndThrow(error, "CryptExportKey hKey=%x, error = %x.", Hex(key.Get()), Hex(error));
  }));
  // Both variants write the plain one's name here, as who reads traces knows it.
  trace.WholeLine("EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=%x, ALG_ID = %x.",
                  Hex(key.Get()), Hex(BlobAlgorithm(blob)));
  if (pInfo != nullptr) {
    LayOut(blob, pInfo);
  } else if (pcbInfo != nullptr) {
    // Not what LayOut writes (48 + 32 + the blob): callers have allocated by these two rules for as
    // long as there are callers.
    *pcbInfo = blobsInSize * static_cast<DWORD>(blob.size()) + 56;
  }
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

BOOL WINAPI ZarExportPublicKeyInfo(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                   PCERT_PUBLIC_KEY_INFO pInfo, DWORD* pcbInfo) {
  return RunExport("ZarExportPublicKeyInfo", [&](ExportTrace& trace) {
    trace.Line("dwKeySpec = %i.", Int(dwKeySpec));
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(hCryptProv != 0);
    ExportPublicKey(trace, 1, hCryptProv, dwKeySpec, pInfo, pcbInfo);
  });
}

// The caller's OID is only traced, in place of the key specification; the one that is written
// depends on the key alone. The framework asks with the OID that it has at hand, and certificate
// requests carry the key's.
BOOL WINAPI ZarExportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwKeySpec,
                                     DWORD dwCertEncodingType, LPSTR pszPublicKeyObjId,
                                     DWORD dwFlags, void* pvAuxInfo, PCERT_PUBLIC_KEY_INFO pInfo,
                                     DWORD* pcbInfo) {
  return RunExport("ZarExportPublicKeyInfoEx", [&](ExportTrace& trace) {
    if (pszPublicKeyObjId == nullptr) {
      trace.Line("dwKeySpec = %i.", Int(dwKeySpec));
    } else {
      trace.Line("PublicKeyObjId = %s.", pszPublicKeyObjId);
    }
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(dwFlags == 0 && pvAuxInfo == nullptr && hCryptProv != 0);
    ExportPublicKey(trace, 2, hCryptProv, dwKeySpec, pInfo, pcbInfo);
  });
}

}  // extern "C"
