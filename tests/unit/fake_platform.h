// A platform and a provider for the host, both fed from one string of octets: every answer
// (success, length, content, the number of items of a list) is what the octets say next. What the
// platform hands out is counted.
#ifndef ZAREXT_TESTS_UNIT_FAKE_PLATFORM_H_
#define ZAREXT_TESTS_UNIT_FAKE_PLATFORM_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zarext::test {

// The octets, taken from the front. Behind the end: zeroes.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> octets) : octets_(octets) {}
  [[nodiscard]] bool IsAtEnd() const { return octets_.empty(); }
  std::uint8_t Octet();
  std::uint32_t Word();
  // A length that is mostly small: one octet, or after 0xFF a word.
  std::uint32_t Length();
  // Up to `most` octets, as many as a length says.
  std::vector<std::uint8_t> Octets(std::size_t most);
  // One of the object identifiers that the module knows, a text from the octets, or null (as
  // nullptr). Valid as long as the platform.
  char* Oid();

 private:
  std::span<const std::uint8_t> octets_;
};

// Sets what the functions answer from, with nothing handed out yet; frees at the end what callers
// own. One at a time.
class FakePlatform {
 public:
  explicit FakePlatform(std::span<const std::uint8_t> octets);
  ~FakePlatform();
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  Input input;

  // Not given back yet.
  int keys = 0;
  int providerContexts = 0;
  int stores = 0;
  int certificates = 0;
  int views = 0;
  int turns = 0;

  // A copy with exact bounds that lives as long as the platform.
  std::uint8_t* Keep(const std::vector<std::uint8_t>& octets);
  void* Allocate(std::size_t size);

 private:
  std::vector<void*> blocks_;
};

FakePlatform& Platform();

// The shared section that the platform hands out, kept from one platform to the next.
std::span<std::uint8_t> SharedSection();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_UNIT_FAKE_PLATFORM_H_
