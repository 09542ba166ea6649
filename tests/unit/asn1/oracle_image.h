// The second implementation's view of an image: its elements' headers, where an indefinite length
// ends, whether all of it can be read.
#ifndef ZAREXT_TESTS_UNIT_ASN1_ORACLE_IMAGE_H_
#define ZAREXT_TESTS_UNIT_ASN1_ORACLE_IMAGE_H_

#include <cstddef>
#include <cstdint>

#include "unit/asn1/oracle_values.h"

namespace zarext::oracle {

struct ElementHeader {
  std::size_t size = 0;  // 0: not readable
  bool beyond = false;   // not readable because it needs octets behind the image
  std::uint8_t tag = 0;
  std::uint64_t length = 0;
};

// The header at a position of an image.
ElementHeader ReadHeader(const Octets& image, std::size_t position);

// Checks the element at *position; leaves *position where the check ended. 0 or the load's code.
std::int32_t Validate(const Octets& image, std::uint64_t* position);

// The image's first element alone; nothing where its header is not readable.
Octets OutermostElement(const Octets& image);

}  // namespace zarext::oracle

#endif  // ZAREXT_TESTS_UNIT_ASN1_ORACLE_IMAGE_H_
