#include "frame/trace.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <stdio.h>
#include <sys/locking.h>
#include <sys/stat.h>
#include <windows.h>

#include <array>
#include <cstdint>
#include <ctime>

#include "frame/guarded.h"
#include "frame/handles.h"
#include "frame/last_error.h"

namespace zarext {
namespace {

// One reading of the system clock, in milliseconds since 1970. The C runtime's own time functions
// read the same clock, at several times the cost of all the rest of a trace line.
std::uint64_t MillisecondsSince1970() {
  constexpr std::uint64_t kUnitsPerMillisecond = 10'000;  // of 100 ns, since 1601
  constexpr std::uint64_t kUnitsUntil1970 = 116'444'736'000'000'000;
  FILETIME now = {};
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t units = std::uint64_t{now.dwHighDateTime} << 32U | now.dwLowDateTime;
  return (units - kUnitsUntil1970) / kUnitsPerMillisecond;
}

// "Mon Nov 16 00:12:46.007". Seconds and milliseconds come from two readings of the clock: around
// the end of a second they may belong to different ones, as those who sort by this text notice.
std::array<char, 32> Timestamp() {
  std::array<char, 32> text = {};
  const auto seconds = static_cast<std::time_t>(MillisecondsSince1970() / 1000);
  const auto milliseconds = static_cast<unsigned short>(MillisecondsSince1970() % 1000);
  FormatText(text.data(), "%.19s.%.3hu", std::ctime(&seconds), milliseconds);
  return text;
}

bool IsRegularFile(const char* path) {
  struct _stat64 status = {};
  return _stat64(path, &status) == 0 && (status.st_mode & _S_IFREG) != 0;
}

// The lock file's descriptor, or -1: no temporary directory, or no open.
int OpenLockFile(const char* name) {
  constexpr DWORD kFolderSize = 520;
  char folder[kFolderSize] = {};
  const DWORD length = GetTempPathA(kFolderSize, folder);
  if (length == 0 || length >= kFolderSize) {
    return -1;
  }
  char path[kFolderSize + 16] = {};
  FormatText(path, "%s%s", folder, name);
  return _sopen(path, _O_RDWR | _O_CREAT | _O_TRUNC, _SH_DENYNO, _S_IREAD | _S_IWRITE);
}

// Locks one octet that no log will ever reach. The lock on the lock file covers no octets and keeps
// nobody out: with it alone, lines of several processes would mix in the log. A foreign lock on the
// log delays a line by ten seconds at most, a file system without locks does not delay it.
class LogFileTurn {
 public:
  explicit LogFileTurn(std::FILE* file)
      : file_(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)))) {
    constexpr ULONGLONG kLongestWait = 10'000;  // milliseconds
    position_.OffsetHigh = 0x7FFFFFFF;
    const ULONGLONG start = GetTickCount64();
    for (TryLock(); SomebodyElsesTurn() && GetTickCount64() - start < kLongestWait; TryLock()) {
      Sleep(1);
    }
  }
  // A destructor must not throw what End() may; the system unlocks a file that is closed.
  ~LogFileTurn() = default;
  LogFileTurn(const LogFileTurn&) = delete;
  LogFileTurn& operator=(const LogFileTurn&) = delete;

  void End() {
    if (locked_) {
      UnlockFileEx(file_, 0, 1, 0, &position_);
    }
  }

 private:
  void TryLock() {
    constexpr DWORD kFlags = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
    locked_ = LockFileEx(file_, kFlags, 0, 1, 0, &position_) != FALSE;
    error_ = locked_ ? ERROR_SUCCESS : GetLastError();
  }
  [[nodiscard]] bool SomebodyElsesTurn() const { return error_ == ERROR_LOCK_VIOLATION; }

  HANDLE file_;
  OVERLAPPED position_ = {};
  bool locked_ = false;
  DWORD error_ = ERROR_SUCCESS;
};

void WriteLine(std::FILE* file, const char* timestamp, const char* message) {
  LineText line;
  line.Append("thid=%i : time=%s : %s\n", Int(GetCurrentThreadId()), timestamp, message);
  LogFileTurn turn(file);
  (void)fwrite(line.Text(), 1, line.Length(), file);
  // The line must be in the file before others may write theirs.
  (void)fflush(file);
  turn.End();
}

// What a call throws is passed over: a log that cannot be written is none of the export's failures.
void LogToFile(const char* path, const char* lockFileName, Callback<LineText&> makeMessage) {
  // Closed on every path, also with its initial value: a host that shares the C runtime then loses
  // its descriptor 0. Closing it again, or -1 where there is no lock file, only fails.
  int lockFile = 0;
  UniqueFile file;  // closed behind the lock file
  const auto log = [&] {
    if (!IsRegularFile(path)) {
      return;
    }
    LineText message;
    makeMessage(message);
    const auto timestamp = Timestamp();
    lockFile = OpenLockFile(lockFileName);
    if (lockFile != -1) {
      // Zero octets, result unchecked: whoever else uses the lock file locks it in the same way.
      _locking(lockFile, _LK_LOCK, 0);
    }
    file.Reset(fopen(path, "at"));
    if (file) {
      WriteLine(file.Get(), timestamp.data(), message.Text());
    }
    if (lockFile != -1) {
      _locking(lockFile, _LK_UNLCK, 0);
    }
  };
  RunGuarded([](ErrorCode) {}, [] {}, log);
  RunGuarded([](ErrorCode) {}, [] {}, [&] { _close(lockFile); });
}

}  // namespace

void Trace(const char* format, ...) {
  const LastErrorKeeper keeper;
  LineText line;
  line.Append("id=%i : tm=%s : ", Int(GetCurrentThreadId()), Timestamp().data());
  std::va_list arguments;
  va_start(arguments, format);
  line.AppendList(format, arguments);
  va_end(arguments);
  OutputDebugStringA(line.Text());
}

void FileLog(const char* path, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  LogToFile(path, "zarext.lock", [&](LineText& message) { message.AppendList(format, arguments); });
  va_end(arguments);
}

void InternalFileLog(const char* path, const char* message) {
  LogToFile(path, "zarint.lock", [&](LineText& text) { text.Append("%s", message); });
}

}  // namespace zarext
