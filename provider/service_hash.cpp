#include "provider/service.h"

namespace zarext::provider {

std::shared_ptr<HashObject> RequireHash(HCRYPTPROV hProv, HCRYPTHASH hHash) {
  auto hash = Handles().Find<HashObject>(hHash);
  Require(hash != nullptr && hash->Owner() == hProv, NTE_BAD_HASH);
  return hash;
}

void CreateHash(HCRYPTPROV hProv, ALG_ID algId, HCRYPTKEY hKey, DWORD dwFlags, HCRYPTHASH* phHash) {
  RequireContext(hProv);
  Require(phHash != nullptr, ERROR_INVALID_PARAMETER);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  const HashAlgorithm* algorithm = FindHashAlgorithm(algId);
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  Require(hKey == 0, NTE_BAD_KEY);  // there are no keyed hashes
  *phHash = Handles().Add(std::make_shared<HashObject>(hProv, Hash(*algorithm)));
}

void DestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash) {
  RequireContext(hProv);
  RequireHash(hProv, hHash);
  Handles().Remove(hHash);
}

void DuplicateHash(HCRYPTPROV hProv, HCRYPTHASH hHash, const DWORD* pdwReserved, DWORD dwFlags,
                   HCRYPTHASH* phHash) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  Require(pdwReserved == nullptr && phHash != nullptr, ERROR_INVALID_PARAMETER);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  const std::lock_guard lock(hash->mutex);
  *phHash = Handles().Add(std::make_shared<HashObject>(hProv, Hash(hash->hash)));
}

void HashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
              DWORD dwFlags) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pbData != nullptr || dwDataLen == 0, ERROR_INVALID_PARAMETER);
  const std::lock_guard lock(hash->mutex);
  hash->hash.Update({pbData, dwDataLen});
}

void HashSessionKey(HCRYPTPROV hProv, HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  const auto key = RequireSessionKey(hProv, hKey);
  Require((dwFlags & ~DWORD{CRYPT_LITTLE_ENDIAN}) == 0, NTE_BAD_FLAGS);
  const std::lock_guard lock(hash->mutex);
  hash->hash.Update(key->key.Octets());
}

void GetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                  DWORD* pdwDataLen, DWORD dwFlags) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
  const HashAlgorithm& algorithm = hash->hash.Algorithm();
  Bytes value;
  if (dwParam == HP_ALGID) {
    AppendRecord(value, algorithm.algId);
  } else if (dwParam == HP_HASHSIZE) {
    AppendRecord(value, DWORD{algorithm.bits / 8});
  } else {
    Require(dwParam == HP_HASHVAL, NTE_BAD_TYPE);
    // A question for the length alone must not end the hash.
    if (!pbData || *pdwDataLen < algorithm.bits / 8) {
      return Deliver(Bytes(algorithm.bits / 8), pbData, pdwDataLen);
    }
    const std::lock_guard lock(hash->mutex);
    value = hash->hash.Value();
  }
  Deliver(value, pbData, pdwDataLen);
}

void SetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                  DWORD dwFlags) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(dwParam == HP_HASHVAL, NTE_BAD_TYPE);
  Require(pbData != nullptr, ERROR_INVALID_PARAMETER);
  const std::lock_guard lock(hash->mutex);
  hash->hash.SetValue({pbData, hash->hash.Algorithm().bits / 8});
}

void SignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR szDescription,
              DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  const auto context = RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pdwSigLen != nullptr && (!szDescription || !*szDescription), ERROR_INVALID_PARAMETER);
  const auto pair = context->LoadPair(dwKeySpec);
  const std::size_t length = SignatureLength(pair->key->publicKey);
  if (!pbSignature || *pdwSigLen < length) {
    return Deliver(Bytes(length), pbSignature, pdwSigLen);
  }
  const Bytes digest = [&] {
    const std::lock_guard lock(hash->mutex);
    return hash->hash.Value();
  }();
  Deliver(Sign(*pair->key, hash->hash.Algorithm(), digest), pbSignature, pdwSigLen);
}

void VerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                     HCRYPTKEY hPubKey, LPCWSTR szDescription, DWORD dwFlags) {
  RequireContext(hProv);
  const auto hash = RequireHash(hProv, hHash);
  // A public key may come from any context: callers import it where they please.
  const auto key = Handles().Find<KeyObject>(hPubKey);
  Require(key != nullptr, NTE_BAD_KEY);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Require(pbSignature != nullptr && (!szDescription || !*szDescription), ERROR_INVALID_PARAMETER);
  const PublicKey* publicKey = PublicKeyOf(*key);
  Require(publicKey != nullptr, NTE_BAD_KEY);
  const Bytes digest = [&] {
    const std::lock_guard lock(hash->mutex);
    return hash->hash.Value();
  }();
  Require(Verify(*publicKey, hash->hash.Algorithm(), digest, {pbSignature, dwSigLen}),
          NTE_BAD_SIGNATURE);
}

}  // namespace zarext::provider
