// Several pieces of the same work in one run: rounds of all of them take turns, on a heap that is
// in use as that of a program is.
#ifndef ZAREXT_BENCH_ASN1_ROUNDS_H_
#define ZAREXT_BENCH_ASN1_ROUNDS_H_

#include <functional>
#include <string>
#include <vector>

namespace zarext::bench {

struct Contestant {
  std::string name;
  std::function<void()> work;
};

struct Standing {
  double nanoseconds;  // of one call: the median of all rounds
  double ratio;        // of the first contestant to this one: the median of the neighbours' ratios
  double faults;       // pages that the kernel had to give for one call; 0 where it does not say
  double allocations;  // for one call; 0 where they are not counted
};

// Fills the heap with blocks of many sizes and frees every second one.
void AgeHeap();

std::vector<Standing> TakeTurns(const std::vector<Contestant>& contestants, int rounds);

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_ASN1_ROUNDS_H_
