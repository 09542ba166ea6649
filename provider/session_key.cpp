#include "provider/session_key.h"

namespace zarext::provider {
namespace {

// PKCS #5 padding: at least one octet, each with the number of them.
Bytes Padded(View plain, std::size_t block) {
  Bytes out = ToBytes(plain);
  const std::size_t count = block - plain.size() % block;
  out.resize(out.size() + count, static_cast<std::uint8_t>(count));
  return out;
}

void RemovePadding(Bytes& plain, std::size_t block) {
  Require(!plain.empty(), NTE_BAD_DATA);
  const std::size_t count = plain.back();
  Require(count >= 1 && count <= block && count <= plain.size(), NTE_BAD_DATA);
  const auto padding = View(plain).last(count);
  Require(std::all_of(padding.begin(), padding.end(),
                      [&](std::uint8_t octet) { return octet == count; }),
          NTE_BAD_DATA);
  plain.resize(plain.size() - count);
}

}  // namespace

SessionKey::SessionKey(const CipherAlgorithm& algorithm, Bytes octets)
    : algorithm_(&algorithm), octets_(std::move(octets)), iv_(algorithm.blockBytes) {
  Require(octets_.size() == algorithm.keyBytes, NTE_BAD_LEN);
}

void SessionKey::SetIv(View iv) {
  Require(iv.size() == algorithm_->blockBytes, NTE_BAD_LEN);
  iv_ = ToBytes(iv);
  End();
}

std::size_t SessionKey::EncryptedLength(std::size_t length, bool final) const {
  if (!algorithm_->padded || !final) {
    return length;
  }
  return length + algorithm_->blockBytes - length % algorithm_->blockBytes;
}

void SessionKey::Start() {
  if (cipher_) {
    return;
  }
  StartGcrypt();
  gcry_cipher_hd_t handle = nullptr;
  Check(gcry_cipher_open(&handle, algorithm_->gcrypt, algorithm_->gcryptMode, 0));
  Cipher cipher(handle);
  if (algorithm_->sbox) {
    std::string name = algorithm_->sbox;
    Check(gcry_cipher_ctl(handle, GCRYCTL_SET_SBOX, name.data(), 0));
  }
  Check(gcry_cipher_setkey(handle, octets_.data(), octets_.size()));
  Check(gcry_cipher_setiv(handle, iv_.data(), iv_.size()));
  cipher_ = std::move(cipher);
}

Bytes SessionKey::Encrypt(View plain, bool final) {
  Require(final || plain.size() % algorithm_->blockBytes == 0, NTE_BAD_LEN);
  Bytes out = algorithm_->padded && final ? Padded(plain, algorithm_->blockBytes) : ToBytes(plain);
  Start();
  if (!out.empty()) {
    Check(gcry_cipher_encrypt(cipher_.get(), out.data(), out.size(), nullptr, 0));
  }
  if (final) {
    End();
  }
  return out;
}

Bytes SessionKey::Decrypt(View encrypted, bool final) {
  const bool whole = encrypted.size() % algorithm_->blockBytes == 0;
  Require(whole || (final && !algorithm_->padded), NTE_BAD_LEN);
  Bytes out = ToBytes(encrypted);
  Start();
  if (!out.empty()) {
    Check(gcry_cipher_decrypt(cipher_.get(), out.data(), out.size(), nullptr, 0));
  }
  if (!final) {
    return out;
  }
  End();
  if (algorithm_->padded) {
    RemovePadding(out, algorithm_->blockBytes);
  }
  return out;
}

SessionKey GenerateSessionKey(const CipherAlgorithm& algorithm) {
  return {algorithm, RandomBytes(algorithm.keyBytes)};
}

}  // namespace zarext::provider
