// The little DER (X.690) that the provider's files, private keys and certificates need. It is on
// purpose not the module's codec: the provider has to be an independent judge of what the module
// encodes.
#ifndef ZAREXT_PROVIDER_DER_H_
#define ZAREXT_PROVIDER_DER_H_

#include <string>
#include <string_view>

#include "provider/bytes.h"

namespace zarext::provider {

inline constexpr std::uint8_t kDerInteger = 0x02;
inline constexpr std::uint8_t kDerBitString = 0x03;
inline constexpr std::uint8_t kDerOctetString = 0x04;
inline constexpr std::uint8_t kDerNull = 0x05;
inline constexpr std::uint8_t kDerOid = 0x06;
inline constexpr std::uint8_t kDerUtf8String = 0x0C;
inline constexpr std::uint8_t kDerSequence = 0x30;
inline constexpr std::uint8_t kDerSet = 0x31;
inline constexpr std::uint8_t kDerContext0 = 0xA0;
inline constexpr std::uint8_t kDerContext1 = 0xA1;
inline constexpr std::uint8_t kDerContext3 = 0xA3;

struct DerElement {
  std::uint8_t tag = 0;
  View content;
  View whole;  // with its header
};

// Reads elements one after the other. Anything but definite, shortest-form lengths within the data
// and one-octet tags is NTE_BAD_DATA.
class DerReader {
 public:
  explicit DerReader(View data) : rest_(data) {}

  bool AtEnd() const { return rest_.empty(); }
  bool NextIs(std::uint8_t tag) const { return !rest_.empty() && rest_[0] == tag; }
  DerElement Next();
  View Next(std::uint8_t tag);       // the content; NTE_BAD_DATA for another tag
  DerReader Enter(std::uint8_t tag)  // a reader of the content
  {
    return DerReader(Next(tag));
  }
  void Skip(std::uint8_t tag) {
    if (NextIs(tag)) {
      Next();
    }
  }
  void ExpectEnd() const { Require(rest_.empty(), NTE_BAD_DATA); }

 private:
  View rest_;
};

// The length of the element that starts at `data`. Reads the header alone, and no octet behind it;
// NTE_BAD_DATA if the header is not one of `tag` with at most 3 length octets.
std::size_t MeasureDer(const std::uint8_t* data, std::uint8_t tag);

Bytes Der(std::uint8_t tag, View content);
Bytes DerOid(std::string_view dotted);
Bytes DerUnsigned(View bigEndian);  // a non-negative INTEGER
Bytes DerSmall(std::uint8_t value);
Bytes DerBits(View octets);

template <typename... Parts>
Bytes Join(const Parts&... parts) {
  Bytes out;
  (Append(out, parts), ...);
  return out;
}

template <typename... Parts>
Bytes DerSequence(const Parts&... parts) {
  return Der(kDerSequence, Join(parts...));
}

std::string ReadOid(View content);
Bytes ReadUnsigned(
    View content);             // without leading zeros; NTE_BAD_DATA for a negative or longer form
Bytes ReadBits(View content);  // whole octets only

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_DER_H_
