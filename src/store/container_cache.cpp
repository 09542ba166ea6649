#include "store/container_cache.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <ctime>
#include <vector>

#include "frame/handles.h"
#include "frame/module_state.h"
#include "store/cache_block.h"

namespace zarext {
namespace {

static_assert(kLongestReadBlock == kStoreMappingSize - sizeof(CacheHeader));
static_assert(kLongestWrittenBlock == kLongestReadBlock + 16);

// The turn at the section. An owner that died leaves it free; without a mutex there are no turns.
class SectionTurn {
 public:
  explicit SectionTurn(HANDLE mutex) noexcept : mutex_(mutex) {
    WaitForSingleObject(mutex_, INFINITE);
  }
  ~SectionTurn() { ReleaseMutex(mutex_); }
  SectionTurn(const SectionTurn&) = delete;
  SectionTurn& operator=(const SectionTurn&) = delete;
  SectionTurn(SectionTurn&&) = delete;
  SectionTurn& operator=(SectionTurn&&) = delete;

 private:
  HANDLE mutex_;
};

// A view of the whole section, as large as whoever created it made it.
class SectionView {
 public:
  explicit SectionView(HANDLE mapping) noexcept
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
  // One access each: stamp and length belong together.
  [[nodiscard]] CacheHeader LoadHeader() const noexcept {
    return std::bit_cast<CacheHeader>(HeaderWord().load());
  }
  void StoreHeader(const CacheHeader& header) const noexcept {
    HeaderWord().store(std::bit_cast<std::uint64_t>(header));
  }
  [[nodiscard]] std::uint8_t* Block() const noexcept {
    return static_cast<std::uint8_t*>(view_.Get()) + sizeof(CacheHeader);
  }

 private:
  [[nodiscard]] std::atomic_ref<std::uint64_t> HeaderWord() const noexcept {
    return std::atomic_ref<std::uint64_t>(*static_cast<std::uint64_t*>(view_.Get()));
  }

  UniqueView view_;
  std::size_t size_ = 0;
};

// Copies a usable block out of the section; empty if there is none.
std::vector<std::uint8_t> CopyBlock(HANDLE mapping, HANDLE mutex, std::uint32_t* stamp) {
  const SectionView view(mapping);
  if (!view.HasRoomFor(0)) {
    return {};
  }
  const std::int64_t now = std::time(nullptr);
  const SectionTurn turn(mutex);
  const CacheHeader header = view.LoadHeader();
  if (!IsBlockUsable(header, now) || !view.HasRoomFor(header.cbData)) {
    return {};
  }
  *stamp = header.stamp;
  return {view.Block(), view.Block() + header.cbData};
}

}  // namespace

std::int64_t CacheLoadTime = 0;

TContainerCache TContainerCache::instance_;

TContainerCache::TContainerCache() noexcept
    : hMapping_(StoreObjects::Instance().Mapping()), hMutex_(StoreObjects::Instance().Mutex()) {}

void TContainerCache::ReadShared() noexcept {
  Clear();
  try {
    std::uint32_t stamp = 0;
    const std::vector<std::uint8_t> block = CopyBlock(hMapping_, hMutex_, &stamp);
    if (block.empty()) {
      return;
    }
    CacheLoadTime = stamp;
    ReadCacheBlock(block, list_);
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
    view.StoreHeader(header);
    std::memcpy(view.Block(), block.data(), block.size());
  } catch (...) {
    // Without memory nothing is published.
    return;
  }
}

}  // namespace zarext
