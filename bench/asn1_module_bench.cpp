// The codec under Wine, as the module's compiler makes it, beside its floors. Takes the folder of
// the documents that asn1_bench --write has written.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "asn1/tasn1.h"
#include "bench/allocation_count.h"
#include "bench/asn1_floors.h"
#include "bench/asn1_rounds.h"

namespace zarext::bench {

// Not counted here.
std::uint64_t AllocationCount() { return 0; }

namespace {

Octets Contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Measure(const std::string& name, const Octets& image) {
  const auto size = static_cast<std::uint32_t>(image.size());
  const std::vector<Allocation> allocations = AllocationsFor(image);
  std::vector<void*> blocks(allocations.size());
  const auto parse = [&image, size] {
    TASN1 document(0x30);
    if (document.Load(image.data(), size) != 0 || document.Parse(image.data(), kPathEnd) != 0) {
      std::abort();
    }
  };
  const std::vector<Standing> standings = TakeTurns(
      {{"zarext", parse}, {"floor", [&] { AllocateAndFree(allocations, blocks.data()); }}}, 51);
  std::printf("| parse, Wine | %s | %u | %.0f | %.0f | %.3f |\n", name.c_str(), size,
              standings[0].nanoseconds, standings[1].nanoseconds, standings[1].ratio);
  (void)std::fflush(stdout);
}

}  // namespace
}  // namespace zarext::bench

int main(int argc, char** argv) {
  if (argc != 2) {
    return EXIT_FAILURE;
  }
  zarext::bench::AgeHeap();
  std::set<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    files.insert(entry.path());
  }
  for (const std::filesystem::path& file : files) {
    zarext::bench::Measure(file.filename().string(), zarext::bench::Contents(file));
  }
  return EXIT_SUCCESS;
}
