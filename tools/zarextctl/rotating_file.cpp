#include "zarextctl/rotating_file.h"

#include <utility>

#include "zarextctl/failure.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {

RotatingFile::RotatingFile(std::string path, std::uint64_t size, unsigned count)
    : path_(std::move(path)), size_(size), count_(count) {
  Open();
}

void RotatingFile::Open() {
  HANDLE file =
      CreateFileW(Wide(path_).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_DELETE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    throw Failure("open \"" + path_ + "\" for writing", GetLastError(),
                  "name a file in a folder that this user may write into");
  }
  file_.Reset(file);
  LARGE_INTEGER size = {};
  GetFileSizeEx(file_.Get(), &size);
  written_ = static_cast<std::uint64_t>(size.QuadPart);
}

void RotatingFile::Rotate() {
  file_.Reset();
  const auto numbered = [this](unsigned number) {
    return Wide(number == 0 ? path_ : path_ + "." + std::to_string(number));
  };
  for (unsigned number = count_; number > 0; --number) {
    MoveFileExW(numbered(number - 1).c_str(), numbered(number).c_str(), MOVEFILE_REPLACE_EXISTING);
  }
  if (count_ == 0) {
    DeleteFileW(numbered(0).c_str());
  }
  Open();
}

void RotatingFile::Write(const std::string& line) {
  const std::string text = line + "\r\n";
  if (size_ != 0 && written_ != 0 && written_ + text.size() > size_) {
    Rotate();
  }
  DWORD written = 0;
  if (!WriteFile(file_.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) {
    throw Failure("write into \"" + path_ + "\"", GetLastError(), "make room on the disk");
  }
  written_ += written;
}

}  // namespace zarext::ctl
