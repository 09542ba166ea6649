#include "store/container_cache.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "frame/handles.h"

namespace zarext {
namespace {

alignas(TContainerCache) unsigned char storage[sizeof(TContainerCache)];

CRITICAL_SECTION openSection;
bool isOpenSectionThere = false;

// A hold on the section's mutex, also on one whose owner died; without a mutex nothing is held.
using SectionTurn = UniqueHandle<HANDLE, ReleaseMutex>;

SectionTurn TakeTurn(HANDLE mutex) {
  WaitForSingleObject(mutex, INFINITE);
  return SectionTurn(mutex);
}

// A view of the whole section, in the size that its creator gave it. The creator may have backed it
// by a file and cut that file since. So the platform copies in and out: it reports pages that are
// gone, where an access of the module's own would end the host.
class SectionView {
 public:
  explicit SectionView(HANDLE mapping)
      : view_(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0)) {
    MEMORY_BASIC_INFORMATION region = {};
    if (view_ && VirtualQuery(view_.Get(), &region, sizeof region) != 0 &&
        region.State == MEM_COMMIT) {
      room_ = std::min<std::size_t>(region.RegionSize, kStoreMappingSize) - sizeof(CacheHeader);
    }
  }

  // Octets behind the header; 0 where there is no section.
  [[nodiscard]] std::size_t Room() const noexcept { return room_; }

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

 private:
  [[nodiscard]] void* At(std::size_t offset) const noexcept {
    return static_cast<std::uint8_t*>(view_.Get()) + offset;
  }

  UniqueView view_;
  std::size_t room_ = 0;
};

struct BlockCopy {
  CacheHeader header = {};
  std::unique_ptr<std::uint8_t[]> octets;  // null for none
};

// Copies a usable block out of the section. Nothing throws for want of memory while the mutex is
// held.
BlockCopy CopyBlock(HANDLE mapping, HANDLE mutex) {
  const SectionView view(mapping);
  if (view.Room() == 0) {
    return {};
  }
  const std::int64_t now = std::time(nullptr);
  const SectionTurn turn = TakeTurn(mutex);
  BlockCopy copy;
  // Stamp and length go together, in one copy of eight octets.
  if (!view.Read(0, &copy.header, sizeof copy.header) || !IsBlockUsable(copy.header, now) ||
      copy.header.cbData > view.Room()) {
    return {};
  }
  copy.octets.reset(new (std::nothrow) std::uint8_t[copy.header.cbData + 1]());
  return copy.octets && view.Read(sizeof copy.header, copy.octets.get(), copy.header.cbData)
             ? std::move(copy)
             : BlockCopy();
}

}  // namespace

TContainerCache& TContainerCache::instance_ = Make();

TContainerCache& TContainerCache::Make() {
  auto& cache = *new (storage) TContainerCache;
  cache.hMutex_ = CreateMutexA(nullptr, FALSE, kStoreMutexName);
  cache.hMapping_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                       kStoreMappingSize, kStoreMappingName);
  InitializeCriticalSection(&openSection);
  isOpenSectionThere = true;
  static_cast<void>(std::atexit(&Exit));
  return cache;
}

void TContainerCache::Exit() {
  instance_.Clear();
  if (instance_.hMutex_ != nullptr) {
    CloseHandle(std::exchange(instance_.hMutex_, nullptr));
  }
  isOpenSectionThere = false;
  DeleteCriticalSection(&openSection);
}

void TContainerCache::EnterOpenSection() {
  if (isOpenSectionThere) {
    EnterCriticalSection(&openSection);
  }
}

void TContainerCache::LeaveOpenSection() {
  if (isOpenSectionThere) {
    LeaveCriticalSection(&openSection);
  }
}

void TContainerCache::ReadShared() {
  Clear();
  try {
    const BlockCopy block = CopyBlock(hMapping_, hMutex_);
    if (!block.octets) {
      return;
    }
    MarkFilled(block.header.stamp);
    ReadCacheBlock({block.octets.get(), block.header.cbData});
  } catch (...) {
    // Without memory the list stays as far as it came, and the provider is asked.
    return;
  }
}

void TContainerCache::WriteShared() const {
  if (list_.IsEmpty()) {
    return;
  }
  try {
    const SectionView view(hMapping_);
    if (view.Room() == 0) {
      return;
    }
    const std::vector<std::uint8_t> block = BuildCacheBlock(list_);
    if (block.empty() || block.size() > view.Room()) {
      return;
    }
    const CacheHeader header = {static_cast<std::uint32_t>(std::time(nullptr)),
                                static_cast<std::uint32_t>(block.size())};
    const SectionTurn turn = TakeTurn(hMutex_);
    if (view.Write(0, &header, sizeof header)) {
      view.Write(sizeof header, block.data(), block.size());
    }
  } catch (...) {
    // Without memory nothing is published.
    return;
  }
}

}  // namespace zarext
