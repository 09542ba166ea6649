// What the tests of the key exports share: a scripted provider behind the real advapi32.
#ifndef ZAREXT_TESTS_CONTRACT_KEYINFO_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_KEYINFO_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <string>
#include <vector>

#include "support/module_under_test.h"
#include "support/recording_provider.h"
#include "support/recording_test.h"
#include "support/scripted_provider.h"
#include "support/trace_capture.h"

namespace zarext::test {

using Lines = std::vector<std::string>;

// As "%x" shows a handle or a number.
inline std::string H(ULONG_PTR value) {
  char text[16] = {};
  snprintf(text, sizeof text, "%x", static_cast<unsigned int>(value));
  return text;
}

// Last error that no call under test leaves behind by itself.
inline constexpr DWORD kUntouchedError = 0x12345678;

inline Octets Join(std::initializer_list<Octets> parts) {
  Octets joined;
  for (const Octets& part : parts) {
    joined.insert(joined.end(), part.begin(), part.end());
  }
  return joined;
}

// 1, 2, 3 ... so that every octet tells its place.
inline Octets Counted(std::size_t size, std::uint8_t first = 1) {
  Octets octets(size);
  for (std::size_t i = 0; i < size; ++i) {
    octets[i] = static_cast<std::uint8_t>(first + i);
  }
  return octets;
}

class KeyInfoTest : public RecordingTest {
 protected:
  KeyInfoTest() {
    UseScript(&provider_);
    context_ = std::make_unique<ProviderContext>();
    Module();
    SetLastError(kUntouchedError);
  }
  ~KeyInfoTest() override {
    context_.reset();
    UseScript(nullptr);
  }
  [[nodiscard]] HCRYPTPROV Provider() const { return context_->Get(); }

  RecordingProvider provider_;
  std::unique_ptr<ProviderContext> context_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_KEYINFO_FIXTURE_H_
