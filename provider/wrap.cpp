#include "provider/wrap.h"

#include <optional>

#include "provider/gost.h"

namespace zarext::provider {
namespace {

constexpr std::size_t kWrapOverhead = 8;
constexpr std::string_view kKdfLabel = "cpzarvel SIMPLEBLOB";

// RFC 7836, 4.5: HMAC(secret, 01 label 00 seed 01 00); the last two octets are the output's length
// in bits.
Bytes DeriveWrapKey(View secret, View seed) {
  gcry_mac_hd_t handle = nullptr;
  Check(gcry_mac_open(&handle, GCRY_MAC_HMAC_STRIBOG256, 0, nullptr));
  const Mac mac(handle);
  Check(gcry_mac_setkey(handle, secret.data(), secret.size()));
  Bytes input{0x01};
  Append(input, AsView(kKdfLabel));
  input.push_back(0x00);
  Append(input, seed);
  Append(input, Bytes{0x01, 0x00});
  Check(gcry_mac_write(handle, input.data(), input.size()));
  Bytes out(32);
  std::size_t length = out.size();
  Check(gcry_mac_read(handle, out.data(), &length));
  return out;
}

Cipher OpenKeyWrap(View wrapKey) {
  gcry_cipher_hd_t handle = nullptr;
  Check(gcry_cipher_open(&handle, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_AESWRAP, 0));
  Cipher cipher(handle);
  Check(gcry_cipher_setkey(handle, wrapKey.data(), wrapKey.size()));
  return cipher;
}

Bytes WrapForGost(const SessionKey& key, const PublicKey& recipient, const PrivateKey* sender) {
  PrivateKey ephemeral;
  if (!sender) {
    GostKeyPair pair = GenerateGostKey(*recipient.curve);
    ephemeral.publicKey.curve = recipient.curve;
    ephemeral.publicKey.value = std::move(pair.publicValue);
    ephemeral.value = std::move(pair.privateValue);
  }
  const PrivateKey& own = sender ? *sender : ephemeral;
  Require(own.publicKey.curve == recipient.curve, NTE_BAD_KEY);
  GostSimpleBlobHeader head{};
  head.header = {SIMPLEBLOB, kBlobVersion, 0, key.Algorithm().algId};
  head.recipientAlg = recipient.algorithm->algId;
  head.magic = kGostMagic;
  head.senderKey = sender ? SenderKey::kExchangeKey : SenderKey::kEphemeral;
  head.bitLength = recipient.algorithm->bits;
  const Bytes ukm = RandomBytes(sizeof head.ukm);
  std::copy(ukm.begin(), ukm.end(), head.ukm);
  Bytes blob;
  AppendRecord(blob, head);
  if (!sender) {
    Append(blob, own.publicKey.value);
  }
  const Cipher cipher = OpenKeyWrap(
      DeriveWrapKey(AgreeGost(*recipient.curve, own.value, recipient.value, ukm), blob));
  Bytes wrapped(key.Octets().size() + kWrapOverhead);
  Check(gcry_cipher_encrypt(cipher.get(), wrapped.data(), wrapped.size(), key.Octets().data(),
                            key.Octets().size()));
  Append(blob, wrapped);
  return blob;
}

// Empty if the private key is not the right one, or the blob was changed.
std::optional<Bytes> TryUnwrap(const GostSimpleBlobHeader& head, View headOctets, View wrapped,
                               const PrivateKey& candidate, View senderValue) {
  const Bytes secret =
      AgreeGost(*candidate.publicKey.curve, candidate.value, senderValue, head.ukm);
  const Cipher cipher = OpenKeyWrap(DeriveWrapKey(secret, headOctets));
  Bytes key(wrapped.size() - kWrapOverhead);
  if (gcry_cipher_decrypt(cipher.get(), key.data(), key.size(), wrapped.data(), wrapped.size()) !=
      0) {
    return {};
  }
  return key;
}

// The sender's public value, from the blob or from the key that the caller passed.
View SenderValue(const GostSimpleBlobHeader& head, View body, const PublicKey* sender) {
  if (head.senderKey == SenderKey::kEphemeral) {
    Require(body.size() >= head.bitLength / 8, NTE_BAD_DATA);
    return body.first(head.bitLength / 8);
  }
  Require(head.senderKey == SenderKey::kExchangeKey, NTE_BAD_DATA);
  Require(sender != nullptr && sender->curve != nullptr, NTE_BAD_PUBLIC_KEY);
  return sender->value;
}

Bytes UnwrapGost(const CipherAlgorithm& algorithm, View blob,
                 std::span<const PrivateKey> candidates, const PublicKey* sender) {
  const auto head = ReadRecord<GostSimpleBlobHeader>(blob);
  Require(head.magic == kGostMagic && (head.bitLength == 512 || head.bitLength == 1024),
          NTE_BAD_DATA);
  const View senderValue = SenderValue(head, blob.subspan(sizeof head), sender);
  const std::size_t headLength =
      sizeof head + (head.senderKey == SenderKey::kEphemeral ? senderValue.size() : std::size_t{0});
  const View wrapped = blob.subspan(headLength);
  Require(wrapped.size() == algorithm.keyBytes + kWrapOverhead, NTE_BAD_DATA);
  bool found = false;
  for (const PrivateKey& candidate : candidates) {
    if (!candidate.publicKey.curve || candidate.publicKey.algorithm->bits != head.bitLength) {
      continue;
    }
    found = true;
    if (!IsGostPublicValue(*candidate.publicKey.curve, senderValue)) {
      continue;
    }
    if (auto key = TryUnwrap(head, blob.first(headLength), wrapped, candidate, senderValue)) {
      return std::move(*key);
    }
  }
  Fail(found ? NTE_BAD_DATA : NTE_NO_KEY);
}

Bytes WrapForRsa(const SessionKey& key, const PublicKey& recipient) {
  RsaSimpleBlobHeader head{};
  head.header = {SIMPLEBLOB, kBlobVersion, 0, key.Algorithm().algId};
  head.recipientAlg = recipient.algorithm->algId;
  Bytes blob;
  AppendRecord(blob, head);
  Append(blob, EncryptRsa(recipient.rsa, key.Octets()));
  return blob;
}

Bytes UnwrapRsa(const CipherAlgorithm& algorithm, const KeyAlgorithm& recipient, View blob,
                std::span<const PrivateKey> candidates) {
  const View encrypted = blob.subspan(sizeof(RsaSimpleBlobHeader));
  bool found = false;
  for (const PrivateKey& candidate : candidates) {
    if (candidate.publicKey.algorithm->family != KeyFamily::kRsa) {
      continue;
    }
    found = true;
    if (recipient.bits != 0 && recipient.bits != candidate.publicKey.Bits()) {
      continue;
    }
    try {
      Bytes key = DecryptRsa(candidate.rsa, encrypted);
      if (key.size() == algorithm.keyBytes) {
        return key;
      }
    } catch (const Error& error) {
      if (error.Code() != static_cast<std::uint32_t>(NTE_BAD_DATA)) {
        throw;
      }
    }
  }
  Fail(found ? NTE_BAD_DATA : NTE_NO_KEY);
}

}  // namespace

Bytes WrapKey(const SessionKey& key, const PublicKey& recipient, const PrivateKey* sender) {
  StartGcrypt();
  return recipient.algorithm->family == KeyFamily::kGost ? WrapForGost(key, recipient, sender)
                                                         : WrapForRsa(key, recipient);
}

SessionKey UnwrapKey(View blob, std::span<const PrivateKey> candidates, const PublicKey* sender) {
  StartGcrypt();
  const auto head = ReadRecord<RsaSimpleBlobHeader>(blob);
  Require(head.header.bType == SIMPLEBLOB, NTE_BAD_TYPE);
  Require(head.header.bVersion == kBlobVersion, NTE_BAD_VER);
  Require(head.header.reserved == 0, NTE_BAD_DATA);
  const CipherAlgorithm* algorithm = FindCipherAlgorithm(head.header.aiKeyAlg);
  const KeyAlgorithm* recipient = FindKeyAlgorithm(head.recipientAlg);
  Require(algorithm != nullptr && recipient != nullptr, NTE_BAD_ALGID);
  const bool gost = recipient->family == KeyFamily::kGost;
  return {*algorithm, gost ? UnwrapGost(*algorithm, blob, candidates, sender)
                           : UnwrapRsa(*algorithm, *recipient, blob, candidates)};
}

Bytes WritePlainBlob(const SessionKey& key) {
  PlainBlobHeader head{};
  head.header = {PLAINTEXTKEYBLOB, kBlobVersion, 0, key.Algorithm().algId};
  head.keyLength = static_cast<std::uint32_t>(key.Octets().size());
  Bytes blob;
  AppendRecord(blob, head);
  Append(blob, key.Octets());
  return blob;
}

SessionKey ReadPlainBlob(View blob) {
  const auto head = ReadRecord<PlainBlobHeader>(blob);
  Require(head.header.bType == PLAINTEXTKEYBLOB, NTE_BAD_TYPE);
  Require(head.header.bVersion == kBlobVersion, NTE_BAD_VER);
  const CipherAlgorithm* algorithm = FindCipherAlgorithm(head.header.aiKeyAlg);
  Require(algorithm != nullptr, NTE_BAD_ALGID);
  const View octets = blob.subspan(sizeof head);
  Require(octets.size() == head.keyLength, NTE_BAD_DATA);
  return {*algorithm, ToBytes(octets)};
}

}  // namespace zarext::provider
