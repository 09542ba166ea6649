// Checks and provider calls that the exports of keys share.
#ifndef ZAREXT_KEYINFO_KEY_CALLS_H_
#define ZAREXT_KEYINFO_KEY_CALLS_H_

#include <cstddef>
#include <span>

#include "frame/export_frame.h"
#include "frame/handles.h"

namespace zarext {

// The OID's room between an exported structure and the key, terminator included: callers find the
// key behind it.
inline constexpr std::size_t kOidAreaSize = 32;

// Throws ERROR_INVALID_PARAMETER unless the type is X.509, PKCS #7 or both.
void RequireEncodingType(DWORD dwCertEncodingType);

// Traces "<label> = <OID>" and throws NTE_BAD_ALGID unless the OID lies in one of the arcs that the
// module serves. The OID may be null.
void RequireOwnAlgorithm(ExportTrace& trace, const char* label, const char* oid);

// Reads the provider's type. One that is not expected is only traced: callers work through
// providers of other types. Throws the provider's error if it does not say its type.
void NoteProviderType(ExportTrace& trace, HCRYPTPROV hCryptProv);

// The container's key. If the provider fails, calls fail(code) with its error; `fail` throws.
template <typename Fail>
UniqueCryptKey OpenUserKey(HCRYPTPROV hCryptProv, DWORD dwKeySpec, Fail fail) {
  HCRYPTKEY key = 0;
  if (!CryptGetUserKey(hCryptProv, dwKeySpec, &key)) {
    fail(GetLastError());
  }
  return UniqueCryptKey(key);
}

// Exports the key as a blob of the given type and returns the blob's size. If the provider fails,
// calls fail(code) with its error, which is 0 where it sets none, and with ERROR_MORE_DATA if it
// reports more than it was given room for: it has not exported the key. `fail` throws.
template <typename Fail>
DWORD ExportKeyInto(HCRYPTKEY key, DWORD blobType, std::span<BYTE> buffer, Fail fail) {
  auto size = static_cast<DWORD>(buffer.size());
  if (!CryptExportKey(key, 0, blobType, 0, buffer.data(), &size)) {
    fail(GetLastError());
  }
  if (size > buffer.size()) {
    fail(ErrorCode{ERROR_MORE_DATA});
  }
  return size;
}

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_KEY_CALLS_H_
