#include "frame/file_routines.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace zarext {
namespace {

// A descriptor of the C runtime, closed with the object.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~Descriptor() {
    if (IsOpen()) {
      _close(descriptor_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] bool IsOpen() const noexcept { return descriptor_ != -1; }
  [[nodiscard]] int Get() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

// The runtime counts in int: moves `size` octets in as many steps as that takes.
template <typename Octet, typename Move>
bool MoveAll(Octet* octets, std::uint32_t size, Move move) noexcept {
  while (size > 0) {
    const unsigned int step = std::min<std::uint32_t>(size, INT_MAX);
    const int moved = move(octets, step);
    if (moved <= 0) {
      return false;
    }
    octets += moved;
    size -= static_cast<std::uint32_t>(moved);
  }
  return true;
}

}  // namespace

std::int32_t QueryFileSize(const char* path, std::uint32_t* size) noexcept {
  struct _stat64 status = {};
  if (_stat64(path, &status) != 0) {
    return 1;
  }
  *size = static_cast<std::uint32_t>(status.st_size);
  return 0;
}

std::int32_t ReadWholeFile(const char* path, void* buffer, std::uint32_t size) noexcept {
  const Descriptor file(_sopen(path, _O_RDONLY | _O_BINARY, _SH_DENYNO));
  if (!file.IsOpen()) {
    return 1;
  }
  const auto read = [&](char* octets, unsigned int step) {
    return _read(file.Get(), octets, step);
  };
  return MoveAll(static_cast<char*>(buffer), size, read) ? 0 : 2;
}

std::int32_t WriteWholeFile(const char* path, const void* data, std::uint32_t size) noexcept {
  char fullPath[_MAX_PATH];
  const bool hasFullPath = _fullpath(fullPath, path, _MAX_PATH) != nullptr;
  _fmode = _O_BINARY;
  const Descriptor file(_creat(hasFullPath ? fullPath : path, _S_IREAD | _S_IWRITE));
  if (!file.IsOpen()) {
    return 1;
  }
  const auto write = [&](const char* octets, unsigned int step) {
    return _write(file.Get(), octets, step);
  };
  return MoveAll(static_cast<const char*>(data), size, write) ? 0 : 2;
}

}  // namespace zarext
