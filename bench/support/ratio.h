// Compares two pieces of work in one run: rounds of both take turns, and the shortest round of each
// counts, because whatever else the machine does only ever adds. Short rounds fit between it.
#ifndef ZAREXT_BENCH_SUPPORT_RATIO_H_
#define ZAREXT_BENCH_SUPPORT_RATIO_H_

#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace zarext::bench {

// Nanoseconds of one call of `work`, from a round of `calls`.
template <typename Work>
double NanosecondsEach(int calls, Work& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int call = 0; call < calls; ++call) {
    work();
  }
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / calls;
}

inline double Shortest(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

// Prints one row: "name | measured ns | floor ns | ratio | aim".
template <typename Work, typename Floor>
double Compare(const char* name, int rounds, int calls, double aim, Work work, Floor floor) {
  std::vector<double> measured;
  std::vector<double> bare;
  for (int round = 0; round < rounds; ++round) {
    measured.push_back(NanosecondsEach(calls, work));
    bare.push_back(NanosecondsEach(calls, floor));
  }
  const double ratio = Shortest(measured) / Shortest(bare);
  printf("| %s | %.0f | %.0f | %.2f | %.2f |\n", name, Shortest(measured), Shortest(bare), ratio,
         aim);
  return ratio;
}

inline double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// The same for work of another process, whose pace changes by times for seconds on end: what counts
// is the middle of the ratios of neighbouring rounds.
template <typename Work, typename Floor>
double CompareNeighbours(const char* name, int rounds, double aim, Work work, Floor floor) {
  std::vector<double> measured;
  std::vector<double> bare;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round) {
    measured.push_back(NanosecondsEach(1, work));
    bare.push_back(NanosecondsEach(1, floor));
    ratios.push_back(measured.back() / bare.back());
  }
  const double ratio = Median(ratios);
  printf("| %s | %.0f | %.0f | %.2f | %.2f |\n", name, Median(measured), Median(bare), ratio, aim);
  return ratio;
}

inline void PrintHead() {
  printf("| what | ns | floor ns | ratio | aim |\n| --- | --- | --- | --- | --- |\n");
}

}  // namespace zarext::bench

#endif  // ZAREXT_BENCH_SUPPORT_RATIO_H_
