#include "bench/asn1_rounds.h"

#include <algorithm>
#include <cstdlib>

#include "bench/allocation_count.h"
#include "bench/support/ratio.h"
#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace zarext::bench {
namespace {

constexpr double kRoundNanoseconds = 500e3;

double PageFaults() {
#ifdef _WIN32
  return 0;
#else
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_minflt);
#endif
}

// glibc puts off the merging of small blocks that were freed until the next large request, whoever
// makes it. One between the rounds, outside their times: otherwise the codec, whose first request
// may be large, merges the blocks of the floor.
void SettleHeap() {
  void* volatile block = std::malloc(std::size_t{64} * 1024);
  std::free(block);
}

struct Rounds {
  int calls;
  std::vector<double> times;
  double faults;
  double allocations;
};

// So many calls that a round is long beside the clock, and whatever one work leaves in the caches
// counts little for the next.
Rounds Prepare(const std::function<void()>& work) {
  work();
  const auto before = static_cast<double>(AllocationCount());
  work();
  const double allocations = static_cast<double>(AllocationCount()) - before;
  const double each = NanosecondsEach(3, work);
  return {std::max(1, static_cast<int>(kRoundNanoseconds / each)), {}, 0, allocations};
}

}  // namespace

void AgeHeap() {
  static std::vector<void*> blocks(20000);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    blocks[i] = std::malloc(16 + i * i * 7919 % 797);  // in no order
  }
  for (std::size_t i = 0; i < blocks.size(); i += 2) {
    std::free(blocks[i]);
  }
}

std::vector<Standing> TakeTurns(const std::vector<Contestant>& contestants, int rounds) {
  std::vector<Rounds> all;
  all.reserve(contestants.size());
  for (const Contestant& contestant : contestants) {
    all.push_back(Prepare(contestant.work));
  }
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < all.size(); ++i) {
      SettleHeap();
      const double before = PageFaults();
      all[i].times.push_back(NanosecondsEach(all[i].calls, contestants[i].work));
      all[i].faults += (PageFaults() - before) / all[i].calls / rounds;
    }
  }
  std::vector<Standing> standings;
  standings.reserve(all.size());
  for (const Rounds& each : all) {
    std::vector<double> ratios;
    ratios.reserve(each.times.size());
    for (std::size_t round = 0; round < each.times.size(); ++round) {
      ratios.push_back(all[0].times[round] / each.times[round]);
    }
    standings.push_back({Median(each.times), Median(ratios), each.faults, each.allocations});
  }
  return standings;
}

}  // namespace zarext::bench
