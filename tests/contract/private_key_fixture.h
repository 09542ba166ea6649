// What the tests of the private-key functions share: key documents, and a look at the module's
// heap.
#ifndef ZAREXT_TESTS_CONTRACT_PRIVATE_KEY_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_PRIVATE_KEY_FIXTURE_H_

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "contract/keyinfo_fixture.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"

namespace zarext::test {

// Octets that occur nowhere else in the process.
inline const Octets kSecret = {0x5E, 0xC1, 0xE7, 0x0D, 0xA7, 0xA9, 0x11, 0x8B, 0x3C, 0xF2, 0x60,
                               0x94, 0xD8, 0x2A, 0xB5, 0x4F, 0x71, 0x06, 0xEA, 0x99, 0x33, 0xC8,
                               0x1D, 0x7E, 0x42, 0xBF, 0x58, 0xA0, 0x17, 0xCD, 0x66, 0xF9};

inline Octets Element(std::uint8_t tag, const Octets& content) {
  if (content.size() < 0x80) {
    return Join({{tag, static_cast<std::uint8_t>(content.size())}, content});
  }
  return Join({{tag, 0x82, static_cast<std::uint8_t>(content.size() >> 8),
                static_cast<std::uint8_t>(content.size())},
               content});
}

// SEQUENCE { 0, SEQUENCE { 1.2.643.2.2.19, NULL }, OCTET STRING }
inline const Octets kCryptoProAlgorithm = {0x30, 0x0A, 0x06, 0x06, 0x2A, 0x85,
                                           0x03, 0x02, 0x02, 0x13, 0x05, 0x00};
inline Octets PrivateKeyInfo(const Octets& key, const Octets& algorithm = kCryptoProAlgorithm) {
  return Element(0x30, Join({{0x02, 0x01, 0x00}, algorithm, Element(0x04, key)}));
}

// The module's free, looking for the secret in what is given back. One at a time.
class FreeSearch {
 public:
  FreeSearch() {
    real_ = patch_.Original<decltype(free)>();
    leaks_ = 0;
    frees_ = 0;
  }
  [[nodiscard]] static int Leaks() { return leaks_; }
  [[nodiscard]] static int Frees() { return frees_; }

 private:
  static void Free(void* block) {
    ++frees_;
    if (block != nullptr) {
      const auto* octets = static_cast<const std::uint8_t*>(block);
      const std::size_t size = _msize(block);
      // Half of it is enough.
      if (std::search(octets, octets + size, kSecret.begin(), kSecret.begin() + 16) !=
          octets + size) {
        ++leaks_;
      }
    }
    real_(block);
  }
  inline static decltype(free)* real_ = nullptr;
  inline static int leaks_ = 0;
  inline static int frees_ = 0;
  ImportPatch patch_{Module(), "msvcrt.dll", "free", &Free};
};

// The module's malloc and calloc, of which one call can be refused. One at a time.
class AllocationLimit {
 public:
  AllocationLimit() {
    malloc_ = mallocPatch_.Original<decltype(malloc)>();
    calloc_ = callocPatch_.Original<decltype(calloc)>();
  }
  // The call behind so many others is refused, those behind it are not.
  static void Allow(int calls) { allowed_ = calls; }
  // No call is refused any more; whether one was.
  static bool End() { return std::exchange(allowed_, -1) == -1; }

 private:
  static bool Refuses() {
    if (allowed_ != 0) {
      allowed_ -= allowed_ > 0 ? 1 : 0;
      return false;
    }
    allowed_ = -1;
    return true;
  }
  static void* Malloc(std::size_t size) { return Refuses() ? nullptr : malloc_(size); }
  static void* Calloc(std::size_t count, std::size_t size) {
    return Refuses() ? nullptr : calloc_(count, size);
  }
  inline static decltype(malloc)* malloc_ = nullptr;
  inline static decltype(calloc)* calloc_ = nullptr;
  inline static int allowed_ = -1;
  ImportPatch mallocPatch_{Module(), "msvcrt.dll", "malloc", &Malloc};
  ImportPatch callocPatch_{Module(), "msvcrt.dll", "calloc", &Calloc};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_PRIVATE_KEY_FIXTURE_H_
