// The cached listing as it lies in the shared section: an eight-octet header, then a DER block,
//   SEQUENCE OF SEQUENCE { container name, serial number, certificate, ALG_ID }
// of OCTET STRINGs, with NULL where a record has none. The ALG_ID is four octets, little-endian.
#ifndef ZAREXT_STORE_CACHE_BLOCK_H_
#define ZAREXT_STORE_CACHE_BLOCK_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "store/key_record_list.h"

namespace zarext {

struct CacheHeader {
  std::uint32_t stamp;   // low 32 bits of the time of writing, in seconds
  std::uint32_t cbData;  // length of the block; 0 in a section never written
};
static_assert(sizeof(CacheHeader) == 8);

// Seconds for which a listing is used, in the process and across processes.
inline constexpr std::uint32_t kCacheLifetime = 60;

// The longest block that a reader takes, and that a writer publishes. The writer's bound is the
// larger one by 16: a compatibility fact. What lies between has no room in the section.
inline constexpr std::size_t kLongestReadBlock = 0x3FFF8;
inline constexpr std::size_t kLongestWrittenBlock = 0x40008;

// Whether the block behind `header` is there, has a length that can be, and is at most 60 seconds
// old. The age is a difference modulo 2^32: a stamp from the future is old.
bool IsBlockUsable(const CacheHeader& header, std::int64_t now) noexcept;

// The DER block of the list; empty if it is longer than a writer publishes.
std::vector<std::uint8_t> BuildCacheBlock(const KeyRecordList& list);

// Adds the records of a block, from whatever source, to the list. No record has ever passed: the
// element count of an entry is compared with 3, and an entry of 3 has no fourth element to read. A
// compatibility fact: a shared listing keeps its age but is walked anew.
void ReadCacheBlock(std::span<const std::uint8_t> block, KeyRecordList& list);

}  // namespace zarext

#endif  // ZAREXT_STORE_CACHE_BLOCK_H_
