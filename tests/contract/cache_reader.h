// The process's listing of containers and the section behind it, without the store around them.
#ifndef ZAREXT_TESTS_CONTRACT_CACHE_READER_H_
#define ZAREXT_TESTS_CONTRACT_CACHE_READER_H_

#include <windows.h>

#include "store/container_cache.h"
#include "store_fixture.h"

namespace zarext::test {

inline constexpr long long kNow = 1700000000;

// The time of the list in the process.
inline long long FilledAt() { return TContainerCache::CacheLoadTime(); }

// A handle of the cache, by the number of its field.
inline HANDLE CacheHandle(int field) {
  return reinterpret_cast<HANDLE const*>(&TContainerCache::Instance())[field];
}

// A record whose serial number and certificate are one octet each.
inline CNT_KEY_INFO OneOctetRecord() {
  static BYTE octet[] = {0xEE};
  CNT_KEY_INFO record = {};
  record.cbSerial = record.cbCert = 1;
  record.pbSerial = record.pbCert = octet;
  return record;
}

class CacheReader : public testing::Test {
 public:
  CacheReader() { TContainerCache::MarkFilled(77); }
  ~CacheReader() override {
    TContainerCache::MarkFilled(0);
    TContainerCache::Instance().Clear();
  }
  // Whether a block with this header and content is taken: its stamp then is the time of loading.
  bool IsTaken(DWORD stamp, DWORD size, const Octets& content) {
    section.Put(stamp, size, content);
    TContainerCache::MarkFilled(77);
    cache.ReadShared();
    EXPECT_TRUE(cache.List().IsEmpty());
    EXPECT_TRUE(FilledAt() == 77 || FilledAt() == stamp);
    return FilledAt() == stamp;
  }
  static Octets Block(std::size_t length) {
    Octets block = {0x30, 0x83, static_cast<std::uint8_t>((length - 5) >> 16),
                    static_cast<std::uint8_t>((length - 5) >> 8),
                    static_cast<std::uint8_t>(length - 5)};
    block.resize(length);
    return block;
  }
  ModuleClock clock{GetModuleHandleA(nullptr), kNow};
  SharedSection section;
  TContainerCache& cache = TContainerCache::Instance();
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_CACHE_READER_H_
