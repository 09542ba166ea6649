// The thread's last error, kept over calls that change it.
#ifndef ZAREXT_FRAME_LAST_ERROR_H_
#define ZAREXT_FRAME_LAST_ERROR_H_

#include <windows.h>

namespace zarext {

// Puts the thread's last error back to what it was.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : code_(GetLastError()) {}
  ~LastErrorKeeper() { SetLastError(code_); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  DWORD code_;
};

}  // namespace zarext

#endif  // ZAREXT_FRAME_LAST_ERROR_H_
