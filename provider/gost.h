// GOST R 34.10 over libgcrypt's curves.
//
// A public value is X then Y, each little-endian and as long as the curve's field (the order in
// which a certificate holds them). A private value is a little-endian number of the same length. A
// signature is r then s, each little-endian: read backwards it is the s, r pair of a certificate,
// and the framework does turn signatures round between its provider functions and the certificate.
#ifndef ZAREXT_PROVIDER_GOST_H_
#define ZAREXT_PROVIDER_GOST_H_

#include "provider/algorithms.h"
#include "provider/bytes.h"

namespace zarext::provider {

struct GostKeyPair {
  Bytes privateValue;
  Bytes publicValue;
};

GostKeyPair GenerateGostKey(const Curve& curve);

// The public value of a private one; NTE_BAD_KEY if that is not between 1 and the order.
Bytes GostPublicValue(const Curve& curve, View privateValue);

// Whether the point lies on the curve, in the subgroup that the base point generates.
bool IsGostPublicValue(const Curve& curve, View publicValue);

// Signs a digest, given in the order in which the hash function produces it.
Bytes SignGost(const Curve& curve, View privateValue, View digest);

bool VerifyGost(const Curve& curve, View publicValue, View digest, View signature);

// Key agreement VKO with Streebog-256 (RFC 7836, 4.3): 32 octets that both sides get.
Bytes AgreeGost(const Curve& curve, View privateValue, View peerPublicValue, View ukm);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_GOST_H_
