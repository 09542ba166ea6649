// A text file that moves out of the way when it has grown: F to F.1, F.1 to F.2 and so on.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_ROTATING_FILE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_ROTATING_FILE_H_

#include <windows.h>

#include <cstdint>
#include <string>

#include "frame/handles.h"

namespace zarext::ctl {

class RotatingFile {
 public:
  // Appends to `path`. A size of 0 never moves it; `count`: how many moved files are kept. Throws
  // Failure if the file cannot be opened.
  RotatingFile(std::string path, std::uint64_t size, unsigned count);

  // A line with its end. Throws Failure if it cannot be written.
  void Write(const std::string& line);

 private:
  void Open();
  void Rotate();

  std::string path_;
  std::uint64_t size_;
  unsigned count_;
  UniqueKernelObject file_;
  std::uint64_t written_ = 0;
};

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_ROTATING_FILE_H_
