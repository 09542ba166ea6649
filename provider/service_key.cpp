// Keys as handles: made, found and destroyed.
#include "provider/service.h"

namespace zarext::provider {
namespace {

// What the numbers AT_KEYEXCHANGE and AT_SIGNATURE stand for as algorithms.
struct DefaultAlgorithm {
  DWORD keySpec;
  DWORD algId;
  DWORD rsaAlgId;  // for the RSA provider
};
constexpr std::array kDefaults{
    DefaultAlgorithm{AT_KEYEXCHANGE, 0xA045, CALG_RSA_KEYX},
    DefaultAlgorithm{AT_SIGNATURE, 0xAA3A, CALG_RSA_SIGN},
};

DWORD ResolveAlgorithm(const Context& context, DWORD algId) {
  for (const DefaultAlgorithm& row : kDefaults) {
    if (row.keySpec == algId) {
      return context.ProviderType() == PROV_RSA_FULL ? row.rsaAlgId : row.algId;
    }
  }
  return algId;
}

HCRYPTKEY GeneratePair(Context& context, const KeyAlgorithm& algorithm, DWORD dwFlags) {
  const PrivateKey key = GenerateKey(algorithm, dwFlags >> 16);
  const KeyRecord fresh = RecordOf(key, (dwFlags & CRYPT_EXPORTABLE) != 0);
  const DWORD keySpec = KeySpecOf(algorithm.algId);
  context.Keys()->Change(keySpec, [&](std::optional<KeyRecord>& record) { record = fresh; });
  return Handles().Add(context.MakePair(fresh, keySpec));
}

}  // namespace

std::shared_ptr<KeyObject> RequireKey(HCRYPTPROV hProv, HCRYPTKEY hKey) {
  auto key = Handles().Find<KeyObject>(hKey);
  Require(key != nullptr && key->Owner() == hProv, NTE_BAD_KEY);
  return key;
}

std::shared_ptr<SessionKeyObject> RequireSessionKey(HCRYPTPROV hProv, HCRYPTKEY hKey) {
  auto key = std::dynamic_pointer_cast<SessionKeyObject>(RequireKey(hProv, hKey));
  Require(key != nullptr, NTE_BAD_KEY);
  return key;
}

const PublicKey* PublicKeyOf(const KeyObject& key) {
  if (const auto* pair = dynamic_cast<const PairObject*>(&key)) {
    return &pair->key->publicKey;
  }
  if (const auto* publicKey = dynamic_cast<const PublicKeyObject*>(&key)) {
    return &publicKey->key;
  }
  return nullptr;
}

void GenKey(HCRYPTPROV hProv, ALG_ID algId, DWORD dwFlags, HCRYPTKEY* phKey) {
  const auto context = RequireContext(hProv);
  Require(phKey != nullptr, ERROR_INVALID_PARAMETER);
  Require((dwFlags & 0xFFFF & ~kKeyFlags) == 0, NTE_BAD_FLAGS);
  const DWORD wanted = ResolveAlgorithm(*context, algId);
  if (const KeyAlgorithm* algorithm = FindKeyAlgorithm(wanted)) {
    *phKey = GeneratePair(*context, *algorithm, dwFlags);
    return;
  }
  const CipherAlgorithm* algorithm = FindCipherAlgorithm(wanted);
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  const DWORD bits = dwFlags >> 16;
  Require(bits == 0 || bits == algorithm->keyBytes * 8, NTE_BAD_FLAGS);
  *phKey = context->AddSessionKey(GenerateSessionKey(*algorithm), dwFlags);
}

void DeriveKey(HCRYPTPROV hProv, ALG_ID algId, HCRYPTHASH hBaseData, DWORD dwFlags,
               HCRYPTKEY* phKey) {
  const auto context = RequireContext(hProv);
  const auto hash = RequireHash(hProv, hBaseData);
  Require(phKey != nullptr, ERROR_INVALID_PARAMETER);
  Require((dwFlags & ~kKeyFlags) == 0, NTE_BAD_FLAGS);
  const CipherAlgorithm* algorithm = FindCipherAlgorithm(algId);
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  const std::lock_guard lock(hash->mutex);
  Require(hash->hash.Algorithm().bits / 8 >= algorithm->keyBytes, NTE_BAD_HASH);
  const View value = hash->hash.Value();
  *phKey = context->AddSessionKey(SessionKey(*algorithm, ToBytes(value.first(algorithm->keyBytes))),
                                  dwFlags);
}

void DestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey) {
  RequireContext(hProv);
  RequireKey(hProv, hKey);
  Handles().Remove(hKey);
}

void DuplicateKey(HCRYPTPROV hProv, HCRYPTKEY hKey, const DWORD* pdwReserved, DWORD dwFlags,
                  HCRYPTKEY* phKey) {
  RequireContext(hProv);
  const auto session = RequireSessionKey(hProv, hKey);
  Require(pdwReserved == nullptr && phKey != nullptr, ERROR_INVALID_PARAMETER);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  const std::lock_guard lock(session->mutex);
  *phKey =
      Handles().Add(std::make_shared<SessionKeyObject>(hProv, session->key, session->exportable));
}

void GetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  const auto context = RequireContext(hProv);
  Require(phUserKey != nullptr, ERROR_INVALID_PARAMETER);
  *phUserKey = Handles().Add(context->LoadPair(dwKeySpec));
}

}  // namespace zarext::provider
