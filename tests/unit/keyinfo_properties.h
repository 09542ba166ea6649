// What must hold for any octets that the key code reads. Each function gives a text that says what
// is wrong, or an empty one.
#ifndef ZAREXT_TESTS_UNIT_KEYINFO_PROPERTIES_H_
#define ZAREXT_TESTS_UNIT_KEYINFO_PROPERTIES_H_

#include <cstdint>
#include <span>
#include <string>

namespace zarext::test {

// Reads the octets as every kind of key document, builds what was read again and reads that; adopts
// the octets; takes them as the encoded parts of a document to build.
std::string CheckKeyDocument(std::span<const std::uint8_t> octets);

// Extracts a key from the octets as from a bit string, and builds the blob from it.
std::string CheckKeyExtraction(std::span<const std::uint8_t> octets);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_KEYINFO_PROPERTIES_H_
