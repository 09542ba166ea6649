#include "provider/hash.h"

namespace zarext::provider {

Hash::Hash(const HashAlgorithm& algorithm) : algorithm_(&algorithm) {
  StartGcrypt();
  gcry_md_hd_t handle = nullptr;
  Check(gcry_md_open(&handle, algorithm.gcrypt, 0));
  digest_.reset(handle);
}

Hash::Hash(const Hash& other)
    : algorithm_(other.algorithm_), value_(other.value_), touched_(other.touched_) {
  gcry_md_hd_t handle = nullptr;
  Check(gcry_md_copy(&handle, other.digest_.get()));
  digest_.reset(handle);
}

void Hash::Update(View data) {
  Require(value_.empty(), NTE_BAD_HASH_STATE);
  touched_ = true;
  gcry_md_write(digest_.get(), data.data(), data.size());
}

const Bytes& Hash::Value() {
  if (value_.empty()) {
    const unsigned char* octets = gcry_md_read(digest_.get(), algorithm_->gcrypt);
    Require(octets != nullptr, NTE_FAIL);
    value_.assign(octets, octets + algorithm_->bits / 8);
  }
  return value_;
}

void Hash::SetValue(View value) {
  Require(!touched_ && value_.empty(), NTE_BAD_HASH_STATE);
  Require(value.size() == algorithm_->bits / 8, NTE_BAD_LEN);
  value_ = ToBytes(value);
}

Bytes HashOf(const HashAlgorithm& algorithm, View data) {
  Hash hash(algorithm);
  hash.Update(data);
  return hash.Value();
}

}  // namespace zarext::provider
