#include "e2e/ctl_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <thread>

#include "frame/handles.h"
#include "support/prepared_process.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

std::wstring Wide(const std::string& utf8) {
  const int size = static_cast<int>(utf8.size());
  std::wstring wide(utf8.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size)));
  return wide;
}

struct Pipe {
  Pipe() {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    Must(CreatePipe(read.Put(), write.Put(), &inherited, 0), "CreatePipe");
    SetHandleInformation(read.Get(), HANDLE_FLAG_INHERIT, 0);
  }
  UniqueKernelObject read;
  UniqueKernelObject write;
};

// Everything until the other end is closed.
std::string ReadAll(HANDLE pipe) {
  std::string all;
  char buffer[4096];
  DWORD size = 0;
  while (ReadFile(pipe, buffer, sizeof buffer, &size, nullptr) && size != 0) {
    all.append(buffer, size);
  }
  return all;
}

std::string WithLineFeeds(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
  return text;
}

std::string Doubled(const std::string& path) { return Replaced(path, "\\", "\\\\"); }

std::string Normalised(std::string text, const Replacements& replacements) {
  text = Replaced(text, Doubled(ProgramFolder()), "<folder>\\\\");
  text = Replaced(text, ProgramFolder(), "<folder>\\");
  const std::string folder = ProgramFolder();
  text = Replaced(text, folder.substr(0, folder.size() - 1), "<folder>");
  for (const auto& [pattern, with] : replacements) {
    text = std::regex_replace(text, std::regex(pattern), with);
  }
  return text;
}

void RegisterModule() {
  if (Regsvr32(PatchedModule()) != 0) {
    throw std::runtime_error("regsvr32 failed");
  }
}
const PreparedProcess prepared(&RegisterModule);

constexpr char kMutexIsHeld[] = "ctl_test_mutex_held";

ZAREXT_CHILD(KeepMutex) {
  const HANDLE mutex = CreateMutexA(nullptr, TRUE, "$zarvel_csp_store_mutex_name");
  const HANDLE held = OpenEventA(EVENT_MODIFY_STATE, FALSE, kMutexIsHeld);
  WaitForSingleObject(mutex, INFINITE);
  SetEvent(held);
  Sleep(60000);
  return 0;
}

}  // namespace

std::wstring ToolCommandLine(const std::vector<std::string>& arguments, ToolBuild build) {
  std::wstring line = Wide(QuotedInProgramFolder(
      build == ToolBuild::kShipped ? "zarextctl.exe" : "zarextctl_patched.exe"));
  for (const std::string& argument : arguments) {
    line += L" \"" + Wide(argument) + L"\"";
  }
  return line;
}

RunningTool::RunningTool(const std::vector<std::string>& arguments, ToolBuild build,
                         DWORD creationFlags) {
  Pipe out;
  Pipe err;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = out.write.Get();
  startup.hStdError = err.write.Get();
  std::wstring line = ToolCommandLine(arguments, build);
  PROCESS_INFORMATION information = {};
  const auto start = [&] {
    return CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, creationFlags, nullptr,
                          nullptr, &startup, &information) != FALSE;
  };
  // Seen once of Wine on a busy machine: the first process of a prefix ended before it began.
  Must(start() || (GetLastError() == ERROR_INTERNAL_ERROR && start()), "CreateProcess");
  process_.Reset(information.hProcess);
  CloseHandle(information.hThread);
  id_ = information.dwProcessId;
  out_ = std::move(out.read);
  err_ = std::move(err.read);
}

RunningTool::~RunningTool() {
  Kill();
  for (std::thread& reader : readers_) {
    reader.join();
  }
}

void RunningTool::Read() {
  if (readers_.empty()) {
    readers_.emplace_back([this] { result_.out = WithLineFeeds(ReadAll(out_.Get())); });
    readers_.emplace_back([this] { result_.err = WithLineFeeds(ReadAll(err_.Get())); });
  }
}

void RunningTool::Kill() {
  if (WaitForSingleObject(process_.Get(), 0) != WAIT_OBJECT_0) {
    TerminateProcess(process_.Get(), 99);
    WaitForSingleObject(process_.Get(), 10000);
  }
}

ToolResult RunningTool::Finish() {
  Read();
  for (std::thread& reader : readers_) {
    reader.join();
  }
  readers_.clear();
  WaitForSingleObject(process_.Get(), 60000);
  GetExitCodeProcess(process_.Get(), &result_.exitCode);
  return result_;
}

ToolResult RunTool(const std::vector<std::string>& arguments, ToolBuild build) {
  return RunningTool(arguments, build).Finish();
}

void ExpectGolden(const std::string& name, const ToolResult& result,
                  const Replacements& replacements) {
  const std::string text =
      Normalised(result.out + (result.err.empty() ? "" : "--- errors\n" + result.err) +
                     "--- exit code " + std::to_string(result.exitCode) + "\n",
                 replacements);
  const std::string path = ZAREXT_GOLDEN "/" + name + ".txt";
  if (GetEnvironmentVariableA("ZAREXT_UPDATE_GOLDEN", nullptr, 0) != 0) {
    std::ofstream(path, std::ios::binary) << text;
  }
  std::ifstream file(path, std::ios::binary);
  const std::string expected{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(expected, text) << path;
}

CtlTest::CtlTest() { UseDevProvider(); }

RegistryDamage::RegistryDamage(HKEY root, const std::string& path)
    : root_(root), path_(Wide(path)) {
  UniqueRegistryKey key;
  hadKey_ = RegOpenKeyExW(root_, path_.c_str(), 0, KEY_READ, key.Put()) == ERROR_SUCCESS;
  for (DWORD i = 0; hadKey_; ++i) {
    wchar_t name[256] = {};
    DWORD nameSize = 256;
    Octets octets(4096);
    auto size = static_cast<DWORD>(octets.size());
    DWORD type = 0;
    if (RegEnumValueW(key.Get(), i, name, &nameSize, nullptr, &type, octets.data(), &size) !=
        ERROR_SUCCESS) {
      break;
    }
    octets.resize(size);
    values_.push_back({name, type, octets});
  }
}

RegistryDamage::RegistryDamage(RegistryDamage&& other) noexcept
    : root_(std::exchange(other.root_, nullptr)),
      path_(std::move(other.path_)),
      hadKey_(other.hadKey_),
      values_(std::move(other.values_)) {}

RegistryDamage RegistryDamage::RemoveKey(HKEY root, const std::string& path) {
  RegistryDamage damage(root, path);
  Must(RegDeleteTreeW(root, Wide(path).c_str()) == ERROR_SUCCESS, "RegDeleteTree");
  return damage;
}

RegistryDamage RegistryDamage::SetValue(HKEY root, const std::string& path, const std::string& name,
                                        DWORD type, const Octets& octets) {
  RegistryDamage damage(root, path);
  UniqueRegistryKey key;
  RegCreateKeyExW(root, Wide(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(),
                  nullptr);
  // The platform ends a text with the zero that it finds behind it, if there is one.
  Octets followed = octets;
  followed.insert(followed.end(), {0xFF, 0xFF});
  RegSetValueExW(key.Get(), Wide(name).c_str(), 0, type, followed.data(),
                 static_cast<DWORD>(octets.size()));
  return damage;
}

RegistryDamage::~RegistryDamage() {
  if (root_ == nullptr) {
    return;
  }
  RegDeleteTreeW(root_, path_.c_str());
  if (!hadKey_) {
    return;
  }
  UniqueRegistryKey key;
  RegCreateKeyExW(root_, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(), nullptr);
  for (const Value& value : values_) {
    RegSetValueExW(key.Get(), value.name.c_str(), 0, value.type, value.octets.data(),
                   static_cast<DWORD>(value.octets.size()));
  }
}

Octets TextOctets(const std::string& utf8) {
  const std::wstring wide = Wide(utf8);
  const auto* start = reinterpret_cast<const BYTE*>(wide.c_str());
  return {start, start + (wide.size() + 1) * sizeof(wchar_t)};
}

std::function<RegistryDamage()> Removed(HKEY root, const std::string& path) {
  return [=] { return RegistryDamage::RemoveKey(root, path); };
}

std::function<RegistryDamage()> Changed(HKEY root, const std::string& path, const char* name,
                                        DWORD type, const Octets& octets) {
  return [=] { return RegistryDamage::SetValue(root, path, name, type, octets); };
}

ChildProcess HoldMutex() {
  const UniqueKernelObject held(CreateEventA(nullptr, TRUE, FALSE, kMutexIsHeld));
  ChildProcess holder("KeepMutex");
  Must(WaitForSingleObject(held.Get(), 20000) == WAIT_OBJECT_0, "WaitForSingleObject");
  return holder;
}

}  // namespace zarext::test
