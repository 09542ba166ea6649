// Copying of short contents and headers: quicker in line than by a call.
#ifndef ZAREXT_ASN1_COPY_OCTETS_H_
#define ZAREXT_ASN1_COPY_OCTETS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zarext {

// Copies at most 48 octets, in a few moves that overlap.
inline void CopyShort(std::uint8_t* to, const std::uint8_t* from, std::uint32_t count) {
  if (count >= 16) {
    std::memcpy(to, from, 16);
    if (count > 32) {
      std::memcpy(to + 16, from + 16, 16);
    }
    std::memcpy(to + count - 16, from + count - 16, 16);
  } else if (count >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + count - 8, from + count - 8, 8);
  } else if (count >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + count - 4, from + count - 4, 4);
  } else if (count > 0) {
    to[0] = from[0];
    to[count / 2] = from[count / 2];
    to[count - 1] = from[count - 1];
  }
}

// Copies at most kRoom octets and writes zeros up to kRoom, without a branch: how long the next
// content is cannot be predicted. Reads kRoom octets, whatever the count is.
template <std::uint32_t kRoom>
void CopyAndClear(std::uint8_t* to, const std::uint8_t* from, std::uint32_t count) {
  static_assert(kRoom > 32 && kRoom <= 48);
  static constexpr auto kMask = [] {
    std::array<std::uint8_t, std::size_t{2} * kRoom> mask{};
    std::fill_n(mask.begin(), kRoom, std::uint8_t{0xFF});
    return mask;
  }();
  const auto copy16 = [to, from, mask = kMask.data() + (kRoom - count)](std::uint32_t at) {
    std::uint64_t words[2];
    std::uint64_t keep[2];
    std::memcpy(words, from + at, sizeof(words));
    std::memcpy(keep, mask + at, sizeof(keep));
    words[0] &= keep[0];
    words[1] &= keep[1];
    std::memcpy(to + at, words, sizeof(words));
  };
  copy16(0);
  copy16(16);
  copy16(kRoom - 16);
}

}  // namespace zarext

#endif  // ZAREXT_ASN1_COPY_OCTETS_H_
