// What the tests of the content-encryption keys share: a scripted provider behind the real
// advapi32, recorded allocators, and names for key blobs.
#ifndef ZAREXT_TESTS_CONTRACT_MSGKEYS_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_MSGKEYS_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/import_patch.h"
#include "support/module_under_test.h"
#include "support/provider_handle_as_key.h"
#include "support/recorded_import.h"
#include "support/recording_provider.h"
#include "support/recording_test.h"
#include "support/scripted_provider.h"
#include "support/trace_capture.h"

namespace zarext::test {

// The framework's documented record; the module's fields reach to its end.
static_assert(sizeof(CMSG_CONTENT_ENCRYPT_INFO) == 128);

// %x of a handle: its low half.
template <typename T>
std::string Low(T value) {
  char text[20] = {};
  snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
  return text;
}

// %p of the platform's runtime: sixteen upper-case digits.
inline std::string PointerText(const void* pointer) {
  char text[20] = {};
  snprintf(text, sizeof text, "%016llX", reinterpret_cast<unsigned long long>(pointer));
  return text;
}

// A number as "%d" and as "%x" show it: one with other digits in each, and a negative one.
struct TracedNumber {
  DWORD number;
  const char* decimal;
  const char* hexadecimal;
};
inline constexpr TracedNumber kTracedNumbers[] = {{17, "17", "11"}, {0xFFFFFFFE, "-2", "fffffffe"}};

// The platform's structures carry OIDs as writable text.
inline char* OidText(const char* oid) { return const_cast<char*>(oid); }

inline Octets Sequence(std::size_t size, std::uint8_t first) {
  Octets octets(size);
  for (std::uint8_t& octet : octets) {
    octet = first++;
  }
  return octets;
}

// A caller's allocator that records the sizes asked for and gives out blocks that end at a
// forbidden page; each is a platform event "Allocate(512)". The `failing`-th request (from 1) is
// refused.
class RecordedAllocator {
 public:
  RecordedAllocator() { current_ = this; }
  ~RecordedAllocator() { current_ = nullptr; }
  RecordedAllocator(const RecordedAllocator&) = delete;
  RecordedAllocator& operator=(const RecordedAllocator&) = delete;

  static void* WINAPI Allocate(size_t size) {
    RecordedAllocator& self = *current_;
    self.sizes.push_back(size);
    RecordEvent(EventKind::kPlatform, &self, "Allocate(" + std::to_string(size) + ")");
    if (self.sizes.size() == self.failing) {
      return nullptr;
    }
    self.blocks_.push_back(std::make_unique<GuardedMemory>(size));
    return self.blocks_.back()->Data();
  }
  // The octets of the `index`-th block given out.
  [[nodiscard]] Octets Block(std::size_t index) const { return blocks_.at(index)->Content(); }
  [[nodiscard]] BYTE* Address(std::size_t index) const { return blocks_.at(index)->Data(); }

  std::vector<std::size_t> sizes;
  std::size_t failing = 0;

 private:
  inline static RecordedAllocator* current_ = nullptr;
  std::vector<std::unique_ptr<GuardedMemory>> blocks_;
};

// Records the module's own LocalAlloc requests as "LocalAlloc(flags, size)", flags in hexadecimal.
class RecordedLocalAlloc {
 public:
  [[nodiscard]] std::vector<std::string> Calls() const {
    return LinesOf(platform_.Texts(), {"LocalAlloc("});
  }

 private:
  EventView platform_{EventKind::kPlatform};
  RecordedImport<"LocalAlloc", decltype(LocalAlloc)> patch_{
      Module(), "KERNEL32.dll",
      [](UINT flags, SIZE_T size) { return Low(flags) + ", " + std::to_string(size); }};
};

// The call fails with this last error, and this is the last line that it traces.
template <typename Call>
void ExpectFailure(Call&& call, DWORD error, const std::string& line,
                   const char* file = __builtin_FILE(), int lineNumber = __builtin_LINE()) {
  const testing::ScopedTrace scope(file, lineNumber, "called here");
  TraceCapture trace;
  EXPECT_EQ(FALSE, call());
  EXPECT_EQ(error, GetLastError());
  ASSERT_FALSE(trace.Messages().empty());
  EXPECT_EQ(line, trace.Messages().back());
}

class MessageKeysTest : public RecordingTest {
 protected:
  MessageKeysTest() {
    Module();  // what is traced when it is loaded is no part of a test
    UseScript(&provider);
  }
  ~MessageKeysTest() override {
    context_.reset();
    UseScript(nullptr);
  }

  // A context of the scripted provider, acquired on first use; 0x1001 on the provider's side.
  HCRYPTPROV Context() {
    if (!context_) {
      context_ = std::make_unique<ProviderContext>();
    }
    return context_->Get();
  }

  RecordingProvider provider;

 private:
  std::unique_ptr<ProviderContext> context_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_MSGKEYS_FIXTURE_H_
