// A key is not left in memory that is given back. The linker sends the program's releases of memory
// through the functions below, which look for the key first.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "frame/wipe.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/secret_buffer.h"

namespace {

constexpr std::uint8_t kSecret[] = {0xC0, 0xFF, 0xEE, 0x5E, 0xC2, 0xE7, 0x0D, 0x1E};

bool looking = false;
int found = 0;

void Look(void* block) {
  if (!looking || block == nullptr) {
    return;
  }
  const auto* const start = static_cast<const std::uint8_t*>(block);
  const auto* const end = start + malloc_usable_size(block);
  if (std::search(start, end, std::begin(kSecret), std::end(kSecret)) != end) {
    ++found;
  }
}

}  // namespace

// The names are the linker's. NOLINTBEGIN
extern "C" {
void __real_free(void* block);
void __real__ZdlPv(void* block);
void __real__ZdlPvm(void* block, std::size_t size);
void __real__ZdaPv(void* block);

void __wrap_free(void* block) {
  Look(block);
  __real_free(block);
}
void __wrap__ZdlPv(void* block) {
  Look(block);
  __real__ZdlPv(block);
}
void __wrap__ZdlPvm(void* block, std::size_t size) {
  Look(block);
  __real__ZdlPvm(block, size);
}
void __wrap__ZdaPv(void* block) {
  Look(block);
  __real__ZdaPv(block);
}
}
// NOLINTEND

namespace zarext {
namespace {

using Octets = std::vector<std::uint8_t>;

// A header, and the secret several times.
Octets Element(std::uint8_t tag) {
  Octets octets = {tag, 10 * sizeof kSecret};
  for (int i = 0; i < 10; ++i) {
    octets.insert(octets.end(), std::begin(kSecret), std::end(kSecret));
  }
  return octets;
}

// What follows releases memory with the key in it itself: nobody looks until the end.

// A key document whose parameters, key and attributes hold the secret.
void BuildDocument(TPKCS8& document) {
  const Octets parameters = Element(0x04);
  Octets attributes = {0x31, 2 + 10 * sizeof kSecret};
  attributes.insert(attributes.end(), parameters.begin(), parameters.end());
  PrivateKeyRecord record;
  record.algorithm = "1.2.3";
  record.parameters = parameters;
  record.privateKey = parameters;
  record.attributes = attributes;
  const Pkcs8Record input = record;
  ASSERT_EQ(0, document.Build(&input));
}

void ReadDocument(TPKCS8& document) {
  TPKCS8 built;
  BuildDocument(built);
  Octets image(static_cast<std::size_t>(built.EncodedSize()));
  ASSERT_EQ(0, built.Encode(image.data()));
  ASSERT_EQ(0, document.Read(TPKCS8::kPrivateKeyInfo, image));
}

class Wiping : public testing::Test {
 protected:
  Wiping() { found = 0; }
  ~Wiping() override { looking = false; }
};

TEST_F(Wiping, TheTestFindsWhatIsLeft) {
  auto left = std::make_unique<Octets>(Element(0x04));
  looking = true;
  left.reset();
  looking = false;
  EXPECT_EQ(1, found);
}

TEST_F(Wiping, LeavesZeroesAndNothingElseIsTouched) {
  Octets octets(6, 0xAA);
  WipeOctets(octets.data() + 1, 4);
  WipeOctets(nullptr, 0);
  EXPECT_EQ((Octets{0xAA, 0, 0, 0, 0, 0xAA}), octets);
  WipeOctets(octets.data(), 1);
  EXPECT_EQ((Octets{0, 0, 0, 0, 0, 0xAA}), octets);
}

TEST_F(Wiping, ABuiltDocumentGoesWithItsKey) {
  auto document = std::make_unique<TPKCS8>();
  BuildDocument(*document);
  looking = true;
  document.reset();
  looking = false;
  EXPECT_EQ(0, found);
}

TEST_F(Wiping, AReadDocumentGoesWithItsKey) {
  auto document = std::make_unique<TPKCS8>();
  ReadDocument(*document);
  looking = true;
  document.reset();
  looking = false;
  EXPECT_EQ(0, found);
}

TEST_F(Wiping, AClearedDocumentKeepsNothing) {
  auto document = std::make_unique<TPKCS8>();
  ReadDocument(*document);
  looking = true;
  document->Clear();
  // What was cleared is still in blocks that the document holds.
  document.reset();
  looking = false;
  EXPECT_EQ(0, found);
}

TEST_F(Wiping, ADocumentThatIsReplacedKeepsNothing) {
  auto document = std::make_unique<TPKCS8>();
  ReadDocument(*document);
  looking = true;
  EXPECT_EQ(1, document->Read(TPKCS8::kPrivateKeyInfo, {}));
  document.reset();
  looking = false;
  EXPECT_EQ(0, found);
}

TEST_F(Wiping, ASecretBufferGoesWithItsOctets) {
  looking = true;
  {
    SecretBuffer buffer(100);
    std::copy(std::begin(kSecret), std::end(kSecret), buffer.Data() + 92);
  }
  EXPECT_EQ(0, found);
}

}  // namespace
}  // namespace zarext
