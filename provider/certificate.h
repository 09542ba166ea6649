// The few facts that the provider needs of a certificate, and the chain message that it keeps them
// in.
#ifndef ZAREXT_PROVIDER_CERTIFICATE_H_
#define ZAREXT_PROVIDER_CERTIFICATE_H_

#include "provider/key.h"

namespace zarext::provider {

// The serial number's content octets as they stand in the certificate. NTE_BAD_DATA if `der` is not
// one certificate from end to end.
Bytes CertificateSerial(View der);

// Whether the certificate is for this key: its public key is the provider's blob, an OCTET STRING
// of the public value, or an RSAPublicKey, with this key in it.
bool IsCertificateOf(View der, const PublicKey& key);

// A PKCS #7 signed-data message without content and signers (RFC 2315, 9), the form in which
// certificate chains travel, and the certificates of one, each whole. NTE_BAD_DATA for anything
// else.
Bytes WriteChain(const std::vector<Bytes>& certificates);
std::vector<Bytes> ReadChain(View der);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_CERTIFICATE_H_
