// The language runtime's record of the exceptions of a thread. By itself the runtime allocates one
// with the first exception of each thread and ends the process if there is no memory for it; here
// it lies on the stack of the export that throws.
#ifndef ZAREXT_FRAME_EXCEPTION_RECORD_H_
#define ZAREXT_FRAME_EXCEPTION_RECORD_H_

namespace zarext {

// The thread's record as long as the object lives. Stands around every try block that an export
// ends with; where one calls another, each has its own.
class ExceptionRecord {
 public:
  ExceptionRecord() noexcept;
  ~ExceptionRecord();
  ExceptionRecord(const ExceptionRecord&) = delete;
  ExceptionRecord& operator=(const ExceptionRecord&) = delete;
  ExceptionRecord(ExceptionRecord&&) = delete;
  ExceptionRecord& operator=(ExceptionRecord&&) = delete;

  // What the runtime calls __cxa_eh_globals (Itanium C++ ABI, exception handling, 2.2.2).
  struct Globals {
    void* caughtExceptions = nullptr;
    unsigned int uncaughtExceptions = 0;
  };
  // The thread's; one of its own outside of exports, where the module throws nothing.
  static Globals* Current() noexcept;

 private:
  Globals globals_;
  Globals* outer_;
};

}  // namespace zarext

#endif  // ZAREXT_FRAME_EXCEPTION_RECORD_H_
