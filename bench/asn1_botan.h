// Botan's decoder behind a header of its own.
#ifndef ZAREXT_BENCH_ASN1_BOTAN_H_
#define ZAREXT_BENCH_ASN1_BOTAN_H_

#include <memory>

#include "bench/asn1_documents.h"

namespace zarext::bench {

// A document as a tree of Botan's objects. The operations throw when the library fails.
class BotanTree {
 public:
  explicit BotanTree(const Octets& image);
  BotanTree(const BotanTree&) = delete;
  BotanTree& operator=(const BotanTree&) = delete;
  ~BotanTree();

  [[nodiscard]] Octets Encode() const;

  struct Element;

 private:
  std::unique_ptr<Element> top_;
};

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_BOTAN_H_
