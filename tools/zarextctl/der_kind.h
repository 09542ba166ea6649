// What a file of octets is, before the framework is asked to read it as a certificate.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_DER_KIND_H_
#define ZAREXT_TOOLS_ZAREXTCTL_DER_KIND_H_

#include <cstdint>
#include <span>
#include <string>

namespace zarext::ctl {

// Empty if the octets have the outer form of a certificate (X.509, 4.1: SEQUENCE { SEQUENCE,
// SEQUENCE, BIT STRING }); otherwise what they are instead, as the end of a sentence: "is empty",
// "is a PKCS #12 file".
std::string WhyNoCertificate(std::span<const std::uint8_t> octets);

// The name of the first "-----BEGIN name-----" of a text; empty without one.
std::string PemName(std::span<const std::uint8_t> octets);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_DER_KIND_H_
