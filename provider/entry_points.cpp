// The exported functions: each calls the C++ function of its name and turns a thrown code into the
// last error.

#include <new>

#include "provider/service.h"

namespace provider = zarext::provider;

namespace {

using zarext::provider::Error;

template <typename Body>
BOOL Answer(Body body) noexcept {
  try {
    body();
    return TRUE;
  } catch (const Error& error) {
    SetLastError(error.Code());
  } catch (const std::bad_alloc&) {
    SetLastError(static_cast<DWORD>(NTE_NO_MEMORY));
  } catch (...) {
    SetLastError(static_cast<DWORD>(NTE_FAIL));
  }
  return FALSE;
}

}  // namespace

extern "C" {

BOOL WINAPI CPAcquireContext(HCRYPTPROV* phProv, LPCSTR pszContainer, DWORD dwFlags,
                             const provider::ProviderTable* pVTable) {
  return Answer([&] { provider::AcquireContext(phProv, pszContainer, dwFlags, pVTable); });
}

BOOL WINAPI CPReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  return Answer([&] { provider::ReleaseContext(hProv, dwFlags); });
}

BOOL WINAPI CPGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                           DWORD dwFlags) {
  return Answer([&] { provider::GetProvParam(hProv, dwParam, pbData, pdwDataLen, dwFlags); });
}

BOOL WINAPI CPSetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Answer([&] { provider::SetProvParam(hProv, dwParam, pbData, dwFlags); });
}

BOOL WINAPI CPGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  return Answer([&] { provider::GenRandom(hProv, dwLen, pbBuffer); });
}

BOOL WINAPI CPGenKey(HCRYPTPROV hProv, ALG_ID algId, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Answer([&] { provider::GenKey(hProv, algId, dwFlags, phKey); });
}

BOOL WINAPI CPDeriveKey(HCRYPTPROV hProv, ALG_ID algId, HCRYPTHASH hBaseData, DWORD dwFlags,
                        HCRYPTKEY* phKey) {
  return Answer([&] { provider::DeriveKey(hProv, algId, hBaseData, dwFlags, phKey); });
}

BOOL WINAPI CPDestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey) {
  return Answer([&] { provider::DestroyKey(hProv, hKey); });
}

BOOL WINAPI CPDuplicateKey(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                           HCRYPTKEY* phKey) {
  return Answer([&] { provider::DuplicateKey(hProv, hKey, pdwReserved, dwFlags, phKey); });
}

BOOL WINAPI CPGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  return Answer([&] { provider::GetUserKey(hProv, dwKeySpec, phUserKey); });
}

BOOL WINAPI CPImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
                        DWORD dwFlags, HCRYPTKEY* phKey) {
  return Answer([&] { provider::ImportKey(hProv, pbData, dwDataLen, hPubKey, dwFlags, phKey); });
}

BOOL WINAPI CPExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY hPubKey, DWORD dwBlobType,
                        DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen) {
  return Answer(
      [&] { provider::ExportKey(hProv, hKey, hPubKey, dwBlobType, dwFlags, pbData, pdwDataLen); });
}

BOOL WINAPI CPGetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                          DWORD* pdwDataLen, DWORD dwFlags) {
  return Answer([&] { provider::GetKeyParam(hProv, hKey, dwParam, pbData, pdwDataLen, dwFlags); });
}

BOOL WINAPI CPSetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                          DWORD dwFlags) {
  return Answer([&] { provider::SetKeyParam(hProv, hKey, dwParam, pbData, dwFlags); });
}

BOOL WINAPI CPEncrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
                      BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen) {
  return Answer(
      [&] { provider::Encrypt(hProv, hKey, hHash, final, dwFlags, pbData, pdwDataLen, dwBufLen); });
}

BOOL WINAPI CPDecrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
                      BYTE* pbData, DWORD* pdwDataLen) {
  return Answer([&] { provider::Decrypt(hProv, hKey, hHash, final, dwFlags, pbData, pdwDataLen); });
}

BOOL WINAPI CPCreateHash(HCRYPTPROV hProv, ALG_ID algId, HCRYPTKEY hKey, DWORD dwFlags,
                         HCRYPTHASH* phHash) {
  return Answer([&] { provider::CreateHash(hProv, algId, hKey, dwFlags, phHash); });
}

BOOL WINAPI CPDestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash) {
  return Answer([&] { provider::DestroyHash(hProv, hHash); });
}

BOOL WINAPI CPDuplicateHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                            HCRYPTHASH* phHash) {
  return Answer([&] { provider::DuplicateHash(hProv, hHash, pdwReserved, dwFlags, phHash); });
}

BOOL WINAPI CPHashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
                       DWORD dwFlags) {
  return Answer([&] { provider::HashData(hProv, hHash, pbData, dwDataLen, dwFlags); });
}

BOOL WINAPI CPHashSessionKey(HCRYPTPROV hProv, HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) {
  return Answer([&] { provider::HashSessionKey(hProv, hHash, hKey, dwFlags); });
}

BOOL WINAPI CPGetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                           DWORD* pdwDataLen, DWORD dwFlags) {
  return Answer(
      [&] { provider::GetHashParam(hProv, hHash, dwParam, pbData, pdwDataLen, dwFlags); });
}

BOOL WINAPI CPSetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                           DWORD dwFlags) {
  return Answer([&] { provider::SetHashParam(hProv, hHash, dwParam, pbData, dwFlags); });
}

BOOL WINAPI CPSignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR szDescription,
                       DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  return Answer([&] {
    provider::SignHash(hProv, hHash, dwKeySpec, szDescription, dwFlags, pbSignature, pdwSigLen);
  });
}

BOOL WINAPI CPVerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature,
                              DWORD dwSigLen, HCRYPTKEY hPubKey, LPCWSTR szDescription,
                              DWORD dwFlags) {
  return Answer([&] {
    provider::VerifySignature(hProv, hHash, pbSignature, dwSigLen, hPubKey, szDescription, dwFlags);
  });
}

}  // extern "C"
