// The platform's names that the portable half of the provider uses. In the Windows build they come
// from the system headers; the host build, which exists for the sanitizers, gets the same values
// here.
#ifndef ZAREXT_PROVIDER_PLATFORM_H_
#define ZAREXT_PROVIDER_PLATFORM_H_

#ifdef _WIN32
#include <windows.h>

#include <wincrypt.h>
#else
#include <cstdint>

inline constexpr std::uint32_t SIMPLEBLOB = 1;
inline constexpr std::uint32_t PUBLICKEYBLOB = 6;
inline constexpr std::uint32_t PLAINTEXTKEYBLOB = 8;
inline constexpr std::uint32_t AT_KEYEXCHANGE = 1;
inline constexpr std::uint32_t AT_SIGNATURE = 2;
inline constexpr std::uint32_t CALG_RSA_KEYX = 0xA400;
inline constexpr std::uint32_t CALG_RSA_SIGN = 0x2400;
inline constexpr std::uint32_t CALG_SHA1 = 0x8004;
inline constexpr std::uint32_t CALG_SHA_256 = 0x800C;
inline constexpr std::uint32_t CALG_SHA_384 = 0x800D;
inline constexpr std::uint32_t CALG_SHA_512 = 0x800E;
inline constexpr std::uint32_t CRYPT_MODE_CBC = 1;
inline constexpr std::uint32_t CRYPT_MODE_CFB = 4;
inline constexpr std::uint32_t NTE_BAD_HASH = 0x80090002;
inline constexpr std::uint32_t NTE_BAD_KEY = 0x80090003;
inline constexpr std::uint32_t NTE_BAD_LEN = 0x80090004;
inline constexpr std::uint32_t NTE_BAD_DATA = 0x80090005;
inline constexpr std::uint32_t NTE_BAD_SIGNATURE = 0x80090006;
inline constexpr std::uint32_t NTE_BAD_VER = 0x80090007;
inline constexpr std::uint32_t NTE_BAD_ALGID = 0x80090008;
inline constexpr std::uint32_t NTE_BAD_TYPE = 0x8009000A;
inline constexpr std::uint32_t NTE_BAD_HASH_STATE = 0x8009000C;
inline constexpr std::uint32_t NTE_NO_KEY = 0x8009000D;
inline constexpr std::uint32_t NTE_NO_MEMORY = 0x8009000E;
inline constexpr std::uint32_t NTE_BAD_PUBLIC_KEY = 0x80090015;
inline constexpr std::uint32_t NTE_KEYSET_ENTRY_BAD = 0x8009001A;
inline constexpr std::uint32_t NTE_BAD_KEYSET_PARAM = 0x8009001F;
inline constexpr std::uint32_t NTE_FAIL = 0x80090020;
#endif

#endif  // ZAREXT_PROVIDER_PLATFORM_H_
