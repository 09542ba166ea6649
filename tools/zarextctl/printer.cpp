#include "zarextctl/printer.h"

#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr WORD kForeground =
    FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;

WORD AttributeOf(Colour colour) {
  switch (colour) {
    case Colour::kGood:
      return FOREGROUND_GREEN | FOREGROUND_INTENSITY;
    case Colour::kWarning:
      return FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_INTENSITY;
    case Colour::kBad:
      return FOREGROUND_RED | FOREGROUND_INTENSITY;
    case Colour::kFaint:
      return FOREGROUND_INTENSITY;
    case Colour::kCyan:
      return FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    case Colour::kMagenta:
      return FOREGROUND_RED | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    case Colour::kStrong:
    case Colour::kPlain:
      break;
  }
  return kForeground;
}

}  // namespace

Printer::Printer(DWORD channel) : handle_(GetStdHandle(channel)) {
  DWORD mode = 0;
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  isConsole_ = GetConsoleMode(handle_, &mode) != FALSE;
  if (isConsole_ && GetConsoleScreenBufferInfo(handle_, &info)) {
    width_ = static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left);
    plain_ = info.wAttributes;
    // https://no-color.org: any value but an empty one.
    hasColour_ = GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1;
  }
}

void Printer::SetColour(Colour colour) const {
  if (hasColour_) {
    const auto background = static_cast<WORD>(plain_ & ~kForeground);
    SetConsoleTextAttribute(handle_, colour == Colour::kPlain
                                         ? plain_
                                         : static_cast<WORD>(background | AttributeOf(colour)));
  }
}

void Printer::Write(std::string_view utf8) {
  if (isConsole_) {
    const std::wstring wide = Wide(utf8);
    DWORD written = 0;
    WriteConsoleW(handle_, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
    return;
  }
  while (!utf8.empty() && isOpen_) {
    DWORD written = 0;
    isOpen_ = WriteFile(handle_, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr) !=
              FALSE;
    utf8.remove_prefix(written);
  }
}

void Printer::Line(std::string_view utf8, Colour colour, std::size_t hang) {
  const std::lock_guard lock(mutex_);
  SetColour(colour);
  for (const std::string& piece : Wrapped(utf8, width_, hang)) {
    Write(piece + "\r\n");
  }
  SetColour(Colour::kPlain);
}

void Printer::Labelled(std::string_view label, Colour colour, std::string_view rest,
                       std::size_t hang) {
  const std::lock_guard lock(mutex_);
  const std::string line = std::string(label).append(rest);
  bool isFirst = true;
  for (const std::string& piece : Wrapped(line, width_, hang)) {
    // The label is in the first piece unless it is longer than the console is wide.
    const std::size_t coloured = isFirst && piece.starts_with(label) ? label.size() : 0;
    SetColour(colour);
    Write(piece.substr(0, coloured));
    SetColour(Colour::kPlain);
    Write(piece.substr(coloured) + "\r\n");
    isFirst = false;
  }
}

}  // namespace zarext::ctl
