#include "store/container_cache.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <vector>

#include "frame/handles.h"
#include "frame/module_state.h"
#include "store/cache_block.h"

namespace zarext {
namespace {

// Made at load.
[[maybe_unused]] const TContainerCache& atLoad = TContainerCache::Instance();

static_assert(kLongestReadBlock == kStoreMappingSize - sizeof(CacheHeader));
static_assert(kLongestWrittenBlock == kLongestReadBlock + 16);

// The turn at the section. An owner that died leaves it free; without a mutex there are no turns.
class SectionTurn {
 public:
  explicit SectionTurn(HANDLE mutex) : mutex_(mutex) { WaitForSingleObject(mutex_, INFINITE); }
  ~SectionTurn() { ReleaseMutex(mutex_); }
  SectionTurn(const SectionTurn&) = delete;
  SectionTurn& operator=(const SectionTurn&) = delete;
  SectionTurn(SectionTurn&&) = delete;
  SectionTurn& operator=(SectionTurn&&) = delete;

 private:
  HANDLE mutex_;
};

// A view of the whole section, as large as whoever created it made it. Whoever did may have made it
// of a file and cut the file since: the platform copies in and out, and reports the pages that are
// gone, where an access of the module's own would end the host.
class SectionView {
 public:
  explicit SectionView(HANDLE mapping)
      : view_(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0)) {
    MEMORY_BASIC_INFORMATION region = {};
    if (view_ && VirtualQuery(view_.Get(), &region, sizeof region) != 0 &&
        region.State == MEM_COMMIT) {
      size_ = std::min<std::size_t>(region.RegionSize, kStoreMappingSize);
    }
  }

  [[nodiscard]] bool HasRoomFor(std::size_t blockSize) const noexcept {
    return size_ >= sizeof(CacheHeader) && blockSize <= size_ - sizeof(CacheHeader);
  }
  // Stamp and length go together, in one copy of eight octets.
  bool ReadHeader(CacheHeader* header) const { return Read(0, header, sizeof *header); }
  bool WriteHeader(const CacheHeader& header) const { return Write(0, &header, sizeof header); }
  // As many octets as there is room for.
  bool ReadBlock(void* block, std::size_t size) const {
    return Read(sizeof(CacheHeader), block, size);
  }
  bool WriteBlock(const void* block, std::size_t size) const {
    return Write(sizeof(CacheHeader), block, size);
  }

 private:
  bool Read(std::size_t offset, void* octets, std::size_t size) const {
    SIZE_T copied = 0;
    return ReadProcessMemory(GetCurrentProcess(), At(offset), octets, size, &copied) != FALSE &&
           copied == size;
  }
  bool Write(std::size_t offset, const void* octets, std::size_t size) const {
    SIZE_T copied = 0;
    return WriteProcessMemory(GetCurrentProcess(), At(offset), octets, size, &copied) != FALSE &&
           copied == size;
  }
  [[nodiscard]] void* At(std::size_t offset) const noexcept {
    return static_cast<std::uint8_t*>(view_.Get()) + offset;
  }

  UniqueView view_;
  std::size_t size_ = 0;
};

struct BlockCopy {
  CacheHeader header = {};
  std::unique_ptr<std::uint8_t[]> octets;  // null for none
};

// Copies a usable block out of the section. Throws nothing of its own while it has the turn.
BlockCopy CopyBlock(HANDLE mapping, HANDLE mutex) {
  BlockCopy copy;
  const SectionView view(mapping);
  if (!view.HasRoomFor(0)) {
    return copy;
  }
  const std::int64_t now = std::time(nullptr);
  const SectionTurn turn(mutex);
  if (!view.ReadHeader(&copy.header) || !IsBlockUsable(copy.header, now) ||
      !view.HasRoomFor(copy.header.cbData)) {
    return copy;
  }
  copy.octets.reset(new (std::nothrow) std::uint8_t[copy.header.cbData + 1]());
  if (copy.octets && !view.ReadBlock(copy.octets.get(), copy.header.cbData)) {
    copy.octets.reset();
  }
  return copy;
}

}  // namespace

std::int64_t CacheLoadTime = 0;

TContainerCache& TContainerCache::Instance() noexcept {
  alignas(TContainerCache) static unsigned char storage[sizeof(TContainerCache)];
  static TContainerCache& instance = *new (storage) TContainerCache;
  return instance;
}

// The exit routine of the objects that are used here is registered first, so it runs last.
TContainerCache::TContainerCache() noexcept
    : hMapping_(StoreObjects::Instance().Mapping()), hMutex_(StoreObjects::Instance().Mutex()) {
  std::atexit(&Exit);
}

void TContainerCache::Exit() {
  Instance().Clear();
  Instance().hMutex_ = nullptr;
}

void TContainerCache::ReadShared() noexcept {
  Clear();
  try {
    const BlockCopy block = CopyBlock(hMapping_, hMutex_);
    if (!block.octets) {
      return;
    }
    CacheLoadTime = block.header.stamp;
    ReadCacheBlock({block.octets.get(), block.header.cbData}, list_);
  } catch (...) {
    // Without memory the list stays as far as it came, and the provider is asked.
    return;
  }
}

void TContainerCache::WriteShared() const noexcept {
  if (list_.IsEmpty()) {
    return;
  }
  try {
    const SectionView view(hMapping_);
    if (!view.HasRoomFor(0)) {
      return;
    }
    const std::vector<std::uint8_t> block = BuildCacheBlock(list_);
    if (block.empty() || !view.HasRoomFor(block.size())) {
      return;
    }
    const CacheHeader header = {static_cast<std::uint32_t>(std::time(nullptr)),
                                static_cast<std::uint32_t>(block.size())};
    const SectionTurn turn(hMutex_);
    if (view.WriteHeader(header)) {
      view.WriteBlock(block.data(), block.size());
    }
  } catch (...) {
    // Without memory nothing is published.
    return;
  }
}

}  // namespace zarext
