// A content-encryption key: algorithm, octets, initialisation vector and the state between two
// calls.
#ifndef ZAREXT_PROVIDER_SESSION_KEY_H_
#define ZAREXT_PROVIDER_SESSION_KEY_H_

#include "provider/algorithms.h"
#include "provider/bytes.h"
#include "provider/gcrypt.h"

namespace zarext::provider {

class SessionKey {
 public:
  SessionKey(const CipherAlgorithm& algorithm, Bytes octets);  // NTE_BAD_LEN for a wrong length
  // A copy begins a new message.
  SessionKey(const SessionKey& other)
      : algorithm_(other.algorithm_), octets_(other.octets_), iv_(other.iv_) {}
  SessionKey(SessionKey&& other) noexcept = default;
  SessionKey& operator=(const SessionKey&) = delete;
  SessionKey& operator=(SessionKey&&) = delete;
  ~SessionKey() = default;

  const CipherAlgorithm& Algorithm() const { return *algorithm_; }
  const Bytes& Octets() const { return octets_; }

  // All zero until set; setting it starts a new message.
  const Bytes& Iv() const { return iv_; }
  void SetIv(View iv);

  // The length of the encrypted form of `length` octets.
  std::size_t EncryptedLength(std::size_t length, bool final) const;

  // Parts of one message follow each other until `final`; the next one begins with the
  // initialisation vector again. A part that is not the last must consist of whole blocks
  // (NTE_BAD_LEN), and so must everything that is decrypted with a padded algorithm; NTE_BAD_DATA
  // for wrong padding.
  Bytes Encrypt(View plain, bool final);
  Bytes Decrypt(View encrypted, bool final);

 private:
  void Start();
  void End() { cipher_.reset(); }

  const CipherAlgorithm* algorithm_;
  Bytes octets_;
  Bytes iv_;
  Cipher cipher_;  // null between messages
};

SessionKey GenerateSessionKey(const CipherAlgorithm& algorithm);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_SESSION_KEY_H_
