// libFuzzer's entry: the target's function gives a text that says what is wrong, or an empty one.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include ZAREXT_FUZZ_HEADER

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string finding = ZAREXT_FUZZ_FUNCTION({data, size});
  if (!finding.empty()) {
    (void)std::fprintf(stderr, "%s\n", finding.c_str());
    std::abort();
  }
  return 0;
}
