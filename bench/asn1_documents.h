// The documents that the codec is measured with, made anew for each run.
#ifndef ZAREXT_BENCH_ASN1_DOCUMENTS_H_
#define ZAREXT_BENCH_ASN1_DOCUMENTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zarext::bench {

using Octets = std::vector<std::uint8_t>;

// Which typed reader of OpenSSL takes the document. One that is nested deeply no other library
// reads.
enum class Kind : std::uint8_t { kPrivateKey, kCertificate, kPkcs7, kOther, kNested };

struct Document {
  std::string name;
  Kind kind;
  const char* type;  // its type in asn1_documents.asn
  Octets image;
};

// Private keys of 138 octets and of 1.2 KB, a certificate, a chain of certificates of 32 KB, a
// sequence of 256 KB of 100 entries with four OCTET STRINGs each, and one of 2,000 small entries;
// the same shapes in other sizes: a chain of five certificates, 100 entries with contents of 100 to
// 900 octets, 5,000 small entries; and 200,000 sequences, one in the other.
const std::vector<Document>& Documents();

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_DOCUMENTS_H_
