#include "provider/service.h"

namespace zarext::provider {
namespace {

// A hash given to Encrypt or Decrypt takes the plain text.
void HashPlain(HCRYPTPROV hProv, HCRYPTHASH hHash, View plain) {
  if (hHash != 0) {
    HashData(hProv, hHash, plain.data(), static_cast<DWORD>(plain.size()), 0);
  }
}

}  // namespace

void Encrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
             BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen) {
  RequireContext(hProv);
  const auto object = RequireSessionKey(hProv, hKey);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
  const std::lock_guard lock(object->mutex);
  const DWORD length = *pdwDataLen;
  const std::size_t needed = object->key.EncryptedLength(length, final != FALSE);
  Require(needed <= MAXDWORD, NTE_BAD_LEN);
  *pdwDataLen = static_cast<DWORD>(needed);
  if (!pbData) {
    return;
  }
  Require(dwBufLen >= needed && dwBufLen >= length, ERROR_MORE_DATA);
  HashPlain(hProv, hHash, {pbData, length});
  const Bytes encrypted = object->key.Encrypt({pbData, length}, final != FALSE);
  std::copy(encrypted.begin(), encrypted.end(), pbData);
}

void Decrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
             BYTE* pbData, DWORD* pdwDataLen) {
  RequireContext(hProv);
  const auto object = RequireSessionKey(hProv, hKey);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pdwDataLen != nullptr && (pbData != nullptr || *pdwDataLen == 0),
          ERROR_INVALID_PARAMETER);
  const std::lock_guard lock(object->mutex);
  const Bytes plain = object->key.Decrypt({pbData, *pdwDataLen}, final != FALSE);
  HashPlain(hProv, hHash, plain);
  std::copy(plain.begin(), plain.end(), pbData);
  *pdwDataLen = static_cast<DWORD>(plain.size());
}

}  // namespace zarext::provider
