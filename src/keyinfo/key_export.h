// What the exports of public and private keys share: the provider's export of a key into a buffer
// of fixed size, and where the key lies in the caller's block.
#ifndef ZAREXT_KEYINFO_KEY_EXPORT_H_
#define ZAREXT_KEYINFO_KEY_EXPORT_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstddef>
#include <optional>
#include <span>

#include "frame/export_frame.h"

namespace zarext {

// The OID's room between the structure and the key, terminator included: callers find the key
// behind it.
inline constexpr std::size_t kOidAreaSize = 32;

// Exports the key as a blob of the given type and stores the blob's size. Nothing if it succeeded,
// else the provider's error, which is 0 where the provider sets none; ERROR_MORE_DATA for a
// provider that reports more than it was given room for: it has not exported the key.
inline std::optional<ErrorCode> ExportKeyInto(HCRYPTKEY key, DWORD blobType, std::span<BYTE> buffer,
                                              DWORD* size) {
  *size = static_cast<DWORD>(buffer.size());
  if (!CryptExportKey(key, 0, blobType, 0, buffer.data(), size)) {
    return GetLastError();
  }
  if (*size > buffer.size()) {
    return ErrorCode{ERROR_MORE_DATA};
  }
  return std::nullopt;
}

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_KEY_EXPORT_H_
