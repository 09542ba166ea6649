// Bags of the three kinds by their number.
#ifndef ZAREXT_TESTS_UNIT_KEYINFO_BAGS_H_
#define ZAREXT_TESTS_UNIT_KEYINFO_BAGS_H_

#include <cstdint>

#include "keyinfo/pkcs8.h"

namespace zarext::test {

inline Pkcs8Record BagOf(std::uint32_t kind, const zarext::BagRecord& bag) {
  switch (kind) {
    case 3:
      return CertBagRecord{bag};
    case 4:
      return CrlBagRecord{bag};
    default:
      return SecretBagRecord{bag};
  }
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_KEYINFO_BAGS_H_
