// Memory at a page's edge, with a page behind or before it that nobody may touch.
#ifndef ZAREXT_TESTS_SUPPORT_GUARDED_MEMORY_H_
#define ZAREXT_TESTS_SUPPORT_GUARDED_MEMORY_H_

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zarext::test {

class GuardedMemory {
 public:
  enum class Guard { kBehind, kBefore };

  // `size` zeroed octets (0 is allowed) whose end, or start, lies at the forbidden page. With the
  // guard behind, the start is aligned only as far as the size allows.
  explicit GuardedMemory(std::size_t size, Guard guard = Guard::kBehind);
  // The same with a content.
  explicit GuardedMemory(const std::vector<std::uint8_t>& content, Guard guard = Guard::kBehind);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  [[nodiscard]] BYTE* Data() const { return data_; }
  [[nodiscard]] std::size_t Size() const { return size_; }
  [[nodiscard]] std::vector<std::uint8_t> Content() const { return {data_, data_ + size_}; }
  template <typename T>
  [[nodiscard]] T* As() const {
    return reinterpret_cast<T*>(data_);
  }
  // Any write from now on is a fault.
  void MakeReadOnly() const;

 private:
  BYTE* region_;
  BYTE* data_;
  std::size_t size_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_GUARDED_MEMORY_H_
