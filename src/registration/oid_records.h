// The OID information records: the names, groups and algorithm identifiers under which the
// framework knows the provider's algorithms.
#ifndef ZAREXT_REGISTRATION_OID_RECORDS_H_
#define ZAREXT_REGISTRATION_OID_RECORDS_H_

#include <array>

#include "frame/provider_type.h"

namespace zarext {

// The extra information of a record: three 32-bit values, registered as 12 octets. The first is the
// ALG_ID of the public key that goes with the algorithm (0: none), the third the provider type.
using ExtraValues = std::array<DWORD, 3>;

struct OidRecord;

// What unregistering does with a record, where it is not simply removed. Installers and
// administrators have met systems in exactly this state.
struct Removal {
  bool isLeft = false;   // its row removes nothing
  ALG_ID algorithm = 0;  // unless 0: named in place of the row's own; the framework ignores it
  const OidRecord* behind = nullptr;  // one more that is removed behind it
};

struct OidRecord {
  int number;  // position in the order of registration, from 1
  DWORD group;
  const char* oid;
  const wchar_t* name;
  ALG_ID algorithm;
  ExtraValues extra;
  Removal removal = {};
};

namespace records {

inline constexpr DWORD kHashGroup = CRYPT_HASH_ALG_OID_GROUP_ID;
inline constexpr DWORD kEncryptionGroup = CRYPT_ENCRYPT_ALG_OID_GROUP_ID;
inline constexpr DWORD kPublicKeyGroup = CRYPT_PUBKEY_ALG_OID_GROUP_ID;
inline constexpr DWORD kSignatureGroup = CRYPT_SIGN_ALG_OID_GROUP_ID;
inline constexpr DWORD kKeyUsageGroup = CRYPT_ENHKEY_USAGE_OID_GROUP_ID;

// Provider types, as the third extra value states them.
inline constexpr DWORD kZarvel = kProviderType;
inline constexpr DWORD kRsa = PROV_RSA_FULL;

// The extra values before the first record and after the last.
inline constexpr ExtraValues kInitialExtra = {0, 0, kZarvel};

// A record that registration never writes and unregistration removes all the same.
inline constexpr OidRecord kUnwritten = {
    0,      kSignatureGroup, "1.3.6.1.4.1.32473.1.6.2", L"Алгоритм подписи ГОСТ 34.310 (4).",
    0x800E, kInitialExtra};

// Rows 30, 46 and 49 repeat OID and group of an earlier row, so nothing of them stays behind; the
// records of rows 35 and 38 stay registered.
inline constexpr Removal kLeft = {.isLeft = true};

// In the order of registration, which decides: an OID and group that stand here twice end up with
// the later row. Kept, and visible to whoever lists the framework's records:
// rows 22 and 30 give one key two names (the second wins); rows 36/46 and 39/49 repeat themselves;
// row 16 and row 27 are one OID as signature and as key; row 19 names AES-256 in CBC mode, although
// of AES the content-key functions generate for 128 bits only; the first extra value of rows 33, 42
// and 44 is the exchange key's ALG_ID, not the row's own.
// clang-format off
inline constexpr OidRecord kTable[] = {
    {1, kKeyUsageGroup, "1.3.6.1.5.5.7.3.10", L"Data Validation and Certification Server.", 0, {0, 0, kZarvel}},
    {2, kKeyUsageGroup, "1.3.6.1.5.5.7.3.9", L"Online Certificate Status Protocol.", 0, {0, 0, kZarvel}},
    {3, kHashGroup, "1.3.6.1.4.1.32473.1.1.1", L"Алгоритм хеширования Zarvel.", 0x801C, {0, 0, kZarvel}},
    {4, kHashGroup, "1.3.6.1.4.1.32473.1.2.1", L"Алгоритм хеширования ГОСТ 34.311.", 0x801D, {0, 0, kZarvel}},
    {5, kHashGroup, "1.2.398.3.10.1.3.1", L"Алгоритм хеширования ГОСТ 34.311.", 0x801D, {0, 0, kZarvel}},
    {6, kHashGroup, "1.2.398.3.10.1.3.1.1.0", L"Алгоритм хеширования ГОСТ 34.311.", 0x801D, {0, 0, kZarvel}},
    {7, kHashGroup, "1.2.398.3.10.1.3.2", L"Алгоритм ГОСТ 34.11-2015", 0x8022, {0, 0, kZarvel}},
    {8, kHashGroup, "1.2.398.3.10.1.3.3", L"Алгоритм ГОСТ 34.11-2015", 0x8023, {0, 0, kZarvel}},
    {9, kHashGroup, "1.2.643.2.2.9", L"Алгоритм хеширования ГОСТ Р 34.11.", 0x8015, {0, 0, kZarvel}},
    {10, kHashGroup, "1.3.6.1.4.1.32473.1.2.5", L"Алгоритм ГОСТ Р 34.11-2012", 0x8022, {0, 0, kZarvel}},
    {11, kHashGroup, "1.3.6.1.4.1.32473.1.2.6", L"Алгоритм ГОСТ Р 34.11-2012", 0x8023, {0, 0, kZarvel}, {.algorithm = 0x8022}},
    {12, kSignatureGroup, "1.3.6.1.4.1.32473.1.2.2", L"Алгоритм подписи ГОСТ 34.310.", 0x801D, {0x201D, 0, kZarvel}},
    {13, kSignatureGroup, "1.2.398.3.10.1.1.1.2", L"Алгоритм подписи ГОСТ 34.310.", 0x801D, {0x201D, 0, kZarvel}},
    {14, kSignatureGroup, "1.2.643.2.2.3", L"Алгоритм подписи ГОСТ Р 34.10.", 0x8015, {0x201D, 0, kZarvel}},
    {15, kSignatureGroup, "1.3.6.1.4.1.32473.1.2.8", L"Алгоритм ГОСТ Р 34.10-2012.", 0x8022, {0x201D, 0, kZarvel}},
    {16, kSignatureGroup, "1.3.6.1.4.1.32473.1.2.7", L"Алгоритм ГОСТ Р 34.10-2012.", 0x8023, {0x201E, 0, kZarvel}, {.behind = &kUnwritten}},
    {17, kSignatureGroup, "1.2.398.3.10.1.1.2.3.1", L"Алгоритм ГОСТ 34.10-2015/kz", 0x8022, {0x201D, 0, kZarvel}},
    {18, kSignatureGroup, "1.2.398.3.10.1.1.2.3.2", L"Алгоритм ГОСТ 34.10-2015/kz", 0x8023, {0x201E, 0, kZarvel}},
    {19, kEncryptionGroup, "2.16.840.1.101.3.4.1.42", L"Алгоритм шифрования AES.", 0x6610, {0, 0, kZarvel}},
    {20, kEncryptionGroup, "1.3.6.1.4.1.32473.1.2.4", L"Алгоритм шифрования ГОСТ 28147-89.", 0x681F, {0, 0, kZarvel}},
    {21, kEncryptionGroup, "1.2.643.2.2.21", L"Алгоритм шифрования ГОСТ 28147-89 (P).", 0x6620, {0, 0, kZarvel}},
    {22, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.2.2", L"ГОСТ 34.310-2004.", 0x201D, {0x201D, 0, kZarvel}},
    {23, kPublicKeyGroup, "1.2.398.3.10.1.1.1.1", L"Ключ ГОСТ 34.310-2004/kz", 0x201D, {0x201D, 0, kZarvel}},
    {24, kPublicKeyGroup, "1.2.398.3.10.1.1.2.1", L"Ключ ГОСТ 34.10-2015/kz", 0x201D, {0x201D, 0, kZarvel}},
    {25, kPublicKeyGroup, "1.2.398.3.10.1.1.2.2", L"Ключ ГОСТ 34.10-2015/kz", 0x201E, {0x201E, 0, kZarvel}},
    {26, kPublicKeyGroup, "1.2.643.2.2.19", L"ГОСТ Р 34.10-2001.", 0x201D, {0x201D, 0, kZarvel}},
    {27, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.2.7", L"ГОСТ Р 34.10-2012.", 0x201E, {0x201E, 0, kZarvel}},
    {28, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.4.4", L"Алгоритм Диффи - Хеллмана. Открытый ключ.", 0xAA21, {0xAA21, 0, kZarvel}},
    {29, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.3.4", L"Алгоритм Эль-Гамаля. Открытый ключ.", 0xA020, {0xA020, 0, kZarvel}},
    {30, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.2.2", L"Алгоритм ГОСТ 34.310.", 0x201D, {0x201D, 0, kZarvel}, kLeft},
    {31, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.8", L"Ключ ГОСТ 34.310-2004", 0xAA3A, {0xAA3A, 0, kZarvel}},
    {32, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.17", L"Ключ ГОСТ Р 34.10-2012", 0xAA4C, {0xAA4C, 0, kZarvel}},
    {33, kPublicKeyGroup, "1.2.398.3.10.1.1.1.1.1", L"Ключ ГОСТ 34.310-2004/kz", 0x2A3A, {0xAA3A, 0, kZarvel}},
    {34, kPublicKeyGroup, "1.2.398.3.10.1.1.2.1.1", L"Ключ ГОСТ 34.10-2015/kz", 0x2A4A, {0x2A4A, 0, kZarvel}},
    {35, kPublicKeyGroup, "1.2.398.3.10.1.4.1.1", L"Ключ ГОСТ 34.10-2015/kz", 0xA055, {0xA055, 0, kZarvel}, kLeft},
    {36, kPublicKeyGroup, "1.2.398.3.10.1.4.1.1.1", L"Ключ ГОСТ 34.10-2015/kz", 0xA055, {0xA055, 0, kZarvel}},
    {37, kPublicKeyGroup, "1.2.398.3.10.1.1.2.2.1", L"Ключ ГОСТ 34.10-2015/kz", 0x2A4C, {0x2A4C, 0, kZarvel}},
    {38, kPublicKeyGroup, "1.2.398.3.10.1.4.1.2", L"Ключ ГОСТ 34.10-2015/kz", 0xA04B, {0xA04B, 0, kZarvel}, kLeft},
    {39, kPublicKeyGroup, "1.2.398.3.10.1.4.1.2.1", L"Ключ ГОСТ 34.10-2015/kz", 0xA04B, {0xA04B, 0, kZarvel}},
    {40, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.14", L"Ключ ГОСТ 34.310-2004", 0xAA40, {0xAA40, 0, kZarvel}},
    {41, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.18", L"Ключ ГОСТ Р 34.10-2012", 0xAA4D, {0xAA4D, 0, kZarvel}},
    {42, kPublicKeyGroup, "1.2.398.3.10.1.1.1.1.2", L"Ключ ГОСТ 34.310-2004/kz", 0x2A40, {0xAA40, 0, kZarvel}},
    {43, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.15", L"Ключ ГОСТ 34.310-2004", 0xAA41, {0xAA41, 0, kZarvel}},
    {44, kPublicKeyGroup, "1.2.398.3.10.1.1.1.1.3", L"Ключ ГОСТ 34.310-2004/kz", 0x2A41, {0xAA41, 0, kZarvel}},
    {45, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.8", L"Ключ ГОСТ 34.310-2004", 0xA045, {0xA045, 0, kZarvel}},
    {46, kPublicKeyGroup, "1.2.398.3.10.1.4.1.1.1", L"Ключ ГОСТ 34.10-2015/kz", 0xA055, {0xA055, 0, kZarvel}, kLeft},
    {47, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.14", L"Ключ ГОСТ 34.310-2004", 0xA046, {0xA046, 0, kZarvel}},
    {48, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.11", L"Ключ ГОСТ 34.10-2012", 0xA04E, {0xA04E, 0, kZarvel}},
    {49, kPublicKeyGroup, "1.2.398.3.10.1.4.1.2.1", L"Ключ ГОСТ 34.10-2015/kz", 0xA04B, {0xA04B, 0, kZarvel}, kLeft},
    {50, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.12", L"Ключ ГОСТ 34.10-2012", 0xA04F, {0xA04F, 0, kZarvel}},
    {51, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.12", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xAA3E, {0xAA3E, 0, kZarvel}},
    {52, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.13", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xAA3F, {0xAA3F, 0, kZarvel}},
    {53, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.9", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xAA3B, {0xAA3B, 0, kZarvel}},
    {54, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.9", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xA049, {0xA049, 0, kZarvel}, {.algorithm = 0xAA3B}},
    {55, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.10", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xAA3C, {0xAA3C, 0, kZarvel}},
    {56, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.10", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xA047, {0xA047, 0, kZarvel}},
    {57, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.11", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xAA3D, {0xAA3D, 0, kZarvel}},
    {58, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.15", L"Ключ ГОСТ 34.310 (FIPS PUB 180-2)", 0xA048, {0xA048, 0, kZarvel}},
    {59, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.20", L"Ключ RSA (1024 bits)", 0xA450, {0xA450, 0, kRsa}},
    {60, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.20", L"Ключ RSA (1024 bits)", 0xA050, {0xA050, 0, kRsa}},
    {61, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.21", L"Ключ RSA (1536 bits)", 0xA451, {0xA451, 0, kRsa}},
    {62, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.21", L"Ключ RSA (1536 bits)", 0xA051, {0xA051, 0, kRsa}},
    {63, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.22", L"Ключ RSA (2048 bits)", 0xA452, {0xA452, 0, kRsa}},
    {64, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.22", L"Ключ RSA (2048 bits)", 0xA052, {0xA052, 0, kRsa}},
    {65, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.23", L"Ключ RSA (3072 bits)", 0xA453, {0xA453, 0, kRsa}},
    {66, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.23", L"Ключ RSA (3072 bits)", 0xA053, {0xA053, 0, kRsa}},
    {67, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.5.24", L"Ключ RSA (4096 bits)", 0xA454, {0xA454, 0, kRsa}},
    {68, kPublicKeyGroup, "1.3.6.1.4.1.32473.1.8.24", L"Ключ RSA (4096 bits)", 0xA054, {0xA054, 0, kRsa}},
};
// clang-format on

consteval bool IsNumberedInOrder() {
  int expected = 1;
  for (const OidRecord& record : kTable) {
    if (record.number != expected++) {
      return false;
    }
  }
  return true;
}

static_assert(std::size(kTable) == 68);
static_assert(IsNumberedInOrder());

}  // namespace records
}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_OID_RECORDS_H_
