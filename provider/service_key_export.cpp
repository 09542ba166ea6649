// Keys to blobs.
#include "provider/service.h"
#include "provider/wrap.h"

namespace zarext::provider {
namespace {

// The sender's exchange key for the next wrap. Null: the wrap has to carry an ephemeral key.
std::shared_ptr<PairObject> SenderPair(Context& context, const PublicKey& recipient) {
  constexpr unsigned sentBits = 512;  // the receivers know its 80-octet blob by the length
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

// Parameter 60 does not outlive an export that fails. A buffer that is too short is no failure: the
// caller comes back with a larger one.
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

}  // namespace

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

}  // namespace zarext::provider
