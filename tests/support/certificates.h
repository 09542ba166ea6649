// Certificates and certificate messages for tests, made to order: valid DER that the platform
// decodes, with a signature of zeros.
#ifndef ZAREXT_TESTS_SUPPORT_CERTIFICATES_H_
#define ZAREXT_TESTS_SUPPORT_CERTIFICATES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zarext::test {

struct CertificateOrder {
  std::vector<std::uint8_t> serial = {0x0A, 0x1B, 0x2C, 0x3D};  // most significant first
  std::string issuer = "Issuer";                                // common names
  std::string subject = "Subject";
  std::string publicKeyOid = "1.2.398.3.10.1.1.1.1";
  std::string signatureOid = "1.2.398.3.10.1.1.1.2";
  std::size_t keySize = 64;  // octets of the public key, to make a certificate as long as wanted
};

std::vector<std::uint8_t> MakeCertificate(const CertificateOrder& order);

// A PKCS #7 signed-data message with these certificates and no signer.
std::vector<std::uint8_t> MakeChain(const std::vector<std::vector<std::uint8_t>>& certificates);

// A DER element.
std::vector<std::uint8_t> MakeElement(std::uint8_t tag, const std::vector<std::uint8_t>& content);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_CERTIFICATES_H_
