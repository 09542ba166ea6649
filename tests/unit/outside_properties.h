// What must hold for any octets that reach the module from other processes, from a provider and
// from callers, with the module's own functions around the fake platform. Each function gives a
// text that says what is wrong, or an empty one.
#ifndef ZAREXT_TESTS_UNIT_OUTSIDE_PROPERTIES_H_
#define ZAREXT_TESTS_UNIT_OUTSIDE_PROPERTIES_H_

#include <cstdint>
#include <span>
#include <string>

namespace zarext::test {

// Takes the octets for the shared section: header and block. Whatever is read of it can be written
// and read again.
std::string CheckSharedBlock(std::span<const std::uint8_t> octets);

// Opens the store and writes a certificate, with profiles, key records, certificates and chains of
// a provider that answers what the octets say.
std::string CheckKeyRecords(std::span<const std::uint8_t> octets);

// Calls one of the exports that carry keys, with arguments, blobs and documents of the octets.
std::string CheckKeyBlobs(std::span<const std::uint8_t> octets);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_OUTSIDE_PROPERTIES_H_
