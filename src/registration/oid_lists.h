// The OID lists of the function bindings. List A is written out; B and C say what they leave out of
// it and what they put before it.
#ifndef ZAREXT_REGISTRATION_OID_LISTS_H_
#define ZAREXT_REGISTRATION_OID_LISTS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace zarext {

using OidSpan = std::span<const char* const>;

constexpr bool Contains(OidSpan list, std::string_view oid) {
  return std::ranges::any_of(list, [&](const char* entry) { return oid == entry; });
}

// `list` in its order without the entries of `leftOut`. Does not compile if one of them is not
// there.
template <std::size_t N, std::size_t M>
consteval std::array<const char*, N - M> Without(const std::array<const char*, N>& list,
                                                 const std::array<const char*, M>& leftOut) {
  std::array<const char*, N - M> rest{};
  std::size_t count = 0;
  for (const char* oid : list) {
    if (!Contains(leftOut, oid)) {
      rest.at(count++) = oid;
    }
  }
  if (count != rest.size()) {
    throw "an entry to leave out is not in the list";
  }
  return rest;
}

// `first` and then `second`.
template <std::size_t N, std::size_t M>
consteval std::array<const char*, N + M> Joined(const std::array<const char*, N>& first,
                                                const std::array<const char*, M>& second) {
  std::array<const char*, N + M> joined{};
  std::ranges::copy(second, std::ranges::copy(first, joined.begin()).out);
  return joined;
}

namespace oids {

inline constexpr char kDiffieHellman[] = "1.3.6.1.4.1.32473.1.4.4";
inline constexpr char kElGamal[] = "1.3.6.1.4.1.32473.1.3.4";
inline constexpr char kGostR3410Signature[] = "1.2.643.2.2.3";
inline constexpr char kGostR3410Key[] = "1.2.643.2.2.19";

// List A: the public-key functions.
inline constexpr std::array kPublicKey = std::to_array<const char*>({
    kDiffieHellman,
    kElGamal,
    "1.3.6.1.4.1.32473.1.2.2",
    "1.3.6.1.4.1.32473.1.2.7",
    "1.2.398.3.10.1.1.1.1",
    "1.2.398.3.10.1.1.2.1",
    "1.2.398.3.10.1.4.1.1",
    "1.2.398.3.10.1.1.2.2",
    "1.2.398.3.10.1.4.1.2",
    kGostR3410Signature,
    kGostR3410Key,
    "1.3.6.1.4.1.32473.1.5.8",
    "1.3.6.1.4.1.32473.1.5.17",
    "1.2.398.3.10.1.1.1.1.1",
    "1.2.398.3.10.1.1.2.1.1",
    "1.2.398.3.10.1.4.1.1.1",
    "1.2.398.3.10.1.1.2.2.1",
    "1.2.398.3.10.1.4.1.2.1",
    "1.3.6.1.4.1.32473.1.5.14",
    "1.3.6.1.4.1.32473.1.5.18",
    "1.2.398.3.10.1.1.1.1.2",
    "1.3.6.1.4.1.32473.1.5.15",
    "1.2.398.3.10.1.1.1.1.3",
    "1.3.6.1.4.1.32473.1.8.8",
    "1.3.6.1.4.1.32473.1.8.14",
    "1.3.6.1.4.1.32473.1.8.11",
    "1.3.6.1.4.1.32473.1.8.12",
    "1.3.6.1.4.1.32473.1.5.9",
    "1.3.6.1.4.1.32473.1.8.9",
    "1.3.6.1.4.1.32473.1.5.10",
    "1.3.6.1.4.1.32473.1.5.11",
    "1.3.6.1.4.1.32473.1.5.20",
    "1.3.6.1.4.1.32473.1.8.20",
    "1.3.6.1.4.1.32473.1.5.21",
    "1.3.6.1.4.1.32473.1.8.21",
    "1.3.6.1.4.1.32473.1.5.22",
    "1.3.6.1.4.1.32473.1.8.22",
    "1.3.6.1.4.1.32473.1.5.23",
    "1.3.6.1.4.1.32473.1.8.23",
    "1.3.6.1.4.1.32473.1.5.24",
    "1.3.6.1.4.1.32473.1.8.24",
});

// What lists B and C have in common.
inline constexpr std::array kCommon = Without(
    kPublicKey,
    std::to_array<const char*>({kDiffieHellman, kElGamal, kGostR3410Signature, kGostR3410Key}));

// List B: the private-key functions.
inline constexpr std::array kPrivateKey = Without(
    kCommon, std::to_array<const char*>({"1.3.6.1.4.1.32473.1.5.9", "1.3.6.1.4.1.32473.1.8.9",
                                         "1.3.6.1.4.1.32473.1.5.10", "1.3.6.1.4.1.32473.1.5.11"}));

// List C: the key-transport functions. Its first two OIDs, list A's in the opposite order, are
// registered with encoding type 0x10001, the rest with 1. The framework files both in one place:
// only who watches its functions sees the difference.
inline constexpr std::array kKeyTransportFirst =
    std::to_array<const char*>({kElGamal, kDiffieHellman});
inline constexpr std::array kKeyTransport = Joined(kKeyTransportFirst, kCommon);

// The content-encryption functions, each in its own order. Not the OIDs that these functions
// accept, as whoever envelopes a message notices: the last two of the first list are bound and
// refused, and "2.16.840.1.101.3.4.1.2" and "1.3.6.1.4.1.32473.1.20.1" are accepted and never
// bound.
inline constexpr std::array kContentKey = std::to_array<const char*>(
    {"1.3.6.1.4.1.32473.1.2.4", "1.2.643.2.2.21", "2.16.840.1.101.3.4.1.42"});
inline constexpr std::array kOlderContentKey = std::to_array<const char*>(
    {"2.16.840.1.101.3.4.1.42", "1.3.6.1.4.1.32473.1.2.4", "1.2.643.2.2.21"});

// Four OIDs of lists A and B that unregistering leaves bound to some of the functions, and two that
// it removes twice from one.
inline constexpr std::array kLeftBound =
    std::to_array<const char*>({"1.2.398.3.10.1.1.2.1.1", "1.2.398.3.10.1.4.1.1.1",
                                "1.2.398.3.10.1.1.2.2.1", "1.2.398.3.10.1.4.1.2.1"});
inline constexpr std::array kRemovedTwice =
    std::to_array<const char*>({"1.3.6.1.4.1.32473.1.8.11", "1.3.6.1.4.1.32473.1.8.12"});

static_assert(kPublicKey.size() == 41);
static_assert(kPrivateKey.size() == 33);
static_assert(kKeyTransport.size() == 39);

}  // namespace oids
}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_OID_LISTS_H_
