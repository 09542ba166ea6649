// printf-style text for trace and log lines, with the semantics of the platform's C runtime.
#ifndef ZAREXT_FRAME_TEXT_H_
#define ZAREXT_FRAME_TEXT_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

// Checks a format against its arguments as msvcrt.dll reads it. clang knows only its own name for
// the check.
#if defined(__clang__) || !defined(_WIN32)
#define ZAREXT_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define ZAREXT_PRINTF(text, first) __attribute__((format(ms_printf, text, first)))
#endif

namespace zarext {

// Formats into `destination` like the C runtime's vsprintf and returns the number of characters
// written without the terminator, or -1 where formatting fails. No size is passed: the caller
// guarantees that the text fits. Texts whose length comes from outside go through LineText.
int FormatText(char* destination, const char* format, ...) ZAREXT_PRINTF(2, 3);

// The length that every line buffer of the module has.
inline constexpr std::size_t kLineBufferSize = 4096;

// One line under construction: a zeroed 4,096-byte buffer on the stack, and a heap block instead
// when the text grows past it, so that no line is cut and none runs over. Without memory for that
// block the line keeps what the buffer holds. Throws only what the C runtime's formatting throws.
class LineText {
 public:
  LineText() = default;
  ~LineText() = default;
  LineText(const LineText&) = delete;
  LineText& operator=(const LineText&) = delete;

  // Adds formatted text behind what is there. A format that the runtime refuses adds what the
  // runtime had produced until then.
  void Append(const char* format, ...) ZAREXT_PRINTF(2, 3);
  void AppendList(const char* format, std::va_list arguments) ZAREXT_PRINTF(2, 0);

  void Clear() noexcept;

  [[nodiscard]] const char* Text() const noexcept { return heap_ ? heap_.get() : fixed_; }
  [[nodiscard]] std::size_t Length() const noexcept { return length_; }

 private:
  [[nodiscard]] char* Buffer() noexcept { return heap_ ? heap_.get() : fixed_; }
  bool Grow(std::size_t capacity) noexcept;

  char fixed_[kLineBufferSize] = {};
  std::unique_ptr<char[]> heap_;
  std::size_t capacity_ = kLineBufferSize;
  std::size_t length_ = 0;
};

// Arguments for %x and %i. Trace lines show 64-bit handles by their low half, and the platform's
// DWORD is an unsigned long, which the format check would refuse.
template <typename T>
constexpr unsigned int Hex(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(value));
  } else {
    return static_cast<unsigned int>(value);
  }
}

template <typename T>
constexpr int Int(T value) {
  return static_cast<int>(value);
}

}  // namespace zarext

#endif  // ZAREXT_FRAME_TEXT_H_
