// A text in a buffer of its own: what is built while a lock is held must not fail for want of
// memory.
#ifndef ZAREXT_STORE_FIXED_TEXT_H_
#define ZAREXT_STORE_FIXED_TEXT_H_

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zarext {

// At most size - 1 characters and a terminator, on the stack.
template <std::size_t size>
class FixedText {
 public:
  // Adds as much of the text as there is room for.
  void Append(std::string_view text) noexcept {
    length_ += text.copy(text_ + length_, std::min(text.size(), Room()));
  }
  [[nodiscard]] std::size_t Room() const noexcept { return size - 1 - length_; }
  [[nodiscard]] char* Text() noexcept { return text_; }
  [[nodiscard]] const char* Text() const noexcept { return text_; }
  [[nodiscard]] std::string_view View() const noexcept { return {text_, length_}; }

 private:
  char text_[size] = {};
  std::size_t length_ = 0;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_FIXED_TEXT_H_
