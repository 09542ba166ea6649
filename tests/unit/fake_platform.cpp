#include "unit/fake_platform.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace zarext::test {
namespace {

FakePlatform* current = nullptr;

}  // namespace

std::uint8_t Input::Octet() {
  if (octets_.empty()) {
    return 0;
  }
  const std::uint8_t octet = octets_.front();
  octets_ = octets_.subspan(1);
  return octet;
}

std::uint32_t Input::Word() {
  std::uint32_t word = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    word |= std::uint32_t{Octet()} << shift;
  }
  return word;
}

std::uint32_t Input::Length() {
  const std::uint8_t length = Octet();
  return length == 0xFF ? Word() : length;
}

std::vector<std::uint8_t> Input::Octets(std::size_t most) {
  const auto count = std::min<std::size_t>({Length(), most, octets_.size()});
  const std::span<const std::uint8_t> taken = octets_.first(count);
  octets_ = octets_.subspan(count);
  return {taken.begin(), taken.end()};
}

char* Input::Oid() {
  static constexpr const char* kKnown[] = {
      "1.3.6.1.4.1.32473.1.5.8",
      "1.2.643.2.2.19",
      "1.2.398.3.10.1.1.1.1",
      "1.2.840.113549.1.1.1",
      "1.3.6.1.4.1.32473.1.4.4",
      "1.3.6.1.4.1.32473.1.2.4",
      "2.5.4.3",
      "1.2.398.3.10.1.1.2.2.1",
      "1.3.6.1.4.1.32473.1.3.4",
      "1.2.643.2.2.21",
      "2.16.840.1.101.3.4.1.2",
      "1.3.6.1.4.1.32473.1.8.8",
  };
  const std::uint8_t choice = Octet();
  if (choice == 0xFF) {
    return nullptr;
  }
  std::vector<std::uint8_t> text;
  if (choice >= 0x80) {
    text = Octets(80);
  } else {
    const std::string_view known = kKnown[choice % std::size(kKnown)];
    text.assign(known.begin(), known.end());
  }
  text.push_back(0);
  return reinterpret_cast<char*>(Platform().Keep(text));
}

FakePlatform::FakePlatform(std::span<const std::uint8_t> octets) : input(octets) {
  current = this;
  SetLastError(0);
}

FakePlatform::~FakePlatform() {
  for (void* block : blocks_) {
    std::free(block);
  }
  current = nullptr;
}

std::uint8_t* FakePlatform::Keep(const std::vector<std::uint8_t>& octets) {
  auto* const copy = static_cast<std::uint8_t*>(Allocate(octets.size()));
  std::copy(octets.begin(), octets.end(), copy);
  return copy;
}

void* FakePlatform::Allocate(std::size_t size) {
  blocks_.push_back(std::calloc(size, 1));
  return blocks_.back();
}

FakePlatform& Platform() { return *current; }

}  // namespace zarext::test
