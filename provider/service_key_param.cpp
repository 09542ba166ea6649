// What callers ask and set of a key, its certificate and chain among it.
#include "provider/certificate.h"
#include "provider/der.h"
#include "provider/service.h"

namespace zarext::provider {
namespace {

constexpr std::size_t kLongestCertificate = 1 << 16;

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
