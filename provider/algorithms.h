// Every fact about the provider's algorithms, once. All other files look them up here.
#ifndef ZAREXT_PROVIDER_ALGORITHMS_H_
#define ZAREXT_PROVIDER_ALGORITHMS_H_

#include <gcrypt.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "provider/platform.h"

namespace zarext::provider {

enum class KeyFamily : std::uint8_t { kGost, kRsa };

// An elliptic curve of GOST R 34.10. The first of `oids` is the one that the provider writes.
struct Curve {
  const char* gcrypt;
  std::array<const char*, 3> oids;
  unsigned bits;  // of the field and of the order; a public value has twice as many
};

// The first curve of each size is the one that new keys get. The others are there because a
// public-key blob does not name its curve: the key of a foreign certificate is tried on each of
// them in turn.
inline constexpr std::array kCurves{
    Curve{"GOST2001-CryptoPro-A",
          {"1.2.643.2.2.35.1", "1.2.643.7.1.2.1.1.2", "1.2.643.2.2.36.0"},
          256},
    Curve{"GOST2001-CryptoPro-B", {"1.2.643.2.2.35.2", "1.2.643.7.1.2.1.1.3"}, 256},
    Curve{"GOST2001-CryptoPro-C",
          {"1.2.643.2.2.35.3", "1.2.643.7.1.2.1.1.4", "1.2.643.2.2.36.1"},
          256},
    Curve{"GOST2012-256-A", {"1.2.643.7.1.2.1.1.1"}, 256},
    Curve{"GOST2001-test", {"1.2.643.2.2.35.0"}, 256},
    Curve{"GOST2012-512-tc26-A", {"1.2.643.7.1.2.1.2.1"}, 512},
    Curve{"GOST2012-512-tc26-B", {"1.2.643.7.1.2.1.2.2"}, 512},
    Curve{"GOST2012-512-tc26-C", {"1.2.643.7.1.2.1.2.3"}, 512},
};

struct KeyAlgorithm {
  std::uint32_t algId;
  KeyFamily family;
  unsigned bits;     // GOST: of the public value; RSA: of the modulus, 0 for any supported size
  const char* oid;   // in a PrivateKeyInfo
  const char* name;  // for PP_ENUMALGS, at most 19 characters
};

inline constexpr unsigned kMinRsaBits = 1024;
inline constexpr unsigned kMaxRsaBits = 4096;
inline constexpr unsigned kDefaultRsaBits = 2048;

inline constexpr std::array kKeyAlgorithms{
    KeyAlgorithm{0xAA3A, KeyFamily::kGost, 512, "1.3.6.1.4.1.32473.1.5.8", "GOST 34.310"},
    KeyAlgorithm{0x2A3A, KeyFamily::kGost, 512, "1.2.398.3.10.1.1.1.1.1", "GOST 34.310 KZ"},
    KeyAlgorithm{0xA045, KeyFamily::kGost, 512, "1.3.6.1.4.1.32473.1.8.8", "GOST 34.310 KX"},
    KeyAlgorithm{0x2A4A, KeyFamily::kGost, 512, "1.2.398.3.10.1.1.2.1.1", "GOST 34.10-15"},
    KeyAlgorithm{0xA055, KeyFamily::kGost, 512, "1.2.398.3.10.1.4.1.1.1", "GOST 34.10-15 KX"},
    KeyAlgorithm{0xAA4C, KeyFamily::kGost, 1024, "1.3.6.1.4.1.32473.1.5.17", "GOST 34.10-12"},
    KeyAlgorithm{0x2A4C, KeyFamily::kGost, 1024, "1.2.398.3.10.1.1.2.2.1", "GOST 34.10-15 1024"},
    KeyAlgorithm{0xA04B, KeyFamily::kGost, 1024, "1.2.398.3.10.1.4.1.2.1", "GOST 34.10-15 1024K"},
    KeyAlgorithm{0xA450, KeyFamily::kRsa, 1024, "1.3.6.1.4.1.32473.1.5.20", "RSA 1024"},
    KeyAlgorithm{0xA451, KeyFamily::kRsa, 1536, "1.3.6.1.4.1.32473.1.5.21", "RSA 1536"},
    KeyAlgorithm{0xA452, KeyFamily::kRsa, 2048, "1.3.6.1.4.1.32473.1.5.22", "RSA 2048"},
    KeyAlgorithm{0xA453, KeyFamily::kRsa, 3072, "1.3.6.1.4.1.32473.1.5.23", "RSA 3072"},
    KeyAlgorithm{0xA454, KeyFamily::kRsa, 4096, "1.3.6.1.4.1.32473.1.5.24", "RSA 4096"},
    KeyAlgorithm{0xA050, KeyFamily::kRsa, 1024, "1.3.6.1.4.1.32473.1.8.20", "RSA 1024 KX"},
    KeyAlgorithm{0xA051, KeyFamily::kRsa, 1536, "1.3.6.1.4.1.32473.1.8.21", "RSA 1536 KX"},
    KeyAlgorithm{0xA052, KeyFamily::kRsa, 2048, "1.3.6.1.4.1.32473.1.8.22", "RSA 2048 KX"},
    KeyAlgorithm{0xA053, KeyFamily::kRsa, 3072, "1.3.6.1.4.1.32473.1.8.23", "RSA 3072 KX"},
    KeyAlgorithm{0xA054, KeyFamily::kRsa, 4096, "1.3.6.1.4.1.32473.1.8.24", "RSA 4096 KX"},
    KeyAlgorithm{CALG_RSA_SIGN, KeyFamily::kRsa, 0, "1.2.840.113549.1.1.1", "RSA_SIGN"},
    KeyAlgorithm{CALG_RSA_KEYX, KeyFamily::kRsa, 0, "1.2.840.113549.1.1.1", "RSA_KEYX"},
};

// Names under which other programs write the same private keys.
struct ForeignOid {
  const char* oid;
  std::uint32_t algId;
};
inline constexpr std::array kForeignOids{
    ForeignOid{"1.2.643.2.2.19", 0xAA3A},
    ForeignOid{"1.2.643.7.1.1.1.1", 0xAA3A},
    ForeignOid{"1.2.643.7.1.1.1.2", 0xAA4C},
};

struct HashAlgorithm {
  std::uint32_t algId;
  KeyFamily family;  // of the keys that sign its values
  int gcrypt;
  unsigned bits;
  const char* name;
};

inline constexpr std::array kHashAlgorithms{
    // 0x8015 uses the CryptoPro parameter set, the national form 0x801D the set of the standard's
    // annex.
    HashAlgorithm{0x8015, KeyFamily::kGost, GCRY_MD_GOSTR3411_CP, 256, "GOST R 34.11-94"},
    HashAlgorithm{0x801D, KeyFamily::kGost, GCRY_MD_GOSTR3411_94, 256, "GOST 34.311"},
    HashAlgorithm{0x8022, KeyFamily::kGost, GCRY_MD_STRIBOG256, 256, "GOST 34.11-12 256"},
    HashAlgorithm{0x8023, KeyFamily::kGost, GCRY_MD_STRIBOG512, 512, "GOST 34.11-12 512"},
    HashAlgorithm{CALG_SHA1, KeyFamily::kRsa, GCRY_MD_SHA1, 160, "SHA-1"},
    HashAlgorithm{CALG_SHA_256, KeyFamily::kRsa, GCRY_MD_SHA256, 256, "SHA-256"},
    HashAlgorithm{CALG_SHA_384, KeyFamily::kRsa, GCRY_MD_SHA384, 384, "SHA-384"},
    HashAlgorithm{CALG_SHA_512, KeyFamily::kRsa, GCRY_MD_SHA512, 512, "SHA-512"},
};

struct CipherAlgorithm {
  std::uint32_t algId;
  int gcrypt;
  int gcryptMode;
  std::uint32_t mode;  // CRYPT_MODE_..., as KP_MODE reports it
  const char* sbox;    // parameter set of GOST 28147-89, null for the others
  unsigned keyBytes;
  unsigned blockBytes;
  bool padded;  // false: the output is as long as the input
  const char* name;
};

inline constexpr const char* kSboxCryptoProA = "1.2.643.2.2.31.1";

inline constexpr std::array kCipherAlgorithms{
    // The ALG_ID type of 0x681F is "stream" and that of 0x6620 "block", hence the two modes.
    CipherAlgorithm{0x681F, GCRY_CIPHER_GOST28147, GCRY_CIPHER_MODE_CFB, CRYPT_MODE_CFB,
                    kSboxCryptoProA, 32, 8, false, "GOST 28147-89"},
    CipherAlgorithm{0x6620, GCRY_CIPHER_GOST28147, GCRY_CIPHER_MODE_CBC, CRYPT_MODE_CBC,
                    kSboxCryptoProA, 32, 8, true, "GOST 28147-89 (P)"},
    CipherAlgorithm{0x6610, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_CBC, CRYPT_MODE_CBC, nullptr, 32,
                    16, true, "AES 256"},
    // The platform's own record of AES-128 has 0x660E; 0x6611 is AES of no size.
    CipherAlgorithm{0x660E, GCRY_CIPHER_AES128, GCRY_CIPHER_MODE_CBC, CRYPT_MODE_CBC, nullptr, 16,
                    16, true, "AES 128"},
    CipherAlgorithm{0x6611, GCRY_CIPHER_AES128, GCRY_CIPHER_MODE_CBC, CRYPT_MODE_CBC, nullptr, 16,
                    16, true, "AES"},
};

template <typename Table>
constexpr auto* FindIn(const Table& table, std::uint32_t algId) {
  for (const auto& row : table) {
    if (row.algId == algId) {
      return &row;
    }
  }
  return static_cast<const typename Table::value_type*>(nullptr);
}

constexpr const KeyAlgorithm* FindKeyAlgorithm(std::uint32_t algId) {
  return FindIn(kKeyAlgorithms, algId);
}
constexpr const HashAlgorithm* FindHashAlgorithm(std::uint32_t algId) {
  return FindIn(kHashAlgorithms, algId);
}
constexpr const CipherAlgorithm* FindCipherAlgorithm(std::uint32_t algId) {
  return FindIn(kCipherAlgorithms, algId);
}

// The key algorithm that a PrivateKeyInfo names, null for an unknown one. The plain RSA name stands
// for two rows; it gives the signature one.
constexpr const KeyAlgorithm* FindKeyAlgorithmByOid(std::string_view oid) {
  for (const KeyAlgorithm& row : kKeyAlgorithms) {
    if (oid == row.oid) {
      return &row;
    }
  }
  for (const ForeignOid& row : kForeignOids) {
    if (oid == row.oid) {
      return FindKeyAlgorithm(row.algId);
    }
  }
  return nullptr;
}

// The curve that new keys of a GOST algorithm get.
constexpr const Curve& DefaultCurve(const KeyAlgorithm& algorithm) {
  return *std::find_if(kCurves.begin(), kCurves.end(),
                       [&](const Curve& curve) { return curve.bits * 2 == algorithm.bits; });
}
static_assert(DefaultCurve(*FindKeyAlgorithm(0xAA3A)).bits == 256 &&
              DefaultCurve(*FindKeyAlgorithm(0xAA4C)).bits == 512);

constexpr const Curve* FindCurve(std::string_view oid) {
  for (const Curve& curve : kCurves) {
    for (const char* name : curve.oids) {
      if (name && oid == name) {
        return &curve;
      }
    }
  }
  return nullptr;
}

// The key of a container (AT_KEYEXCHANGE or AT_SIGNATURE) that an algorithm belongs to. This is not
// the class in the upper bits: readers of a container take a key whose ALG_ID type is "any" for the
// exchange key and every other one (0xAA3A or 0xA450 too) for the signature key, and ask for it
// under that number.
constexpr std::uint32_t KeySpecOf(std::uint32_t algId) {
  if (algId == CALG_RSA_KEYX) {
    return AT_KEYEXCHANGE;
  }
  return (algId & 0x1E00) == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
}

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_ALGORITHMS_H_
