#include "frame/file_routines.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <optional>

#include "frame/handles.h"

namespace zarext {
namespace {

void CloseDescriptor(std::optional<int> descriptor) { _close(*descriptor); }
using UniqueDescriptor = UniqueHandle<std::optional<int>, CloseDescriptor>;

UniqueDescriptor Own(int descriptor) {
  return descriptor == -1 ? UniqueDescriptor() : UniqueDescriptor(descriptor);
}

// The runtime counts in int: moves `size` octets in as many steps as that takes.
template <typename Octet, typename Move>
bool MoveAll(Octet* octets, std::uint32_t size, Move move) {
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

std::int32_t QueryFileSize(const char* path, std::uint32_t* size) {
  struct _stat64 status = {};
  if (_stat64(path, &status) != 0) {
    return 1;
  }
  *size = static_cast<std::uint32_t>(status.st_size);
  return 0;
}

std::int32_t ReadWholeFile(const char* path, void* buffer, std::uint32_t size) {
  const UniqueDescriptor file = Own(_sopen(path, _O_RDONLY | _O_BINARY, _SH_DENYNO));
  if (!file) {
    return 1;
  }
  const auto read = [&](char* octets, unsigned int step) {
    return _read(*file.Get(), octets, step);
  };
  return MoveAll(static_cast<char*>(buffer), size, read) ? 0 : 2;
}

std::int32_t WriteWholeFile(const char* path, const void* data, std::uint32_t size) {
  char fullPath[_MAX_PATH];
  const bool hasFullPath = _fullpath(fullPath, path, _MAX_PATH) != nullptr;
  _fmode = _O_BINARY;
  const UniqueDescriptor file = Own(_creat(hasFullPath ? fullPath : path, _S_IREAD | _S_IWRITE));
  if (!file) {
    return 1;
  }
  const auto write = [&](const char* octets, unsigned int step) {
    return _write(*file.Get(), octets, step);
  };
  return MoveAll(static_cast<const char*>(data), size, write) ? 0 : 2;
}

}  // namespace zarext
