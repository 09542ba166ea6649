// RSA with PKCS #1 v1.5 padding. Numbers are big-endian without leading zeros; signatures and
// encrypted values are little-endian, as the platform's provider functions take and give them.
#ifndef ZAREXT_PROVIDER_RSA_H_
#define ZAREXT_PROVIDER_RSA_H_

#include "provider/algorithms.h"
#include "provider/bytes.h"

namespace zarext::provider {

struct RsaPublicKey {
  Bytes modulus;
  Bytes exponent;

  unsigned Bits() const;
  bool operator==(const RsaPublicKey&) const = default;
};

// The fields of an RSAPrivateKey (RFC 8017, A.1.2).
struct RsaPrivateKey {
  RsaPublicKey publicKey;
  Bytes privateExponent;
  Bytes prime1;
  Bytes prime2;
  Bytes exponent1;
  Bytes exponent2;
  Bytes coefficient;
};

RsaPrivateKey GenerateRsaKey(unsigned bits);

// Whether all fields belong together.
bool IsConsistent(const RsaPrivateKey& key);

Bytes SignRsa(const RsaPrivateKey& key, const HashAlgorithm& hash, View digest);
bool VerifyRsa(const RsaPublicKey& key, const HashAlgorithm& hash, View digest, View signature);

Bytes EncryptRsa(const RsaPublicKey& key, View plain);
Bytes DecryptRsa(const RsaPrivateKey& key, View encrypted);  // NTE_BAD_DATA for wrong padding

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_RSA_H_
