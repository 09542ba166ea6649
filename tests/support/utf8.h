// Wide text as the tests compare it.
#ifndef ZAREXT_TESTS_SUPPORT_UTF8_H_
#define ZAREXT_TESTS_SUPPORT_UTF8_H_

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace zarext::test {

inline std::string Utf8(std::wstring_view text) {
  std::string utf8(text.size() * 3, '\0');
  utf8.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(),
                          static_cast<int>(utf8.size()), nullptr, nullptr)));
  return utf8;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_UTF8_H_
