// A running hash, and the value that it ends with.
#ifndef ZAREXT_PROVIDER_HASH_H_
#define ZAREXT_PROVIDER_HASH_H_

#include "provider/algorithms.h"
#include "provider/bytes.h"
#include "provider/gcrypt.h"

namespace zarext::provider {

class Hash {
 public:
  explicit Hash(const HashAlgorithm& algorithm);
  Hash(const Hash& other);  // a copy goes on from the same state
  Hash(Hash&& other) noexcept = default;
  Hash& operator=(const Hash&) = delete;
  Hash& operator=(Hash&&) = delete;
  ~Hash() = default;

  const HashAlgorithm& Algorithm() const { return *algorithm_; }

  // NTE_BAD_HASH_STATE once the value was taken or set.
  void Update(View data);

  // Ends the hash at the first call.
  const Bytes& Value();

  // Sets the value of a hash computed elsewhere. NTE_BAD_LEN for a wrong length, NTE_BAD_HASH_STATE
  // once data went in or the value was taken.
  void SetValue(View value);

 private:
  const HashAlgorithm* algorithm_;
  Digest digest_;
  Bytes value_;
  bool touched_ = false;
};

Bytes HashOf(const HashAlgorithm& algorithm, View data);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_HASH_H_
