// A stack of plain records whose first entries need no allocation. The codec walks documents with
// it instead of recursing, because the depth of a document is the sender's choice.
#ifndef ZAREXT_ASN1_SMALL_STACK_H_
#define ZAREXT_ASN1_SMALL_STACK_H_

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace zarext {

template <typename T, std::size_t kInline = 32>
class SmallStack {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  SmallStack() = default;
  ~SmallStack() = default;
  SmallStack(const SmallStack&) = delete;
  SmallStack& operator=(const SmallStack&) = delete;

  [[nodiscard]] std::size_t Size() const { return static_cast<std::size_t>(next_ - first_); }

  // The last entry pushed; valid until the next Push or Pop.
  T& Top() { return next_[-1]; }

  // Throws std::bad_alloc and changes nothing when a deep stack cannot grow.
  void Push(const T& entry) {
    if (next_ == limit_) {
      Grow();
    }
    *next_++ = entry;
  }

  void Pop() { --next_; }

 private:
  void Grow() {
    const std::size_t size = Size();
    auto larger = std::make_unique_for_overwrite<T[]>(size * 4);
    std::copy(first_, next_, larger.get());
    far_ = std::move(larger);
    first_ = far_.get();
    next_ = first_ + size;
    limit_ = first_ + size * 4;
  }

  // Left as they are: an entry is written before it is read.
  T near_[kInline];
  std::unique_ptr<T[]> far_;
  T* first_ = near_;
  T* next_ = near_;  // behind the last entry
  T* limit_ = near_ + kInline;
};

}  // namespace zarext

#endif  // ZAREXT_ASN1_SMALL_STACK_H_
