// zarextctl as its users run it: a process, its output in pipes, compared with files of
// zarextctl/NAME.txt. With ZAREXT_UPDATE_GOLDEN set these are written instead.
#ifndef ZAREXT_TESTS_E2E_CTL_FIXTURE_H_
#define ZAREXT_TESTS_E2E_CTL_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "contract/provider_fixture.h"
#include "frame/handles.h"
#include "support/child_process.h"
#include "support/module_under_test.h"

namespace zarext::test {

struct ToolResult {
  DWORD exitCode = STILL_ACTIVE;
  std::string out;  // with line feeds alone
  std::string err;
};

enum class ToolBuild {
  kShipped,  // zarextctl.exe
  kPatched,  // the same objects with the platform's gaps filled, see ctl_patched_main.cpp
};

// Runs the tool to its end; arguments are UTF-8.
ToolResult RunTool(const std::vector<std::string>& arguments,
                   ToolBuild build = ToolBuild::kShipped);

// A run that goes on beside the test.
class RunningTool {
 public:
  explicit RunningTool(const std::vector<std::string>& arguments,
                       ToolBuild build = ToolBuild::kShipped, DWORD creationFlags = 0);
  // Ends the process if it still runs.
  ~RunningTool();
  RunningTool(const RunningTool&) = delete;
  RunningTool& operator=(const RunningTool&) = delete;

  [[nodiscard]] DWORD Id() const { return id_; }
  // Reads standard output and error from here on; without it, both pipes fill up.
  void Read();
  void Kill();
  // What it wrote, after its end.
  ToolResult Finish();

 private:
  UniqueKernelObject out_;
  UniqueKernelObject err_;
  UniqueKernelObject process_;
  DWORD id_ = 0;
  ToolResult result_;
  std::vector<std::thread> readers_;
};

// A command line for CreateProcessW, every argument in quotes.
std::wstring ToolCommandLine(const std::vector<std::string>& arguments, ToolBuild build);

// What differs between runs of the tests: regular expressions and what stands in their place.
using Replacements = std::vector<std::pair<std::string, std::string>>;

// The test's home.
inline const Replacements kHome = {{"devhome[0-9]+-[0-9]+", "<home>"},
                                   {"C:\\\\[^\"\n]*\\\\(<home>)", "<temp>\\$1"}};

// Compares with the golden file, after the replacements and with the program's folder as
// "<folder>\".
void ExpectGolden(const std::string& name, const ToolResult& result,
                  const Replacements& replacements = {});

// The module registered as its users do, and the development provider with a home of its own.
class CtlTest : public testing::Test {
 protected:
  CtlTest();

  DevHome home_;
};

// A value or a key below HKEY_LOCAL_MACHINE (or the user's) that a test damages: as it was when the
// object goes. Paths and names are UTF-8.
class RegistryDamage {
 public:
  // Renames the key away, with everything below it.
  static RegistryDamage RemoveKey(HKEY root, const std::string& path);
  static RegistryDamage SetValue(HKEY root, const std::string& path, const std::string& name,
                                 DWORD type, const Octets& octets);
  ~RegistryDamage();
  RegistryDamage(RegistryDamage&& other) noexcept;
  RegistryDamage& operator=(RegistryDamage&&) = delete;
  RegistryDamage(const RegistryDamage&) = delete;
  RegistryDamage& operator=(const RegistryDamage&) = delete;

 private:
  struct Value {
    std::wstring name;
    DWORD type;
    Octets octets;
  };
  RegistryDamage(HKEY root, const std::string& path);

  HKEY root_;
  std::wstring path_;
  bool hadKey_ = false;
  std::vector<Value> values_;
};

// REG_SZ octets of a text.
Octets TextOctets(const std::string& utf8);

// A damage of the registration, and the golden file of what the tool says of it.
struct Damaged {
  const char* golden;
  std::function<RegistryDamage()> damage;
};
std::function<RegistryDamage()> Removed(HKEY root, const std::string& path);
std::function<RegistryDamage()> Changed(HKEY root, const std::string& path, const char* name,
                                        DWORD type, const Octets& octets);

// A process that has taken the mutex of the shared listing and keeps it until it is killed.
ChildProcess HoldMutex();

inline constexpr char kOidRoot[] = "SOFTWARE\\Microsoft\\Cryptography\\OID\\";
inline constexpr char kProviderRoot[] = "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\";

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_CTL_FIXTURE_H_
