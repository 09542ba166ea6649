// What any implementation with the document's records has to do at least, in bare loops.
#ifndef ZAREXT_BENCH_ASN1_FLOORS_H_
#define ZAREXT_BENCH_ASN1_FLOORS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench/asn1_documents.h"

namespace zarext::bench {

// One element, as bare as it can be.
struct FloorNode {
  std::uint8_t header[6];
  std::uint32_t headerSize = 0;
  std::unique_ptr<std::uint8_t[]> content;
  std::uint32_t length = 0;  // of content; 0 for a constructed element
  std::vector<std::unique_ptr<FloorNode>> children;
};

std::unique_ptr<FloorNode> MakeFloorTree(const Octets& image);

// The zeroed allocations that a tree of the image demands, in its order: a record for each element
// but the outermost, contents of 38 octets and more, child arrays as they grow.
struct Allocation {
  std::size_t size;
  std::int32_t grows;  // index of the block that is enlarged, or -1
};
std::vector<Allocation> AllocationsFor(const Octets& image);

// Makes all of them and frees them. `blocks` has room for as many pointers.
void AllocateAndFree(const std::vector<Allocation>& allocations, void** blocks);

// Copies headers and contents out; returns the end.
std::uint8_t* WalkAndCopy(const FloorNode& node, std::uint8_t* out);

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_FLOORS_H_
