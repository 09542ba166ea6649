// Tests that need a process of their own: the test program starts itself again and runs one named
// function there.
#ifndef ZAREXT_TESTS_SUPPORT_CHILD_PROCESS_H_
#define ZAREXT_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zarext::test {

using ChildArguments = std::vector<std::string>;
using ChildFunction = int (*)(const ChildArguments& arguments);

struct ChildRegistration {
  ChildRegistration(const char* name, ChildFunction function);
};

// Defines what a child process named `name` does; the value returned is its exit code (0 to 255).
#define ZAREXT_CHILD(name)                                                                     \
  static int Child_##name([[maybe_unused]] const zarext::test::ChildArguments& arguments);     \
  static const zarext::test::ChildRegistration childRegistration_##name(#name, &Child_##name); \
  static int Child_##name([[maybe_unused]] const zarext::test::ChildArguments& arguments)

struct ChildCall {
  std::string name;
  ChildArguments arguments;
};
std::optional<ChildCall> ChildRequest(int argc, char** argv);
int RunChild(const ChildCall& call);

// A started child; ended with the object if it still runs.
class ChildProcess {
 public:
  // Arguments must not contain spaces or quotes.
  explicit ChildProcess(const std::string& name, const ChildArguments& arguments = {});
  // Any program, with its command line.
  static ChildProcess Program(const std::string& commandLine) {
    return ChildProcess(Line{commandLine});
  }
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] DWORD Id() const { return information_.dwProcessId; }
  // The exit code, or nothing if the process still runs after the wait.
  std::optional<DWORD> Wait(DWORD milliseconds = 60000) const;
  void Kill() const;

 private:
  struct Line {
    std::string text;
  };
  explicit ChildProcess(const Line& line);
  PROCESS_INFORMATION information_ = {};
};

// Path of the folder that holds the test program (and ZAREXT.dll), with a trailing backslash.
std::string ProgramFolder();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_CHILD_PROCESS_H_
