// A real document and a naive one, driven together by a string of octets and compared. The property
// test feeds it random octets, the fuzz target what libFuzzer finds.
#ifndef ZAREXT_TESTS_UNIT_ASN1_DIFFERENTIAL_H_
#define ZAREXT_TESTS_UNIT_ASN1_DIFFERENTIAL_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "unit/asn1/oracle.h"

namespace zarext {

// Octets taken one after another; zeros once they are used up.
class OctetSource {
 public:
  explicit OctetSource(std::span<const std::uint8_t> octets) : rest_(octets) {}

  [[nodiscard]] bool Empty() const { return rest_.empty(); }
  std::uint8_t Next();
  oracle::Octets Take(std::size_t count);

 private:
  std::span<const std::uint8_t> rest_;
};

// Loads and parses one image with both. Empty, or what differs.
std::string CompareImage(std::span<const std::uint8_t> image);

// Reads a script of edits from the octets and does each to both, comparing the results and after
// each the records and the encoding; where the script says so and at the end also what is read of
// the nodes. Empty, or what differs.
std::string CompareScript(std::span<const std::uint8_t> script);

// The conversions of object identifiers, both ways. Empty, or what differs.
std::string CompareOid(std::span<const std::uint8_t> octets);

}  // namespace zarext

#endif  // ZAREXT_TESTS_UNIT_ASN1_DIFFERENTIAL_H_
