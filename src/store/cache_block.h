// The cached listing as it lies in the section that the session's processes share, with a mutex
// beside it: an eight-octet header, then a DER block,
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

inline constexpr char kStoreMutexName[] = "$zarvel_csp_store_mutex_name";
inline constexpr char kStoreMappingName[] = "$zarvel_csp_store_map_name";
// Size of the section in octets.
inline constexpr std::uint32_t kStoreMappingSize = 0x40000;

struct CacheHeader {
  std::uint32_t stamp;   // low 32 bits of the time of writing, in seconds
  std::uint32_t cbData;  // length of the block; 0 in a section never written
};
static_assert(sizeof(CacheHeader) == 8);

// Seconds for which a listing is used, in the process and across processes.
inline constexpr std::uint32_t kCacheLifetime = 60;

// The longest block that a reader takes, and that a writer builds. The writer's bound is the larger
// one by 16, as it always was; what lies between has no room in the section and is not published.
inline constexpr std::size_t kLongestReadBlock = kStoreMappingSize - sizeof(CacheHeader);
inline constexpr std::size_t kLongestWrittenBlock = kLongestReadBlock + 16;

// Whether the block behind `header` is there, has a length that can be, and is at most 60 seconds
// old. The age is a difference modulo 2^32: a stamp from the future is old.
bool IsBlockUsable(const CacheHeader& header, std::int64_t now) noexcept;

// The DER block of the list; empty if it is longer than a writer publishes.
std::vector<std::uint8_t> BuildCacheBlock(const KeyRecordList& list);

// Reads the entries of a block, from whatever source, up to the first that cannot be read, and
// returns their number, which is always 0. So another process's listing gives its age alone: each
// process shows only certificates that it has read from the provider itself.
std::int32_t ReadCacheBlock(std::span<const std::uint8_t> block);

}  // namespace zarext

#endif  // ZAREXT_STORE_CACHE_BLOCK_H_
