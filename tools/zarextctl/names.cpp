#include "zarextctl/names.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "asn1/oid.h"
#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

// clang-format off
constexpr ErrorText kErrors[] = {
    {0, "ERROR_SUCCESS", "no error code was set"},
    {2, "ERROR_FILE_NOT_FOUND", "the file or the registry key is not there"},
    {3, "ERROR_PATH_NOT_FOUND", "the folder is not there"},
    {5, "ERROR_ACCESS_DENIED", "the user may not do this"},
    {6, "ERROR_INVALID_HANDLE", "the handle is not valid"},
    {8, "ERROR_NOT_ENOUGH_MEMORY", "there is no memory left"},
    {13, "ERROR_INVALID_DATA", "the data is damaged"},
    {14, "ERROR_OUTOFMEMORY", "there is no memory left"},
    {32, "ERROR_SHARING_VIOLATION", "another process has the file open"},
    {87, "ERROR_INVALID_PARAMETER", "an argument was refused"},
    {112, "ERROR_DISK_FULL", "the disk is full"},
    {122, "ERROR_INSUFFICIENT_BUFFER", "the buffer is too small"},
    {126, "ERROR_MOD_NOT_FOUND", "the module, or one that it needs, is not there"},
    {127, "ERROR_PROC_NOT_FOUND", "the module lacks a function"},
    {183, "ERROR_ALREADY_EXISTS", "it exists already"},
    {193, "ERROR_BAD_EXE_FORMAT", "the file is no 64-bit module"},
    {234, "ERROR_MORE_DATA", "the buffer is too small"},
    {258, "WAIT_TIMEOUT", "the wait came to its end"},
    {259, "ERROR_NO_MORE_ITEMS", "the list has ended"},
    {1114, "ERROR_DLL_INIT_FAILED", "the module refused to start"},
    {1223, "ERROR_CANCELLED", "the user cancelled it"},
    {0x8000FFFF, "E_UNEXPECTED", "the module does not say more"},
    {0x80070005, "E_ACCESSDENIED", "the user may not do this"},
    {0x80070057, "E_INVALIDARG", "an argument was refused"},
    {0x80090001, "NTE_BAD_UID", "the handle of the provider is not valid"},
    {0x80090002, "NTE_BAD_HASH", "the hash is not valid"},
    {0x80090003, "NTE_BAD_KEY", "the key is not valid"},
    {0x80090004, "NTE_BAD_LEN", "the length is wrong"},
    {0x80090005, "NTE_BAD_DATA", "the data is not what it should be"},
    {0x80090006, "NTE_BAD_SIGNATURE", "the signature is not right"},
    {0x80090007, "NTE_BAD_VER", "the version of the key's form is unknown"},
    {0x80090008, "NTE_BAD_ALGID", "the algorithm is not known there"},
    {0x80090009, "NTE_BAD_FLAGS", "the flags were refused"},
    {0x8009000A, "NTE_BAD_TYPE", "the type was refused"},
    {0x8009000B, "NTE_BAD_KEY_STATE", "the key may not be used like this"},
    {0x8009000D, "NTE_NO_KEY", "there is no such key in the container"},
    {0x8009000E, "NTE_NO_MEMORY", "no memory, or a key that the module cannot read"},
    {0x8009000F, "NTE_EXISTS", "it exists already"},
    {0x80090010, "NTE_PERM", "access was denied"},
    {0x80090011, "NTE_NOT_FOUND", "it is not there"},
    {0x80090013, "NTE_BAD_PROVIDER", "the provider was refused"},
    {0x80090014, "NTE_BAD_PROV_TYPE", "the provider's type is out of range"},
    {0x80090015, "NTE_BAD_PUBLIC_KEY", "the public key is not valid"},
    {0x80090016, "NTE_BAD_KEYSET", "there is no such container"},
    {0x80090017, "NTE_PROV_TYPE_NOT_DEF", "no provider of this type is registered"},
    {0x80090018, "NTE_PROV_TYPE_ENTRY_BAD", "the provider's registration is damaged"},
    {0x80090019, "NTE_KEYSET_NOT_DEF", "the provider is not registered"},
    {0x8009001A, "NTE_KEYSET_ENTRY_BAD", "the container is damaged"},
    {0x8009001B, "NTE_PROV_TYPE_NO_MATCH", "the provider is registered with another type"},
    {0x8009001C, "NTE_SIGNATURE_FILE_BAD", "the provider's own signature is not right"},
    {0x8009001D, "NTE_PROVIDER_DLL_FAIL", "the provider's module does not load, or lacks a function"},
    {0x8009001E, "NTE_PROV_DLL_NOT_FOUND", "the provider's module is not there"},
    {0x8009001F, "NTE_BAD_KEYSET_PARAM", "the container's name was refused"},
    {0x80090020, "NTE_FAIL", "the provider failed"},
    {0x80090022, "NTE_SILENT_CONTEXT", "the provider wants to ask the user, and may not"},
    {0x80090023, "NTE_TOKEN_KEYSET_STORAGE_FULL", "there is no room on the token"},
    {0x80090024, "NTE_TEMPORARY_PROFILE", "the user's profile is a temporary one"},
    {0x80091001, "CRYPT_E_MSG_ERROR", "the message failed"},
    {0x80091002, "CRYPT_E_UNKNOWN_ALGO", "the algorithm has no information record"},
    {0x80091004, "CRYPT_E_INVALID_MSG_TYPE", "the message is of another type"},
    {0x80091007, "CRYPT_E_HASH_VALUE", "the hash value is not right"},
    {0x80091008, "CRYPT_E_INVALID_INDEX", "there is no such item"},
    {0x80092002, "CRYPT_E_BAD_ENCODE", "it could not be encoded or decoded"},
    {0x80092003, "CRYPT_E_FILE_ERROR", "the file could not be read"},
    {0x80092004, "CRYPT_E_NOT_FOUND", "it is not there"},
    {0x80092009, "CRYPT_E_NO_MATCH", "nothing matches"},
    {0x80093100, "CRYPT_E_ASN1_ERROR", "the encoding is damaged"},
    {0x80093102, "CRYPT_E_ASN1_EOD", "the encoding ends too early"},
    {0x80093103, "CRYPT_E_ASN1_CORRUPT", "the encoding is damaged"},
    {0x8009310B, "CRYPT_E_ASN1_BADTAG", "the encoding is of something else"},
    {0x800B0004, "TRUST_E_SUBJECT_NOT_TRUSTED", "the signer is not trusted"},
    {0x800B0100, "TRUST_E_NOSIGNATURE", "it is not signed"},
    {0x800B0101, "CERT_E_EXPIRED", "it has expired, or is not valid yet"},
    {0x800B0103, "CERT_E_ROLE", "it may not issue certificates"},
    {0x800B0105, "CERT_E_CRITICAL", "a critical extension is not understood"},
    {0x800B0109, "CERT_E_UNTRUSTEDROOT", "the root is not a trusted one"},
    {0x800B010A, "CERT_E_CHAINING", "the chain ends before a root"},
    {0x800B0110, "CERT_E_WRONG_USAGE", "it is not meant for this use"},
    {0x80096010, "TRUST_E_BAD_DIGEST", "the file was changed after it was signed"},
    {0xC0000005, "STATUS_ACCESS_VIOLATION", "it touched memory that is not there"},
};

struct Meaning {
  std::uint32_t number;
  const char* text;
};

// The provider's algorithms, then the platform's.
constexpr Meaning kAlgorithms[] = {
    {0x8015, "hash GOST R 34.11-94"},
    {0x801C, "hash of Zarvel"},
    {0x801D, "hash GOST 34.311"},
    {0x8022, "hash GOST R 34.11-2012, 256 bits"},
    {0x8023, "hash GOST R 34.11-2012, 512 bits"},
    {0x681F, "cipher GOST 28147-89"},
    {0x6620, "cipher GOST 28147-89 (P)"},
    {0x201D, "signature key, GOST 34.310 and GOST R 34.10"},
    {0x201E, "signature key, GOST R 34.10-2012, 512 bits"},
    {0x2A3A, "signature key, GOST 34.310-2004/kz"},
    {0x2A40, "signature key, GOST 34.310-2004/kz"},
    {0x2A41, "signature key, GOST 34.310-2004/kz"},
    {0x2A4A, "signature key, GOST 34.10-2015/kz, 512-bit public value"},
    {0x2A4C, "signature key, GOST 34.10-2015/kz, 1024-bit public value"},
    {0xAA3A, "key GOST 34.310-2004"},
    {0xAA40, "key GOST 34.310-2004"},
    {0xAA41, "key GOST 34.310-2004"},
    {0xAA4C, "key GOST R 34.10-2012"},
    {0xAA4D, "key GOST R 34.10-2012"},
    {0xA045, "exchange key GOST 34.310-2004"},
    {0xA046, "exchange key GOST 34.310-2004"},
    {0xA04B, "exchange key GOST 34.10-2015/kz, 1024-bit public value"},
    {0xA04E, "exchange key GOST R 34.10-2012"},
    {0xA04F, "exchange key GOST R 34.10-2012"},
    {0xA055, "exchange key GOST 34.10-2015/kz, 512-bit public value"},
    {0xA020, "key ElGamal"},
    {0xAA21, "key Diffie-Hellman"},
    {0xA450, "key RSA 1024"}, {0xA451, "key RSA 1536"}, {0xA452, "key RSA 2048"},
    {0xA453, "key RSA 3072"}, {0xA454, "key RSA 4096"},
    {0xA050, "exchange key RSA 1024"}, {0xA051, "exchange key RSA 1536"},
    {0xA052, "exchange key RSA 2048"}, {0xA053, "exchange key RSA 3072"},
    {0xA054, "exchange key RSA 4096"},
    {0x2400, "signature key RSA (CALG_RSA_SIGN)"},
    {0xA400, "exchange key RSA (CALG_RSA_KEYX)"},
    {0x8003, "hash MD5"}, {0x8004, "hash SHA-1"}, {0x800C, "hash SHA-256"},
    {0x800D, "hash SHA-384"}, {0x800E, "hash SHA-512"},
    {0x6601, "cipher DES"}, {0x6602, "cipher RC2"}, {0x6603, "cipher 3DES"}, {0x660E, "cipher AES-128"},
    {0x660F, "cipher AES-192"}, {0x6610, "cipher AES-256"}, {0x6611, "cipher AES"}, {0x6801, "cipher RC4"},
};

constexpr Meaning kProviderTypes[] = {
    {1, "PROV_RSA_FULL; Zarvel CSP RSA"},
    {24, "PROV_RSA_AES"},
    {25, "Zarvel CSP"},
};

constexpr Meaning kGroups[] = {
    {1, "hash"}, {2, "encryption"}, {3, "public key"}, {4, "signature"}, {7, "key usage"},
};

struct OidName {
  const char* oid;
  const char* name;
};
constexpr OidName kOidNames[] = {
    {"1.2.840.113549.1.1.1", "RSA"},
    {"1.2.840.113549.1.1.5", "RSA with SHA-1"},
    {"1.2.840.113549.1.1.11", "RSA with SHA-256"},
    {"1.2.840.113549.1.1.12", "RSA with SHA-384"},
    {"1.2.840.113549.1.1.13", "RSA with SHA-512"},
    {"1.2.840.10045.2.1", "elliptic curve key"},
    {"1.2.840.10045.4.3.2", "ECDSA with SHA-256"},
    {"1.2.643.7.1.1.1.1", "GOST R 34.10-2012, 256 bits (TC 26)"},
    {"1.2.643.7.1.1.1.2", "GOST R 34.10-2012, 512 bits (TC 26)"},
    {"1.2.643.7.1.1.3.2", "GOST R 34.10-2012 with 256-bit hash (TC 26)"},
    {"1.2.643.7.1.1.3.3", "GOST R 34.10-2012 with 512-bit hash (TC 26)"},
    {"2.16.840.1.101.3.4.1.2", "AES-128, cipher block chaining"},
    {"2.16.840.1.101.3.4.1.42", "AES-256, cipher block chaining"},
    {"2.16.840.1.101.3.4.2.1", "SHA-256"},
};
// clang-format on

template <std::size_t size>
const Meaning* Find(const Meaning (&table)[size], std::uint32_t number) {
  const auto* found = std::ranges::find(table, number, &Meaning::number);
  return found == std::end(table) ? nullptr : found;
}

}  // namespace

const ErrorText* FindError(std::uint32_t code) {
  const auto* found = std::ranges::find(kErrors, code, &ErrorText::code);
  return found == std::end(kErrors) ? nullptr : found;
}

std::string ErrorLabel(std::uint32_t code) {
  const ErrorText* error = FindError(code);
  return Hex(code) + (error == nullptr ? "" : std::string(" ") + error->name);
}

std::string_view AlgorithmMeaning(std::uint32_t algId) {
  const Meaning* found = Find(kAlgorithms, algId);
  return found == nullptr ? "" : found->text;
}

std::string ProviderTypeLabel(std::uint32_t type) {
  const Meaning* found = Find(kProviderTypes, type);
  return std::to_string(type) + (found == nullptr ? "" : std::string(", ") + found->text);
}

std::string GroupName(std::uint32_t group) {
  const Meaning* found = Find(kGroups, group);
  return found == nullptr ? "group " + std::to_string(group) : found->text;
}

std::string FamilyLabel(const char* oid) {
  if (!IsOwnAlgorithmOid(oid)) {
    return "none of ZAREXT's";
  }
  const struct {
    const char* arc;
    const char* name;
  } families[] = {{kMakerArc, "the maker's arc"},
                  {kCryptoProArc, "the CryptoPro arc"},
                  {kNationalArc, "the national arc"}};
  for (const auto& family : families) {
    if (std::strstr(oid, family.arc) != nullptr) {
      return std::string(family.name) + " " + family.arc;
    }
  }
  return "";
}

std::string_view GeneralOidName(std::string_view oid) {
  const auto* found =
      std::ranges::find_if(kOidNames, [&](const OidName& entry) { return entry.oid == oid; });
  return found == std::end(kOidNames) ? "" : found->name;
}

bool LooksLikeOid(std::string_view text) {
  bool digit = false;
  int dots = 0;
  for (const char letter : text) {
    if (letter == '.') {
      if (!digit) return false;
      ++dots;
    } else if (letter < '0' || letter > '9') {
      return false;
    }
    digit = letter != '.';
  }
  return digit && dots > 0;
}

}  // namespace zarext::ctl
