// Public and private keys of every kind, and the forms in which they travel.
#ifndef ZAREXT_PROVIDER_KEY_H_
#define ZAREXT_PROVIDER_KEY_H_

#include <optional>

#include "provider/algorithms.h"
#include "provider/bytes.h"
#include "provider/rsa.h"

namespace zarext::provider {

// The provider's blob type of a private key: the whole blob is the DER PrivateKeyInfo, without the
// usual blob header, so its number is that of the first octet, the SEQUENCE tag.
inline constexpr std::uint32_t kPrivateKeyInfoBlob = 0x30;
inline constexpr std::uint8_t kBlobVersion = 2;
inline constexpr std::uint32_t kGostMagic = 0x31434500;
inline constexpr std::uint32_t kRsaPublicMagic = 0x31415352;  // "RSA1"

// What every blob but kPrivateKeyInfoBlob begins with.
struct BlobHeader {
  std::uint8_t bType;
  std::uint8_t bVersion;
  std::uint16_t reserved;
  std::uint32_t aiKeyAlg;
};
static_assert(sizeof(BlobHeader) == 8 && offsetof(BlobHeader, aiKeyAlg) == 4);

// The head of a GOST public-key blob; X then Y, little-endian, follow.
struct GostPublicBlobHeader {
  BlobHeader header;
  std::uint32_t magic;
  std::uint32_t bitLength;  // of the public value: 512 or 1024
};
static_assert(sizeof(GostPublicBlobHeader) == 16 && offsetof(GostPublicBlobHeader, magic) == 8 &&
              offsetof(GostPublicBlobHeader, bitLength) == 12);

// The head of an RSA public-key blob (the platform's RSAPUBKEY); the little-endian modulus follows.
struct RsaPublicBlobHeader {
  BlobHeader header;
  std::uint32_t magic;
  std::uint32_t bitLength;
  std::uint32_t publicExponent;
};
static_assert(sizeof(RsaPublicBlobHeader) == 20 &&
              offsetof(RsaPublicBlobHeader, publicExponent) == 16);

struct PublicKey {
  const KeyAlgorithm* algorithm = nullptr;
  const Curve* curve = nullptr;  // GOST
  Bytes value;                   // GOST: X then Y, little-endian
  RsaPublicKey rsa;

  unsigned Bits()
      const;  // what KP_KEYLEN and a blob say: GOST, of the public value; RSA, of the modulus
};

// Whether both hold the same key, whatever algorithm either was imported under.
bool SameKey(const PublicKey& a, const PublicKey& b);

struct PrivateKey {
  PublicKey publicKey;
  Bytes value;  // GOST: little-endian
  RsaPrivateKey rsa;
};

// `rsaBits` is for the algorithms that leave the size open, 0 for the default. NTE_BAD_FLAGS does
// not occur here: a size that the algorithm does not have is NTE_BAD_LEN.
PrivateKey GenerateKey(const KeyAlgorithm& algorithm, unsigned rsaBits);

// The digest must be of a hash that the key's family signs, and for GOST as long as the curve's
// numbers; NTE_BAD_HASH otherwise.
Bytes Sign(const PrivateKey& key, const HashAlgorithm& hash, View digest);
bool Verify(const PublicKey& key, const HashAlgorithm& hash, View digest, View signature);
std::size_t SignatureLength(const PublicKey& key);

// PUBLICKEYBLOB. Reading checks everything: type and version (NTE_BAD_TYPE, NTE_BAD_VER), algorithm
// (NTE_BAD_ALGID), magic, sizes and whether the value is a point of one of the curves
// (NTE_BAD_DATA).
Bytes WritePublicBlob(const PublicKey& key);
PublicKey ReadPublicBlob(View blob);

// Type 0x30: PrivateKeyInfo (RFC 5208). The private key of a GOST algorithm is an ECPrivateKey (RFC
// 5915) with curve and public value, so that neither is lost with the parameters, which some
// carriers drop; reading also takes the bare little-endian octets that other programs write.
// NTE_BAD_ALGID for an unknown algorithm, NTE_BAD_DATA for a broken document, NTE_BAD_KEY for parts
// that do not belong together.
Bytes WritePrivateKeyInfo(const PrivateKey& key);
PrivateKey ReadPrivateKeyInfo(View der);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_KEY_H_
