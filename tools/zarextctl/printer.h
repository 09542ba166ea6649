// Where a command's results go: lines of UTF-8 into a file or a pipe, wrapped and coloured on a
// console.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_PRINTER_H_
#define ZAREXT_TOOLS_ZAREXTCTL_PRINTER_H_

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zarext::ctl {

enum class Colour : std::uint8_t {
  kPlain,
  kGood,
  kWarning,
  kBad,
  kStrong,
  kFaint,
  kCyan,
  kMagenta
};

// One of the process' two output channels. Any thread may print; lines stay whole.
class Printer {
 public:
  // STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
  explicit Printer(DWORD channel);

  // A line, wrapped to the console's width; what follows its first piece hangs by `hang`.
  void Line(std::string_view utf8 = {}, Colour colour = Colour::kPlain, std::size_t hang = 2);
  // "label" in a colour, then the rest.
  void Labelled(std::string_view label, Colour colour, std::string_view rest, std::size_t hang = 2);

  [[nodiscard]] bool IsConsole() const noexcept { return isConsole_; }
  // False once the other end of a pipe is gone.
  [[nodiscard]] bool IsOpen() const noexcept { return isOpen_; }

 private:
  void Write(std::string_view utf8);
  void SetColour(Colour colour) const;

  HANDLE handle_;
  bool isConsole_ = false;
  bool hasColour_ = false;
  bool isOpen_ = true;
  WORD plain_ = 0;
  std::size_t width_ = 0;
  std::mutex mutex_;
};

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_PRINTER_H_
