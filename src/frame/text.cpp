#include "frame/text.h"

#include <stdio.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace zarext {

int FormatText(char* destination, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int count = __ms_vsprintf(destination, format, arguments);
  va_end(arguments);
  return std::max(count, -1);
}

void LineText::Append(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  AppendList(format, arguments);
  va_end(arguments);
}

void LineText::AppendList(const char* format, std::va_list arguments) {
  std::va_list retry;
  va_copy(retry, arguments);
  const std::size_t room = capacity_ - length_ - 1;
  int count = _vsnprintf(Buffer() + length_, room, format, arguments);
  if (count < 0 || static_cast<std::size_t>(count) > room) {
    std::va_list measure;
    va_copy(measure, retry);
    const int needed = _vscprintf(format, measure);
    va_end(measure);
    if (needed > 0 && Grow(length_ + static_cast<std::size_t>(needed) + 1)) {
      count = _vsnprintf(Buffer() + length_, static_cast<std::size_t>(needed) + 1, format, retry);
    }
  }
  va_end(retry);
  // The runtime leaves a cut or refused text unterminated; the last octet of the buffer never is.
  Buffer()[capacity_ - 1] = '\0';
  length_ += count >= 0 ? std::min(static_cast<std::size_t>(count), capacity_ - length_ - 1)
                        : std::strlen(Buffer() + length_);
}

void LineText::Clear() noexcept {
  heap_.reset();
  capacity_ = kLineBufferSize;
  length_ = 0;
  std::fill(std::begin(fixed_), std::end(fixed_), '\0');
}

bool LineText::Grow(std::size_t capacity) noexcept {
  if (capacity <= capacity_) {
    return false;
  }
  std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]());
  if (!larger) {
    return false;
  }
  std::memcpy(larger.get(), Text(), length_);
  heap_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

}  // namespace zarext
