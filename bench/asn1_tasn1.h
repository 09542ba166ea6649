// libtasn1 behind a header of its own: its names collide with OpenSSL's.
#ifndef ZAREXT_BENCH_ASN1_TASN1_H_
#define ZAREXT_BENCH_ASN1_TASN1_H_

#include "bench/asn1_documents.h"

namespace zarext::bench {

// A document read into libtasn1's structure. The operations throw when the library fails.
class Tasn1Element {
 public:
  explicit Tasn1Element(const Document& document);
  Tasn1Element(const Tasn1Element&) = delete;
  Tasn1Element& operator=(const Tasn1Element&) = delete;
  ~Tasn1Element();

  void Encode(Octets* out) const;

 private:
  void* element_ = nullptr;
};

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_TASN1_H_
