// Private keys between a container and a CRYPT_PRIVATE_KEY_INFO. The provider makes and takes DER
// PrivateKeyInfo documents.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "asn1/oid.h"
#include "frame/export_frame.h"
#include "frame/handles.h"
#include "keyinfo/key_calls.h"
#include "keyinfo/last_import.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/secret_buffer.h"

namespace zarext {
namespace {

// The provider's own numbers: a private key as a DER PrivateKeyInfo, and what it tells about the
// container of the last import.
constexpr DWORD kPrivateKeyInfoBlob = 0x30;
constexpr DWORD PP_PROFILE = 0x38;
constexpr DWORD PP_CNT_URL = 0x2E;

constexpr DWORD kExportCapacity = 4096;
// What a size query answers, whatever the key's length is. Callers allocate by it.
constexpr DWORD kReportedSize = 2048;

// What a document, or a blob of another kind, gives out.
struct ExportedKey {
  const char* oid;
  OctetSpan octets;
};

ExportedKey OpenDocument(TPKCS8& document, OctetSpan exported) {
  if (document.Read(TPKCS8::kPrivateKeyInfo, exported) != 0) {
    return {"1.3.6.1.4.1.32473.1.5.8", exported};
  }
  const auto& record = std::get<PrivateKeyRecord>(*document.Decoded());
  return {record.algorithm, record.privateKey};
}

// Writes the structure, the OID behind it (cut to its area) and the key behind the OID's area. Of
// pAttributes only the low 32 bits are written, and the parameters' pointer is not: callers pass a
// zeroed block of the size that a query answers.
void LayOut(const ExportedKey& key, CRYPT_PRIVATE_KEY_INFO* pPrivateKeyInfo) {
  char* oidArea = reinterpret_cast<char*>(pPrivateKeyInfo + 1);
  BYTE* keyArea = reinterpret_cast<BYTE*>(oidArea) + kOidAreaSize;
  const std::string_view oid = std::string_view(key.oid).substr(0, kOidAreaSize - 1);
  *std::copy(oid.begin(), oid.end(), oidArea) = '\0';
  std::copy(key.octets.begin(), key.octets.end(), keyArea);
  pPrivateKeyInfo->Version = 0;
  pPrivateKeyInfo->Algorithm.pszObjId = oidArea;
  pPrivateKeyInfo->Algorithm.Parameters.cbData = 0;
  pPrivateKeyInfo->PrivateKey.cbData = static_cast<DWORD>(key.octets.size());
  pPrivateKeyInfo->PrivateKey.pbData = keyArea;
  std::memset(&pPrivateKeyInfo->pAttributes, 0, sizeof(DWORD));
}

void ExportPrivateKey(ExportTrace& trace, HCRYPTPROV hCryptProv, DWORD dwKeySpec,
                      CRYPT_PRIVATE_KEY_INFO* pPrivateKeyInfo, DWORD* pcbPrivateKeyInfo) {
  const UniqueCryptKey userKey = OpenUserKey(hCryptProv, dwKeySpec, [&](ErrorCode error) {
    trace.LineAndThrow(error, "CryptGetUserKey = %x.", Hex(error));
  });
  SecretBuffer buffer(kExportCapacity);
  const DWORD size = ExportKeyInto(
      userKey.Get(), kPrivateKeyInfoBlob, {buffer.Data(), buffer.Size()},
      [&](ErrorCode error) { trace.LineAndThrow(error, "CryptExportKey = %x.", Hex(error)); });
  TPKCS8 document;
  const ExportedKey key = OpenDocument(document, OctetSpan(buffer.Data(), size));
  if (pPrivateKeyInfo != nullptr) {
    LayOut(key, pPrivateKeyInfo);
    trace.Line("Algorithm.pszObjId = %s, Parameters.cbData = %i.",
               pPrivateKeyInfo->Algorithm.pszObjId,
               Int(pPrivateKeyInfo->Algorithm.Parameters.cbData));
  } else if (pcbPrivateKeyInfo != nullptr) {
    *pcbPrivateKeyInfo = kReportedSize;
  }
}

void TraceImport(ExportTrace& trace, const CRYPT_PRIVATE_KEY_INFO& info) {
  trace.Line("Algorithm.pszObjId = %s, Version = %x, PrivateKey.cbData = %i, Attr = %p.",
             info.Algorithm.pszObjId, Hex(info.Version), Int(info.PrivateKey.cbData),
             static_cast<const void*>(info.pAttributes));
  if (info.pAttributes != nullptr) {
    trace.Line("cAttr = %i, Parameters.cbData = %i.", Int(info.pAttributes->cAttr),
               Int(info.Algorithm.Parameters.cbData));
  }
}

// One octet longer than what it holds.
std::unique_ptr<SecretBuffer> MakeDocumentBuffer(std::uint64_t size) {
  return std::make_unique<SecretBuffer>(CheckedSize(size + 1));
}

// The document to import: the caller's key if it is one already, else one made from the structure.
// A length without octets, like anything else that gives no document, is reported as no memory.
std::unique_ptr<SecretBuffer> MakeDocument(const CRYPT_PRIVATE_KEY_INFO& info) {
  const OctetSpan key = OctetsOf(info.PrivateKey.pbData, info.PrivateKey.cbData);
  TPKCS8 document;
  if (document.Read(TPKCS8::kPrivateKeyInfo, key) == 0) {
    auto copy = MakeDocumentBuffer(key.size());
    std::copy(key.begin(), key.end(), copy->Data());
    return copy;
  }
  PrivateKeyRecord record;
  record.algorithm = info.Algorithm.pszObjId;
  record.parameters = OctetsOf(info.Algorithm.Parameters.pbData, info.Algorithm.Parameters.cbData);
  record.privateKey = key;
  const Pkcs8Record input = record;
  if (key.size() != info.PrivateKey.cbData || document.Build(&input) != 0) {
    throw std::bad_alloc();
  }
  auto encoded = MakeDocumentBuffer(static_cast<std::uint64_t>(document.EncodedSize()));
  document.Encode(encoded->Data());
  return encoded;
}

// A key that exists already counts as imported, so that a second import succeeds too. The handle is
// left open: it ends with the caller's context.
void ImportDocument(ExportTrace& trace, HCRYPTPROV hCryptProv, SecretBuffer& document,
                    DWORD dwFlags) {
  HCRYPTKEY key = 0;
  const auto size = static_cast<DWORD>(document.Size() - 1);
  if (!CryptImportKey(hCryptProv, document.Data(), size, 0, dwFlags, &key)) {
    const ErrorCode error = GetLastError();
    trace.Line("CryptImportKey = %x.", Hex(error));
    if (error != static_cast<ErrorCode>(NTE_EXISTS)) {
      throw error;
    }
  }
}

// Failures are traced and change nothing.
void RecordParameter(ExportTrace& trace, HCRYPTPROV hCryptProv, DWORD parameter, const char* name,
                     void* buffer, DWORD size) {
  if (!CryptGetProvParam(hCryptProv, parameter, static_cast<BYTE*>(buffer), &size, 0)) {
    const ErrorCode error = GetLastError();
    trace.Line("CryptGetProvParam(%s) = %x.", name, Hex(error));
  }
}

void ImportPrivateKey(ExportTrace& trace, HCRYPTPROV hCryptProv, const CRYPT_PRIVATE_KEY_INFO& info,
                      DWORD dwFlags) {
  std::fill(std::begin(LastProfile), std::end(LastProfile), static_cast<unsigned char>(0));
  std::fill(std::begin(LastContainerUrl), std::end(LastContainerUrl), '\0');
  const std::unique_ptr<SecretBuffer> document = MakeDocument(info);
  ImportDocument(trace, hCryptProv, *document, dwFlags);
  RecordParameter(trace, hCryptProv, PP_PROFILE, "PP_PROFILE", LastProfile, sizeof LastProfile);
  RecordParameter(trace, hCryptProv, PP_CNT_URL, "PP_CNT_URL", LastContainerUrl,
                  sizeof LastContainerUrl);
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

BOOL WINAPI ZarImportPrivKeyFunc(HCRYPTPROV hCryptProv, CRYPT_PRIVATE_KEY_INFO* pPrivateKeyInfo,
                                 DWORD dwFlags, void* /*pvAuxInfo*/) {
  return RunExport("ZarImportPrivKeyFunc", [&](ExportTrace& trace) -> BOOL {
    trace.Line("hCryptProv = %x, dwFlags = %x.", Hex(hCryptProv), Hex(dwFlags));
    RequireParameter(pPrivateKeyInfo != nullptr);
    TraceImport(trace, *pPrivateKeyInfo);
    // The code is the result and the last error stays: a caller that compares with FALSE takes
    // the refusal for a success.
    if (!IsOwnAlgorithmOid(pPrivateKeyInfo->Algorithm.pszObjId)) {
      return static_cast<BOOL>(NTE_BAD_ALGID);
    }
    ImportPrivateKey(trace, hCryptProv, *pPrivateKeyInfo, dwFlags);
    return TRUE;
  });
}

// The structure always comes with version 0 and without parameters and attributes.
BOOL WINAPI ZarExportPrivKeyFunc(HCRYPTPROV hCryptProv, DWORD dwKeySpec, LPSTR pszPrivateKeyObjId,
                                 DWORD /*dwFlags*/, void* /*pvAuxInfo*/,
                                 CRYPT_PRIVATE_KEY_INFO* pPrivateKeyInfo,
                                 DWORD* pcbPrivateKeyInfo) {
  return RunExport("ZarExportPrivKeyFunc", [&](ExportTrace& trace) {
    trace.Line("hCryptProv = %x, dwKeySpec = %i, pszPrivateKeyObjId = %s.", Hex(hCryptProv),
               Int(dwKeySpec), pszPrivateKeyObjId);
    ExportPrivateKey(trace, hCryptProv, dwKeySpec, pPrivateKeyInfo, pcbPrivateKeyInfo);
  });
}

}  // extern "C"
