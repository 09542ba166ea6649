#include "frame/exception_record.h"

#include <windows.h>

namespace zarext {
namespace {

// One slot of the system's thread-local storage, from load to unload. The system has more than a
// thousand; in a process that has used them all, threads that throw at once share one record.
class ThreadSlot {
 public:
  ThreadSlot() noexcept : index_(TlsAlloc()) {}
  ~ThreadSlot() { TlsFree(index_); }
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;
  ThreadSlot(ThreadSlot&&) = delete;
  ThreadSlot& operator=(ThreadSlot&&) = delete;

  // Reading sets the last error also where it succeeds.
  [[nodiscard]] ExceptionRecord::Globals* Get() const noexcept {
    const DWORD lastError = GetLastError();
    auto* const globals = static_cast<ExceptionRecord::Globals*>(TlsGetValue(index_));
    SetLastError(lastError);
    return globals;
  }
  void Set(ExceptionRecord::Globals* globals) const noexcept { TlsSetValue(index_, globals); }

 private:
  DWORD index_;
};

ThreadSlot slot;
ExceptionRecord::Globals outsideOfExports;

}  // namespace

ExceptionRecord::ExceptionRecord() noexcept : outer_(slot.Get()) { slot.Set(&globals_); }

ExceptionRecord::~ExceptionRecord() { slot.Set(outer_); }

ExceptionRecord::Globals* ExceptionRecord::Current() noexcept {
  Globals* const globals = slot.Get();
  return globals != nullptr ? globals : &outsideOfExports;
}

}  // namespace zarext
