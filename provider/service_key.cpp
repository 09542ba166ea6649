#include "provider/certificate.h"
#include "provider/der.h"
#include "provider/service.h"
#include "provider/wrap.h"

namespace zarext::provider {
namespace {

constexpr DWORD kKeyFlags = CRYPT_EXPORTABLE | CRYPT_USER_PROTECTED;
constexpr std::size_t kLongestCertificate = 1 << 16;

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

KeyRecord MakeRecord(const PrivateKey& key, DWORD dwFlags) {
  KeyRecord record;
  record.algId = key.publicKey.algorithm->algId;
  record.exportable = (dwFlags & CRYPT_EXPORTABLE) != 0;
  record.privateKeyInfo = WritePrivateKeyInfo(key);
  return record;
}

HCRYPTKEY AddSessionKey(Context& context, const SessionKey& key, DWORD dwFlags) {
  auto object =
      std::make_shared<SessionKeyObject>(context.Owner(), key, (dwFlags & CRYPT_EXPORTABLE) != 0);
  context.SetLastSessionKey(object);
  return Handles().Add(std::move(object));
}

HCRYPTKEY GeneratePair(Context& context, const KeyAlgorithm& algorithm, DWORD dwFlags) {
  const PrivateKey key = GenerateKey(algorithm, dwFlags >> 16);
  const KeyRecord fresh = MakeRecord(key, dwFlags);
  const DWORD keySpec = KeySpecOf(algorithm.algId);
  context.Keys()->Change(keySpec, [&](std::optional<KeyRecord>& record) { record = fresh; });
  return Handles().Add(context.MakePair(fresh, keySpec));
}

HCRYPTKEY ImportPair(Context& context, View blob, DWORD dwFlags) {
  const PrivateKey key = ReadPrivateKeyInfo(blob);
  const KeyRecord fresh = MakeRecord(key, dwFlags);
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
  return AddSessionKey(context, UnwrapKey(blob, candidates, sender), dwFlags);
}

// The sender's exchange key for the next wrap: only if the caller announced that its public half
// goes along, as the 80-octet blob that receivers can tell apart, and only if both keys are on one
// curve. Otherwise the wrap has to carry an ephemeral key.
std::shared_ptr<PairObject> SenderPair(Context& context, const PublicKey& recipient) {
  constexpr unsigned sentBits = 512;
  if (!context.TakesSenderKey() || !recipient.curve) {
    return nullptr;
  }
  try {
    auto pair = context.LoadPair(AT_KEYEXCHANGE);
    const PublicKey& own = pair->key->publicKey;
    return own.curve == recipient.curve && own.algorithm->bits == sentBits ? pair : nullptr;
  } catch (const Error& error) {
    if (error.Code() != static_cast<std::uint32_t>(NTE_NO_KEY)) {
      throw;
    }
    return nullptr;
  }
}

void ExportWrapped(Context& context, const SessionKeyObject& object, HCRYPTKEY hPubKey,
                   BYTE* pbData, DWORD* pdwDataLen) {
  Require(object.exportable, NTE_BAD_KEY_STATE);
  const auto recipientObject = Handles().Find<KeyObject>(hPubKey);
  const PublicKey* recipient = recipientObject ? PublicKeyOf(*recipientObject) : nullptr;
  Require(recipient != nullptr, hPubKey == 0 ? NTE_NO_KEY : NTE_BAD_KEY);
  const auto sender = SenderPair(context, *recipient);
  Deliver(WrapKey(object.key, *recipient, sender ? sender->key.get() : nullptr), pbData,
          pdwDataLen);
  if (pbData) {
    context.SetTakesSenderKey(false);
  }
}

// An announcement of the sender's key does not outlive an export that fails: whoever made it does
// not send that key along then, and the next to wrap a key here may never do so. A buffer that is
// too short is no failure: the caller comes back with a larger one.
template <typename Export>
void EndAnnouncementIfItFails(Context& context, Export exportKey) {
  try {
    exportKey();
  } catch (const Error& error) {
    if (error.Code() != ERROR_MORE_DATA) {
      context.SetTakesSenderKey(false);
    }
    throw;
  }
}

std::shared_ptr<KeyObject> KeyToExport(Context& context, HCRYPTKEY hKey) {
  if (hKey != context.Owner()) {
    return RequireKey(context.Owner(), hKey);
  }
  auto last = context.LastSessionKey();
  Require(last != nullptr, NTE_NO_KEY);
  return last;
}

Bytes ExportUnwrapped(const KeyObject& key, DWORD dwBlobType) {
  if (dwBlobType == PUBLICKEYBLOB) {
    const PublicKey* publicKey = PublicKeyOf(key);
    Require(publicKey != nullptr, NTE_BAD_KEY);
    return WritePublicBlob(*publicKey);
  }
  if (dwBlobType == kPrivateKeyInfoBlob) {
    const auto* pair = dynamic_cast<const PairObject*>(&key);
    Require(pair != nullptr, NTE_BAD_KEY);
    Require(pair->exportable, NTE_BAD_KEY_STATE);
    return WritePrivateKeyInfo(*pair->key);
  }
  Require(dwBlobType == PLAINTEXTKEYBLOB, NTE_BAD_TYPE);
  const auto* session = dynamic_cast<const SessionKeyObject*>(&key);
  Require(session != nullptr, NTE_BAD_KEY);
  Require(session->exportable, NTE_BAD_KEY_STATE);
  return WritePlainBlob(session->key);
}

// The record of a pair as it is stored now; the pair must still be the one of its number.
KeyRecord CurrentRecord(const PairObject& pair, const std::optional<KeyRecord>& stored) {
  Require(stored.has_value(), NTE_NO_KEY);
  const PrivateKey current = ReadKept([&] { return PrivateKeyOf(*stored); });
  Require(SameKey(current.publicKey, pair.key->publicKey), NTE_BAD_KEY);
  return *stored;
}

// A caller gives a certificate without its length, which is that of the DER element.
Bytes CertificateAt(const BYTE* pbData) {
  const std::size_t length = MeasureDer(pbData, kDerSequence);
  Require(length <= kLongestCertificate, NTE_BAD_DATA);
  Bytes certificate(pbData, pbData + length);
  CertificateSerial(certificate);
  return certificate;
}

void SetCertificate(const PairObject& pair, const BYTE* pbData) {
  const Bytes certificate = CertificateAt(pbData);
  Require(IsCertificateOf(certificate, pair.key->publicKey), NTE_BAD_PUBLIC_KEY);
  pair.keySet->Change(pair.keySpec, [&](std::optional<KeyRecord>& record) {
    KeyRecord changed = CurrentRecord(pair, record);
    changed.certificate = certificate;
    record = std::move(changed);
  });
}

void AddToChain(const PairObject& pair, const BYTE* pbData) {
  const Bytes certificate = CertificateAt(pbData);
  pair.keySet->Change(pair.keySpec, [&](std::optional<KeyRecord>& record) {
    KeyRecord changed = CurrentRecord(pair, record);
    std::vector<Bytes> chain;
    if (!changed.chain.empty()) {
      chain = ReadKept([&] { return ReadChain(changed.chain); });
    }
    if (std::find(chain.begin(), chain.end(), certificate) != chain.end()) {
      return;
    }
    chain.push_back(certificate);
    changed.chain = WriteChain(chain);
    record = std::move(changed);
  });
}

Bytes StoredParam(const PairObject& pair, DWORD dwParam) {
  const KeyRecord record = CurrentRecord(pair, pair.keySet->Load(pair.keySpec));
  const Bytes& value = dwParam == KP_CERTIFICATE ? record.certificate : record.chain;
  Require(!value.empty(), NTE_NOT_FOUND);
  return value;
}

Bytes Number(DWORD value) {
  Bytes out;
  AppendRecord(out, value);
  return out;
}

Bytes SessionKeyParam(SessionKeyObject& object, DWORD dwParam) {
  const std::lock_guard lock(object.mutex);
  const CipherAlgorithm& algorithm = object.key.Algorithm();
  switch (dwParam) {
    case KP_KEYLEN:
    case KP_EFFECTIVE_KEYLEN:
      return Number(algorithm.keyBytes * 8);
    case KP_BLOCKLEN:
      return Number(algorithm.padded ? algorithm.blockBytes * 8 : 0);
    case KP_IV:
      return object.key.Iv();
    case KP_MODE:
      return Number(algorithm.mode);
    case KP_MODE_BITS:
      return Number(algorithm.blockBytes * 8);
    case KP_PADDING:
      return Number(PKCS5_PADDING);
    case KP_PERMISSIONS:
      return Number(CRYPT_ENCRYPT | CRYPT_DECRYPT | CRYPT_MAC |
                    (object.exportable ? CRYPT_EXPORT : 0));
    default:
      Fail(NTE_BAD_TYPE);
  }
}

Bytes PublicKeyParam(const PublicKey& key, bool mayExport, DWORD dwParam) {
  switch (dwParam) {
    case KP_KEYLEN:
    case KP_BLOCKLEN:
      return Number(key.Bits());
    case KP_PERMISSIONS:
      return Number(CRYPT_READ | CRYPT_WRITE | (mayExport ? CRYPT_EXPORT : 0));
    default:
      Fail(NTE_BAD_TYPE);
  }
}

Bytes KeyParam(KeyObject& key, DWORD dwParam) {
  if (dwParam == KP_ALGID) {
    return Number(key.AlgId());
  }
  if (auto* session = dynamic_cast<SessionKeyObject*>(&key)) {
    return SessionKeyParam(*session, dwParam);
  }
  const auto* pair = dynamic_cast<const PairObject*>(&key);
  if (dwParam == KP_CERTIFICATE || dwParam == KP_CERT_CHAIN) {
    Require(pair != nullptr, NTE_BAD_KEY);
    return StoredParam(*pair, dwParam);
  }
  return PublicKeyParam(*PublicKeyOf(key), pair == nullptr || pair->exportable, dwParam);
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
  *phKey = AddSessionKey(*context, GenerateSessionKey(*algorithm), dwFlags);
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
  *phKey = AddSessionKey(
      *context, SessionKey(*algorithm, ToBytes(value.first(algorithm->keyBytes))), dwFlags);
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

void ImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
               DWORD dwFlags, HCRYPTKEY* phKey) {
  const auto context = RequireContext(hProv);
  Require(phKey != nullptr && pbData != nullptr && dwDataLen != 0, ERROR_INVALID_PARAMETER);
  Require((dwFlags & ~kKeyFlags) == 0, NTE_BAD_FLAGS);
  // An announcement that nobody followed up: whoever imports a key now is about to wrap for another
  // recipient, or to do something else.
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
      *phKey = AddSessionKey(*context, ReadPlainBlob(blob), dwFlags);
      return;
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void ExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY hPubKey, DWORD dwBlobType, DWORD dwFlags,
               BYTE* pbData, DWORD* pdwDataLen) {
  const auto context = RequireContext(hProv);
  EndAnnouncementIfItFails(*context, [&] {
    const auto key = KeyToExport(*context, hKey);
    Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
    Require(dwFlags == 0, NTE_BAD_FLAGS);
    if (dwBlobType != SIMPLEBLOB) {
      Require(hPubKey == 0, NTE_BAD_KEY);
      return Deliver(ExportUnwrapped(*key, dwBlobType), pbData, pdwDataLen);
    }
    const auto* session = dynamic_cast<const SessionKeyObject*>(key.get());
    Require(session != nullptr, NTE_BAD_KEY);
    ExportWrapped(*context, *session, hPubKey, pbData, pdwDataLen);
  });
}

void GetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                 DWORD dwFlags) {
  RequireContext(hProv);
  const auto key = RequireKey(hProv, hKey);
  Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Deliver(KeyParam(*key, dwParam), pbData, pdwDataLen);
}

void SetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                 DWORD dwFlags) {
  RequireContext(hProv);
  const auto key = RequireKey(hProv, hKey);
  Require(pbData != nullptr, ERROR_INVALID_PARAMETER);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  if (dwParam == KP_CERTIFICATE || dwParam == KP_ADD_CHAIN_CERT) {
    const auto pair = std::dynamic_pointer_cast<PairObject>(key);
    Require(pair != nullptr, NTE_BAD_KEY);
    return dwParam == KP_CERTIFICATE ? SetCertificate(*pair, pbData) : AddToChain(*pair, pbData);
  }
  const auto session = std::dynamic_pointer_cast<SessionKeyObject>(key);
  Require(session != nullptr && dwParam == KP_IV, NTE_BAD_TYPE);
  const std::lock_guard lock(session->mutex);
  session->key.SetIv({pbData, session->key.Algorithm().blockBytes});
}

}  // namespace zarext::provider
