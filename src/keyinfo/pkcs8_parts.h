// What building and reading key documents share: places in a document, and object identifiers.
#ifndef ZAREXT_KEYINFO_PKCS8_PARTS_H_
#define ZAREXT_KEYINFO_PKCS8_PARTS_H_

#include <cstdint>

namespace zarext::pkcs8 {

// A place, as a type of its own: functions take a code and a place side by side, and neither can
// stand for the other. kAt<0, 1> is the second child of the root's first one, kAt<> the root.
template <std::int32_t... entries>
struct Path {};
template <std::int32_t... entries>
inline constexpr Path<entries...> kAt{};

// RFC 8018.
inline constexpr char kPbes2[] = "1.2.840.113549.1.5.13";
inline constexpr char kPbkdf2[] = "1.2.840.113549.1.5.12";
inline constexpr char kHmacWithSha256[] = "1.2.840.113549.2.9";
// RFC 3565.
inline constexpr char kAes256Cbc[] = "2.16.840.1.101.3.4.1.42";
// RFC 5480.
inline constexpr char kEcPublicKey[] = "1.2.840.10045.2.1";
inline constexpr char kSecp256r1[] = "1.2.840.10045.3.1.7";
inline constexpr char kSecp384r1[] = "1.3.132.0.34";
// RFC 7292.
inline constexpr char kX509Certificate[] = "1.2.840.113549.1.9.22.1";
inline constexpr char kSdsiCertificate[] = "1.2.840.113549.1.9.22.2";
inline constexpr char kX509Crl[] = "1.2.840.113549.1.9.23.1";

}  // namespace zarext::pkcs8

#endif  // ZAREXT_KEYINFO_PKCS8_PARTS_H_
