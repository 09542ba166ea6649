// What must hold of zarextctl's readers for any octets: each function gives a text that says what
// is wrong, or an empty one.
#ifndef ZAREXT_TESTS_UNIT_CTL_PROPERTIES_H_
#define ZAREXT_TESTS_UNIT_CTL_PROPERTIES_H_

#include <cstdint>
#include <span>
#include <string>

namespace zarext::test {

// A file that is given for a certificate.
std::string CheckCertificateFile(std::span<const std::uint8_t> octets);
// The shared section.
std::string CheckListing(std::span<const std::uint8_t> octets);
// A line of debugger output.
std::string CheckTraceText(std::span<const std::uint8_t> octets);
// A registry value: its type in the first octet.
std::string CheckRegistryValue(std::span<const std::uint8_t> octets);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_CTL_PROPERTIES_H_
