// The documents that the codec is measured with, made anew for each run.
#ifndef ZAREXT_BENCH_ASN1_DOCUMENTS_H_
#define ZAREXT_BENCH_ASN1_DOCUMENTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zarext::bench {

using Octets = std::vector<std::uint8_t>;

// Which typed reader of OpenSSL takes the document.
enum class Kind : std::uint8_t { kPrivateKey, kCertificate, kPkcs7, kOther };

struct Document {
  std::string name;
  Kind kind;
  const char* type;  // its type in asn1_documents.asn
  Octets image;
};

// Private keys of 138 octets and of 1.2 KB, a certificate, a chain of certificates of 32 KB, a
// sequence of 256 KB of 100 entries with four OCTET STRINGs each, and one of 2,000 small entries.
const std::vector<Document>& Documents();

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_DOCUMENTS_H_
