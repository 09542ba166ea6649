// The allocations of a program whose linker sends them here: counted, refused, and searched for
// secrets when they are given back.
#ifndef ZAREXT_TESTS_UNIT_ASN1_COUNTED_MEMORY_H_
#define ZAREXT_TESTS_UNIT_ASN1_COUNTED_MEMORY_H_

#include <cstddef>
#include <cstdint>

namespace zarext {

struct Allocations {
  bool counting = false;
  std::size_t count = 0;
  std::size_t largest = 0;
  std::size_t failAt = 0;  // the number of the allocation that fails; 0 for none
};
extern Allocations allocations;
// Octets of all blocks of the program.
extern std::size_t heldOctets;

// Four of these in a row are a secret.
inline constexpr std::uint8_t kSecret = 0xD5;
// While `watching`, the secrets in blocks that are given back.
extern bool watching;
extern std::size_t secretsGivenBack;

// Also in what may be poisoned.
std::size_t CountSecrets(const void* block, std::size_t size);

template <typename Act>
Allocations Counted(Act&& act) {
  allocations = {.counting = true};
  act();
  allocations.counting = false;
  return allocations;
}

}  // namespace zarext

#endif  // ZAREXT_TESTS_UNIT_ASN1_COUNTED_MEMORY_H_
