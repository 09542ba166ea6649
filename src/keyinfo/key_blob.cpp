#include "keyinfo/key_blob.h"

namespace zarext {

std::uint8_t OctetAt(OctetSpan octets, std::size_t index) {
  return index < octets.size() ? octets[index] : std::uint8_t{0};
}

std::uint8_t OctetFromEnd(OctetSpan octets, std::size_t back) {
  return back <= octets.size() ? octets[octets.size() - back] : std::uint8_t{0};
}

std::uint32_t WordAt(OctetSpan octets, std::size_t offset) {
  if (octets.size() < 4 || offset > octets.size() - 4) {
    return 0;
  }
  return octets[offset] | std::uint32_t{octets[offset + 1]} << 8 |
         std::uint32_t{octets[offset + 2]} << 16 | std::uint32_t{octets[offset + 3]} << 24;
}

}  // namespace zarext
