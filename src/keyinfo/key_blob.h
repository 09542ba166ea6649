// The provider's public-key blobs as octets: a packed header, integers least significant octet
// first (the platform's PUBLICKEYSTRUC), then what the key's family puts behind it.
#ifndef ZAREXT_KEYINFO_KEY_BLOB_H_
#define ZAREXT_KEYINFO_KEY_BLOB_H_

#include <cstddef>
#include <cstdint>

#include "keyinfo/octets.h"

namespace zarext {

// The platform's PUBLICKEYBLOB: asked of the provider, and the bType of every blob built here.
inline constexpr std::uint8_t kPublicKeyBlobType = 6;
// bVersion of the provider's own blobs, of RSA blobs and of the blobs built here.
inline constexpr std::uint8_t kOwnBlobVersion = 2;
// bVersion that marks a CryptoPro blob.
inline constexpr std::uint8_t kCryptoProBlobVersion = 0x20;

// Offsets of the 32-bit words that are read from blobs.
inline constexpr std::size_t kAlgorithmOffset = 4;      // aiKeyAlg
inline constexpr std::size_t kRsaBitLengthOffset = 12;  // RSAPUBKEY.bitlen
inline constexpr std::size_t kRsaExponentOffset = 16;   // RSAPUBKEY.pubexp

// The octet at `index`, or 0 where there is none.
inline std::uint8_t OctetAt(OctetSpan octets, std::size_t index) {
  return index < octets.size() ? octets[index] : std::uint8_t{0};
}

// The octet `back` places before the end (1: the last), or 0 where there is none.
inline std::uint8_t OctetFromEnd(OctetSpan octets, std::size_t back) {
  return back <= octets.size() ? octets[octets.size() - back] : std::uint8_t{0};
}

// The 32-bit word at `offset`, or 0 unless all four octets are there.
inline std::uint32_t WordAt(OctetSpan octets, std::size_t offset) {
  if (octets.size() < 4 || offset > octets.size() - 4) {
    return 0;
  }
  return octets[offset] | std::uint32_t{octets[offset + 1]} << 8 |
         std::uint32_t{octets[offset + 2]} << 16 | std::uint32_t{octets[offset + 3]} << 24;
}

// The key's ALG_ID.
inline std::uint32_t BlobAlgorithm(OctetSpan blob) { return WordAt(blob, kAlgorithmOffset); }

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_KEY_BLOB_H_
