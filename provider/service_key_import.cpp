// Blobs to keys.
#include "provider/service.h"
#include "provider/wrap.h"

namespace zarext::provider {
namespace {

HCRYPTKEY ImportPair(Context& context, View blob, DWORD dwFlags) {
  const PrivateKey key = ReadPrivateKeyInfo(blob);
  const KeyRecord fresh = RecordOf(key, (dwFlags & CRYPT_EXPORTABLE) != 0);
  const DWORD keySpec = KeySpecOf(fresh.algId);
  context.Keys()->Change(keySpec, [&](std::optional<KeyRecord>& record) {
    if (record) {
      Fail(record->privateKeyInfo == fresh.privateKeyInfo ? NTE_EXISTS
                                                          : NTE_TOKEN_KEYSET_STORAGE_FULL);
    }
    record = fresh;
  });
  return Handles().Add(context.MakePair(fresh, keySpec));
}

HCRYPTKEY ImportWrapped(Context& context, View blob, HCRYPTKEY hPubKey, DWORD dwFlags) {
  const auto other = Handles().Find<KeyObject>(hPubKey);
  Require(hPubKey == 0 || other != nullptr, NTE_BAD_KEY);
  std::vector<PrivateKey> candidates = context.ReadablePrivateKeys();
  if (const auto pair = std::dynamic_pointer_cast<PairObject>(other)) {
    candidates.push_back(*pair->key);
  }
  const PublicKey* sender = other ? PublicKeyOf(*other) : nullptr;
  return context.AddSessionKey(UnwrapKey(blob, candidates, sender), dwFlags);
}

}  // namespace

void ImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
               DWORD dwFlags, HCRYPTKEY* phKey) {
  const auto context = RequireContext(hProv);
  Require(phKey != nullptr && pbData != nullptr && dwDataLen != 0, ERROR_INVALID_PARAMETER);
  Require((dwFlags & ~kKeyFlags) == 0, NTE_BAD_FLAGS);
  context->SetTakesSenderKey(false);
  const View blob(pbData, dwDataLen);
  switch (blob[0]) {
    case PUBLICKEYBLOB:
      *phKey = Handles().Add(std::make_shared<PublicKeyObject>(hProv, ReadPublicBlob(blob)));
      return;
    case kPrivateKeyInfoBlob:
      *phKey = ImportPair(*context, blob, dwFlags);
      return;
    case SIMPLEBLOB:
      *phKey = ImportWrapped(*context, blob, hPubKey, dwFlags);
      return;
    case PLAINTEXTKEYBLOB:
      *phKey = context->AddSessionKey(ReadPlainBlob(blob), dwFlags);
      return;
    default:
      Fail(NTE_BAD_TYPE);
  }
}

}  // namespace zarext::provider
