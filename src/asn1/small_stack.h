#pragma once

// A stack of plain records whose first entries need no allocation. The codec walks documents with
// it instead of recursing, because the depth of a document is the sender's choice.

#include <array>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace zarext {

template <typename T, std::size_t kInline = 32>
class SmallStack {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  SmallStack() = default;
  SmallStack(const SmallStack&) = delete;
  SmallStack& operator=(const SmallStack&) = delete;

  [[nodiscard]] std::size_t Size() const { return size_; }

  // The last entry pushed; valid until the next Push or Pop.
  T& Top() { return *top_; }

  // Throws std::bad_alloc and changes nothing when a deep stack cannot grow.
  void Push(const T& entry) {
    if (size_ < kInline) {
      top_ = &near_[size_];
      *top_ = entry;
    } else {
      far_.push_back(entry);
      top_ = &far_.back();
    }
    ++size_;
  }

  void Pop() {
    --size_;
    if (size_ >= kInline) far_.pop_back();
    top_ = size_ > kInline ? &far_.back() : &near_[size_ > 0 ? size_ - 1 : 0];
  }

 private:
  // Left as it is: an entry is written before it is read.
  std::array<T, kInline> near_;
  std::vector<T> far_;
  std::size_t size_ = 0;
  T* top_ = nullptr;
};

}  // namespace zarext
