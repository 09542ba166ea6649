// SIMPLEBLOB: a content key wrapped for one public key; and PLAINTEXTKEYBLOB.
//
// For a GOST key the two sides agree on a secret (gost.h), derive a key from it and from the blob's
// own head (KDF_GOSTR3411_2012_256, RFC 7836, 4.5), and wrap with AES key wrap (RFC 3394), whose
// check value tells the right private key from a wrong one; so no octet of the blob can be changed
// unnoticed. The sender's half of the agreement is either its exchange key, which is then not in
// the blob, or an ephemeral key, which is. For an RSA key the blob is the platform's own form with
// PKCS #1 v1.5.
#ifndef ZAREXT_PROVIDER_WRAP_H_
#define ZAREXT_PROVIDER_WRAP_H_

#include <span>

#include "provider/key.h"
#include "provider/session_key.h"

namespace zarext::provider {

enum class SenderKey : std::uint32_t { kExchangeKey = 0, kEphemeral = 1 };

// The head of a GOST SIMPLEBLOB. For SenderKey::kEphemeral the sender's public value follows, then
// for both the wrapped key, 8 octets longer than the key.
struct GostSimpleBlobHeader {
  BlobHeader header;           // aiKeyAlg is the content key's
  std::uint32_t recipientAlg;  // ALG_ID under which the sender had the recipient's key
  std::uint32_t magic;         // kGostMagic
  SenderKey senderKey;
  std::uint32_t bitLength;  // of a public value
  std::uint8_t ukm[8];
};
static_assert(sizeof(GostSimpleBlobHeader) == 32 &&
              offsetof(GostSimpleBlobHeader, recipientAlg) == 8 &&
              offsetof(GostSimpleBlobHeader, senderKey) == 16 &&
              offsetof(GostSimpleBlobHeader, ukm) == 24);

// The head of an RSA SIMPLEBLOB; the little-endian encrypted key follows.
struct RsaSimpleBlobHeader {
  BlobHeader header;
  std::uint32_t recipientAlg;
};
static_assert(sizeof(RsaSimpleBlobHeader) == 12);

// The head of a PLAINTEXTKEYBLOB; the key follows.
struct PlainBlobHeader {
  BlobHeader header;
  std::uint32_t keyLength;
};
static_assert(sizeof(PlainBlobHeader) == 12);

// `sender` is the exchange key to use, null for an ephemeral one. A sender on another curve than
// the recipient is NTE_BAD_KEY.
Bytes WrapKey(const SessionKey& key, const PublicKey& recipient, const PrivateKey* sender);

// Tries the candidates, the private keys of the receiver, in turn. `sender` is the sender's public
// key, null if the caller has none: NTE_BAD_PUBLIC_KEY if the blob needs one. NTE_NO_KEY if no
// candidate is of the blob's kind, NTE_BAD_DATA if none opens it.
SessionKey UnwrapKey(View blob, std::span<const PrivateKey> candidates, const PublicKey* sender);

Bytes WritePlainBlob(const SessionKey& key);
SessionKey ReadPlainBlob(View blob);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_WRAP_H_
