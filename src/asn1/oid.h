// Object identifiers as dotted-decimal text and as the content octets of a DER OBJECT IDENTIFIER
// (X.690, 8.19), and the test by which every export decides whether an algorithm is one of ours.
#ifndef ZAREXT_ASN1_OID_H_
#define ZAREXT_ASN1_OID_H_

#include <cstdint>
#include <string>

namespace zarext {

// The three families of algorithms that the module serves. The first two end with a dot and
// match only what lies below them; the third does not, and so also matches itself and an
// identifier such as 1.2.398.3.10.10.
inline constexpr const char* kMakerArc = "1.3.6.1.4.1.32473.";
inline constexpr const char* kCryptoProArc = "1.2.643.2.2.";
inline constexpr const char* kNationalArc = "1.2.398.3.10.1";

// At most this many arcs of a text are read, and at most one arc less of a content.
inline constexpr std::int32_t kMaxOidTextArcs = 64;
inline constexpr std::int32_t kMaxOidContentArcs = 63;

// A buffer of this size holds whatever OidTextToContent writes: one octet for the first two arcs,
// at most four for each further one.
inline constexpr std::int32_t kMaxOidContent = 1 + 4 * (kMaxOidTextArcs - 2);

// Writes the content octets of a dotted text to out (kMaxOidContent octets serve for any text)
// and returns their number, at least 1. Reports no error: arcs are read as atol reads them where
// long has 32 bits (an arc that is no number is 0, an arc out of range is the nearest number),
// runs of dots separate once, the first octet is taken modulo 256 and an arc of 2^28 or more
// loses its upper bits. A missing first or second arc, or a null text, counts as 0.
std::int32_t OidTextToContent(const char* text, std::uint8_t* out);

// The dotted text of length content octets. Reports no error: the first octet is always split as
// 40 * first + second arc, arcs are 32-bit and signed, an unfinished last arc is dropped, and the
// text ends with the arc that makes it longer than 256 characters. No octets give an empty text.
std::string OidContentToText(const std::uint8_t* content, std::uint32_t length);

// Whether the text names one of the three families: true as soon as one of the arcs above occurs
// anywhere in it. Null gives false.
bool IsOwnAlgorithmOid(const char* text);

// Whether the text is that one, whole; null is none. `known` is not null.
bool SameOid(const char* text, const char* known) noexcept;

}  // namespace zarext

#endif  // ZAREXT_ASN1_OID_H_
