// The 25 functions of the platform's service-provider interface as C++: same names without "CP",
// same parameters, failures thrown. The platform's documentation of CryptoAPI's functions of those
// names describes them; comments here say only what the provider adds or leaves out.
#ifndef ZAREXT_PROVIDER_SERVICE_H_
#define ZAREXT_PROVIDER_SERVICE_H_

#include "provider/context.h"

namespace zarext::provider {

// What advapi32 passes to CPAcquireContext: the platform's VTableProvStruc, which its headers
// declare for old system versions only.
struct ProviderTable {
  DWORD Version;
  FARPROC FuncVerifyImage;
  FARPROC FuncReturnhWnd;
  DWORD dwProvType;     // from version 2 on
  BYTE* pbContextInfo;  // from version 3 on, with the rest
  DWORD cbContextInfo;
  LPSTR pszProvName;
};
static_assert(offsetof(ProviderTable, dwProvType) == 24 &&
              offsetof(ProviderTable, pszProvName) == 48);

// Hands `value` to a caller in the platform's way: no buffer asks for the length, one that is too
// short gets it with ERROR_MORE_DATA.
void Deliver(View value, BYTE* pbData, DWORD* pdwDataLen);

std::shared_ptr<Context> RequireContext(HCRYPTPROV hProv);                    // or NTE_BAD_UID
std::shared_ptr<HashObject> RequireHash(HCRYPTPROV hProv, HCRYPTHASH hHash);  // or NTE_BAD_HASH
std::shared_ptr<SessionKeyObject> RequireSessionKey(HCRYPTPROV hProv,
                                                    HCRYPTKEY hKey);      // or NTE_BAD_KEY
std::shared_ptr<KeyObject> RequireKey(HCRYPTPROV hProv, HCRYPTKEY hKey);  // or NTE_BAD_KEY
const PublicKey* PublicKeyOf(const KeyObject& key);                       // null: a session key

// Context and provider parameters. A container is named as container_name.h says; no name means one
// named after the user. `pVTable` may be null, as for callers that load this library themselves.
void AcquireContext(HCRYPTPROV* phProv, LPCSTR pszContainer, DWORD dwFlags,
                    const ProviderTable* pVTable);
void ReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);
void GetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags);
void SetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);
void GenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer);

// The flags of a new key that a caller may set, whatever the key is.
inline constexpr DWORD kKeyFlags = CRYPT_EXPORTABLE | CRYPT_USER_PROTECTED;

// Keys. A key pair takes the place of the one that the container has of its number, with
// certificate and chain; an imported one does not: NTE_EXISTS if it is the same key,
// NTE_TOKEN_KEYSET_STORAGE_FULL if not.
void GenKey(HCRYPTPROV hProv, ALG_ID algId, DWORD dwFlags, HCRYPTKEY* phKey);
void DeriveKey(HCRYPTPROV hProv, ALG_ID algId, HCRYPTHASH hBaseData, DWORD dwFlags,
               HCRYPTKEY* phKey);
void DestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey);
void DuplicateKey(HCRYPTPROV hProv, HCRYPTKEY hKey, const DWORD* pdwReserved, DWORD dwFlags,
                  HCRYPTKEY* phKey);
void GetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey);
// hPubKey, for a SIMPLEBLOB: the sender's public key, or the private key to use.
void ImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
               DWORD dwFlags, HCRYPTKEY* phKey);
// hKey may be hProv: the session key that was made last in the context, unless it was destroyed.
void ExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY hPubKey, DWORD dwBlobType, DWORD dwFlags,
               BYTE* pbData, DWORD* pdwDataLen);
void GetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                 DWORD dwFlags);
void SetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                 DWORD dwFlags);

void Encrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
             BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen);
void Decrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL final, DWORD dwFlags,
             BYTE* pbData, DWORD* pdwDataLen);

// Hashes and signatures.
void CreateHash(HCRYPTPROV hProv, ALG_ID algId, HCRYPTKEY hKey, DWORD dwFlags, HCRYPTHASH* phHash);
void DestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash);
void DuplicateHash(HCRYPTPROV hProv, HCRYPTHASH hHash, const DWORD* pdwReserved, DWORD dwFlags,
                   HCRYPTHASH* phHash);
void HashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
              DWORD dwFlags);
void HashSessionKey(HCRYPTPROV hProv, HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags);
void GetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                  DWORD* pdwDataLen, DWORD dwFlags);
void SetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                  DWORD dwFlags);
void SignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR szDescription,
              DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen);
void VerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                     HCRYPTKEY hPubKey, LPCWSTR szDescription, DWORD dwFlags);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_SERVICE_H_
