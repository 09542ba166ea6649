// A certificate's public key into the provider.
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "asn1/tags.h"
#include "asn1/tasn1.h"
#include "frame/export_frame.h"
#include "keyinfo/algorithm_map.h"
#include "keyinfo/import_blob.h"
#include "keyinfo/key_blob.h"
#include "keyinfo/key_calls.h"

namespace zarext {
namespace {

struct ImportVariant {
  const char* rebuiltImport;  // what the import of a rebuilt blob is traced as
  void (*traceBits)(ExportTrace& trace, DWORD cbData, OctetSpan bits);
  void (*traceKey)(ExportTrace& trace, OctetSpan key);
};

// The upper-case R is kept: who reads traces searches for the word as it has always been written.
constexpr ImportVariant kPlain = {"CRyptoPro : CryptImportKey",
                                  [](ExportTrace& trace, DWORD cbData, OctetSpan bits) {
                                    trace.Line("PublicKey[%i] = ... %x %x %x.", Int(cbData),
                                               OctetFromEnd(bits, 3), OctetFromEnd(bits, 2),
                                               OctetFromEnd(bits, 1));
                                  },
                                  [](ExportTrace&, OctetSpan) {}};

constexpr ImportVariant kExtended = {
    "CryptoPro : CryptImportKey",
    [](ExportTrace& trace, DWORD cbData, OctetSpan bits) {
      trace.Line("PublicKey[%i] = %x %x %x %x %x  ...%x %x.", Int(cbData), OctetAt(bits, 0),
                 OctetAt(bits, 1), OctetAt(bits, 2), OctetAt(bits, 3), OctetAt(bits, 4),
                 OctetFromEnd(bits, 2), OctetFromEnd(bits, 1));
    },
    [](ExportTrace& trace, OctetSpan key) {
      trace.Line("Data[%i]=%x %x %x %x %x ....", Int(key.size()), OctetAt(key, 0), OctetAt(key, 1),
                 OctetAt(key, 2), OctetAt(key, 3), OctetAt(key, 4));
    }};

// Hands the blob to the provider. A failure is traced as `call` and thrown.
void ImportBlob(ExportTrace& trace, const char* call, HCRYPTPROV hCryptProv, OctetSpan blob,
                HCRYPTKEY* phKey) {
  RequirePlace(trace, call, phKey);
  if (!CryptImportKey(hCryptProv, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, phKey)) {
    ThrowFailedCall(trace, call);
  }
}

// The blob for a key that lies in an OCTET STRING. Without memory for the document it is empty, so
// that callers see the provider's refusal and not NTE_NO_MEMORY.
std::vector<std::uint8_t> RebuildBlob(ExportTrace& trace, const ImportVariant& variant,
                                      const char* oid, OctetSpan bits) {
  const std::unique_ptr<TASN1> document(new (std::nothrow) TASN1(kTagSequence));
  if (document == nullptr) {
    return {};
  }
  const std::optional<OctetSpan> key = ExtractKey(*document, bits);
  if (!key) {
    // Signed: callers know this failure as NTE_NO_MEMORY.
    throw static_cast<std::int32_t>(NTE_BAD_KEY);
  }
  variant.traceKey(trace, *key);
  return BuildImportBlob(ImportRuleOf(oid), *key);
}

void ImportPublicKey(ExportTrace& trace, const ImportVariant& variant, HCRYPTPROV hCryptProv,
                     const CERT_PUBLIC_KEY_INFO& info, HCRYPTKEY* phKey) {
  const char* oid = info.Algorithm.pszObjId;
  const OctetSpan bits = OctetsOf(info.PublicKey.pbData, info.PublicKey.cbData);
  trace.Line("Algorithm = %s.", oid);
  RequireOwnAlgorithm(trace, "pszObjId", oid);
  const bool asOctetString = TravelsAsOctetString(oid);
  if (asOctetString) {
    // Refuses a length that no blob has, before any of the octets is read.
    ImportBlobSize(info.PublicKey.cbData);
  }
  variant.traceBits(trace, info.PublicKey.cbData, bits);
  NoteProviderType(trace, hCryptProv);
  if (asOctetString) {
    static constexpr BYTE kNone = 0;  // a provider may look into a blob before it asks its length
    const std::vector<std::uint8_t> blob = RebuildBlob(trace, variant, oid, bits);
    ImportBlob(trace, variant.rebuiltImport, hCryptProv,
               blob.empty() ? OctetSpan(&kNone, 0) : OctetSpan(blob), phKey);
  } else {
    ImportBlob(trace, "CryptImportKey", hCryptProv, bits, phKey);
  }
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

BOOL WINAPI ZarImportPublicKeyInfo(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType,
                                   PCERT_PUBLIC_KEY_INFO pInfo, HCRYPTKEY* phKey) {
  return RunExport("ZarImportPublicKeyInfo", [&](ExportTrace& trace) {
    trace.Line("hCryptProv = %x.", Hex(hCryptProv));
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(pInfo != nullptr);
    ImportPublicKey(trace, kPlain, hCryptProv, *pInfo, phKey);
  });
}

// The caller's ALG_ID is only traced: the framework passes 0, or the ALG_ID of a signature.
BOOL WINAPI ZarImportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType,
                                     PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                                     void* pvAuxInfo, HCRYPTKEY* phKey) {
  return RunExport("ZarImportPublicKeyInfoEx", [&](ExportTrace& trace) {
    trace.Line("hCryptProv = %x, aiKeyAlg = %x, dwFlags = %x.", Hex(hCryptProv), Hex(aiKeyAlg),
               Hex(dwFlags));
    RequireEncodingType(dwCertEncodingType);
    RequireParameter(dwFlags == 0 && pvAuxInfo == nullptr && pInfo != nullptr);
    ImportPublicKey(trace, kExtended, hCryptProv, *pInfo, phKey);
  });
}

}  // extern "C"
