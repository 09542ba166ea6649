// A stack of plain records whose first entries need no allocation. The codec walks documents with
// it instead of recursing, because the depth of a document is the sender's choice.
#ifndef ZAREXT_ASN1_SMALL_STACK_H_
#define ZAREXT_ASN1_SMALL_STACK_H_

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

namespace zarext {

template <typename T, std::size_t kInline = 32>
class SmallStack {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  SmallStack() = default;
  ~SmallStack() = default;
  SmallStack(const SmallStack&) = delete;
  SmallStack& operator=(const SmallStack&) = delete;

  [[nodiscard]] bool IsEmpty() const { return next_ == near_; }

  // The last entry pushed; valid until the next Push or Pop.
  T& Top() { return next_[-1]; }

  // Throws std::bad_alloc and changes nothing when a deep stack cannot grow.
  void Push(const T& entry) {
    if (next_ == limit_) {
      GoUp();
    }
    *next_++ = entry;
  }

  void Pop() {
    if (--next_ == first_ && below_ > 0) {
      GoDown();
    }
  }

 private:
  // Pieces, each twice as long as the one below it up to 128 times the first, and not one array
  // that grows: memory of that length would go back to the system and come again with each
  // document.
  static std::size_t PieceSize(std::size_t below) {
    return kInline << std::min<std::size_t>(below, 7);
  }

  [[gnu::cold]] void GoUp() {
    if (below_ == pieces_.size()) {
      pieces_.push_back(std::make_unique_for_overwrite<T[]>(PieceSize(below_ + 1)));
    }
    GoTo(below_ + 1);
    next_ = first_;
  }

  [[gnu::cold]] void GoDown() {
    GoTo(below_ - 1);
    next_ = limit_;
  }

  void GoTo(std::size_t below) {
    below_ = below;
    first_ = below == 0 ? near_ : pieces_[below - 1].get();
    limit_ = first_ + PieceSize(below);
  }

  // Left as they are: an entry is written before it is read.
  T near_[kInline];
  std::vector<std::unique_ptr<T[]>> pieces_;
  std::size_t below_ = 0;  // how many pieces are full
  T* first_ = near_;
  T* next_ = near_;  // behind the last entry
  T* limit_ = near_ + kInline;
};

}  // namespace zarext

#endif  // ZAREXT_ASN1_SMALL_STACK_H_
