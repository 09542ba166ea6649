#include "demo/story.h"

#include <cstdio>
#include <stdexcept>

#include "frame/last_error.h"

namespace zarext::demo {
namespace {

void Tell(char mark, const std::string& text) {
  const LastErrorKeeper keeper;
  OutputDebugStringA((kStoryMark + std::string(1, mark) + text).c_str());
}

}  // namespace

void Call(const std::string& text) { Tell(kCallMark, text); }
void Note(const std::string& text) { Tell(kNoteMark, text); }
void ExpectTraced(const std::string& part) { Tell(kTracedMark, part); }
void ExpectNotTraced(const std::string& part) { Tell(kUntracedMark, part); }
void Fail(const std::string& why) { Tell(kFailureMark, why); }
void End() { Tell(kEndMark, ""); }

void Expect(bool holds, const std::string& what) {
  if (!holds) {
    throw std::runtime_error("not so: " + what);
  }
  Tell(kCheckMark, what);
}

void ExpectCode(DWORD expected, DWORD code, const std::string& what) {
  if (code != expected) {
    throw std::runtime_error("last error " + Hex(code) + " instead of " + Hex(expected) + ": " +
                             what);
  }
  Tell(kCheckMark, what);
}

std::string Hex(DWORD number) {
  char text[16] = {};
  (void)std::snprintf(text, sizeof text, "%lx", number);
  return text;
}

std::string Utf8(const wchar_t* text) {
  std::string utf8(1024, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(),
                                       static_cast<int>(utf8.size()), nullptr, nullptr);
  utf8.resize(size > 0 ? static_cast<std::size_t>(size) - 1 : 0);
  return utf8;
}

}  // namespace zarext::demo
