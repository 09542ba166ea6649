// Public keys handed over in memory of the caller's own; no provider is called.
#include <algorithm>
#include <new>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "keyinfo/key_blob.h"
#include "keyinfo/key_calls.h"

namespace zarext {
namespace {

// The size of a copy, which has one octet more.
std::uint32_t CopySize(std::size_t size) { return CheckedSize(std::uint64_t{size} + 1); }

// A LocalAlloc block with a copy of the octets and a zero octet behind it. Throws std::bad_alloc.
UniqueLocalMemory CopyForCaller(OctetSpan octets) {
  UniqueLocalMemory block(LocalAlloc(LPTR, CopySize(octets.size())));
  if (!block) {
    throw std::bad_alloc();
  }
  std::copy(octets.begin(), octets.end(), static_cast<BYTE*>(block.Get()));
  return block;
}

template <typename T>
void StoreIfWanted(T* place, T value) {
  if (place != nullptr) {
    *place = value;
  }
}

void HandOverBlob(OctetSpan blob, BYTE** ppPublicKey, DWORD* pcbPublicKey, BYTE** ppbParams,
                  DWORD* pcbParams) {
  UniqueLocalMemory copy = CopyForCaller(blob);
  if (ppPublicKey != nullptr) {
    *ppPublicKey = static_cast<BYTE*>(copy.Detach());
  }
  StoreIfWanted(pcbPublicKey, static_cast<DWORD>(blob.size()));
  StoreIfWanted<BYTE*>(ppbParams, nullptr);
  StoreIfWanted<DWORD>(pcbParams, 0);
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

// The octets go out as they stand for every arc: no OCTET STRING is opened and no blob is built
// here. Callers open it themselves.
BOOL WINAPI ZarConvertPublicKeyInfo(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo,
                                    DWORD dwFlags, DWORD /*dwReserved*/, BYTE** ppvBlob,
                                    DWORD* pcbBlob) {
  return RunExport("ZarConvertPublicKeyInfo", [&](ExportTrace& trace) {
    trace.Line("dwFlags = %x.", Hex(dwFlags));
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(pInfo != nullptr);
    const CRYPT_BIT_BLOB& key = pInfo->PublicKey;
    trace.Line("Algorithm = %s.", pInfo->Algorithm.pszObjId);
    RequireOwnAlgorithm(trace, "pszObjId", pInfo->Algorithm.pszObjId);
    RequireParameter(key.pbData != nullptr || key.cbData == 0);
    // Detached whether or not the caller takes it: without a place for the pointer it is lost.
    BYTE* block = static_cast<BYTE*>(CopyForCaller(OctetsOf(key.pbData, key.cbData)).Detach());
    StoreIfWanted(ppvBlob, block);
    StoreIfWanted(pcbBlob, key.cbData);
  });
}

// A head that is neither the provider's own nor an RSA blob's gives success without any output:
// callers of the framework see an empty key then, not an error.
BOOL WINAPI ZarEncodePublicKeyAndParameters(DWORD dwCertEncodingType, LPSTR pszPublicKeyObjId,
                                            BYTE* pbPubKey, DWORD cbPubKey, DWORD dwFlags,
                                            void* /*pvAuxInfo*/, BYTE** ppPublicKey,
                                            DWORD* pcbPublicKey, BYTE** ppbParams,
                                            DWORD* pcbParams) {
  return RunExport("ZarEncodePublicKeyAndParameters", [&](ExportTrace& trace) {
    trace.Line("dwEncodingType=%x, dwFlags = %x, Algorithm = %s.", Hex(dwCertEncodingType),
               Hex(dwFlags), pszPublicKeyObjId);
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(dwFlags == 0 && pbPubKey != nullptr && cbPubKey != 0);
    RequireOwnAlgorithm(trace, "lpcPublicKeyOID", pszPublicKeyObjId);
    // Refuses a length that no copy has, before any of the octets is read.
    CopySize(cbPubKey);
    const OctetSpan blob(pbPubKey, cbPubKey);
    trace.Line("PublicKey[%i] = ... %x %x %x.", Int(cbPubKey), OctetFromEnd(blob, 3),
               OctetFromEnd(blob, 2), OctetFromEnd(blob, 1));
    const std::uint8_t type = OctetAt(blob, 0);
    const std::uint8_t version = OctetAt(blob, 1);
    if (type == kPublicKeyBlobType && version == kOwnBlobVersion) {
      trace.Line("aiKey = %x, ul = %x, exp = %x.", Hex(BlobAlgorithm(blob)),
                 Hex(WordAt(blob, kRsaBitLengthOffset)), Hex(WordAt(blob, kRsaExponentOffset)));
      HandOverBlob(blob, ppPublicKey, pcbPublicKey, ppbParams, pcbParams);
    } else if (type == kPublicKeyBlobType && version == kCryptoProBlobVersion) {
      trace.Line("CryptoPro : aiKey = %x.", Hex(BlobAlgorithm(blob)));
    }
  });
}

}  // extern "C"
