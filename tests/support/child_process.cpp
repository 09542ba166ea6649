#include "support/child_process.h"

#include <map>
#include <stdexcept>
#include <utility>

namespace zarext::test {
namespace {

constexpr char kPrefix[] = "--child=";

std::map<std::string, ChildFunction>& Children() {
  static std::map<std::string, ChildFunction> children;
  return children;
}

std::string ProgramPath() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return path;
}

std::string CommandLine(const std::string& name, const ChildArguments& arguments) {
  std::string line = "\"" + ProgramPath() + "\" " + kPrefix + name;
  for (const std::string& argument : arguments) {
    line += " " + argument;
  }
  return line;
}

}  // namespace

ChildRegistration::ChildRegistration(const char* name, ChildFunction function) {
  Children()[name] = function;
}

std::optional<ChildCall> ChildRequest(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]).rfind(kPrefix, 0) != 0) {
    return std::nullopt;
  }
  return ChildCall{argv[1] + sizeof kPrefix - 1, ChildArguments(argv + 2, argv + argc)};
}

int RunChild(const ChildCall& call) { return Children().at(call.name)(call.arguments); }

ChildProcess::ChildProcess(const std::string& name, const ChildArguments& arguments)
    : ChildProcess(Line{CommandLine(name, arguments)}) {}

ChildProcess::ChildProcess(const Line& line) {
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  std::string text = line.text;
  if (!CreateProcessA(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &information_)) {
    throw std::runtime_error("cannot start " + line.text);
  }
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : information_(std::exchange(other.information_, PROCESS_INFORMATION{})) {}

ChildProcess::~ChildProcess() {
  if (information_.hProcess == nullptr) {
    return;
  }
  if (!Wait(0)) {
    Kill();
  }
  CloseHandle(information_.hThread);
  CloseHandle(information_.hProcess);
}

std::optional<DWORD> ChildProcess::Wait(DWORD milliseconds) const {
  if (WaitForSingleObject(information_.hProcess, milliseconds) != WAIT_OBJECT_0) {
    return std::nullopt;
  }
  DWORD code = 0;
  GetExitCodeProcess(information_.hProcess, &code);
  return code;
}

void ChildProcess::Kill() const {
  TerminateProcess(information_.hProcess, 250);
  WaitForSingleObject(information_.hProcess, 10000);
}

std::string ProgramFolder() {
  const std::string path = ProgramPath();
  return path.substr(0, path.rfind('\\') + 1);
}

}  // namespace zarext::test
