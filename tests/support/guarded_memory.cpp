#include "support/guarded_memory.h"

#include <algorithm>
#include <new>

namespace zarext::test {
namespace {

constexpr std::size_t kPage = 4096;

}  // namespace

GuardedMemory::GuardedMemory(std::size_t size, Guard guard) : size_(size) {
  const std::size_t usable = (size + kPage - 1) / kPage * kPage;
  region_ = static_cast<BYTE*>(VirtualAlloc(nullptr, usable + kPage, MEM_RESERVE, PAGE_NOACCESS));
  if (region_ == nullptr) {
    throw std::bad_alloc();
  }
  BYTE* const start = guard == Guard::kBehind ? region_ : region_ + kPage;
  if (usable != 0 && VirtualAlloc(start, usable, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
    throw std::bad_alloc();
  }
  data_ = guard == Guard::kBehind ? start + (usable - size) : start;
}

GuardedMemory::GuardedMemory(const std::vector<std::uint8_t>& content, Guard guard)
    : GuardedMemory(content.size(), guard) {
  std::copy(content.begin(), content.end(), data_);
}

GuardedMemory::~GuardedMemory() { VirtualFree(region_, 0, MEM_RELEASE); }

void GuardedMemory::MakeReadOnly() const {
  DWORD old = 0;
  if (size_ != 0) {
    VirtualProtect(data_, size_, PAGE_READONLY, &old);
  }
}

}  // namespace zarext::test
