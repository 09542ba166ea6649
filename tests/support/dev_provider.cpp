#include "support/dev_provider.h"

#include <atomic>
#include <filesystem>

#include "support/child_process.h"
#include "support/scripted_provider.h"

namespace zarext::test {
namespace {

constexpr char kHomeVariable[] = "ZARVEL_DEV_HOME";

std::string Variable(const char* name) {
  char value[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableA(name, value, sizeof(value));
  return {value, length < sizeof(value) ? length : 0};
}

}  // namespace

std::string DevProviderPath() { return ProgramFolder() + "cpzarvel.dll"; }

HMODULE UseDevProvider() {
  static const HMODULE module = [] {
    RegisterProvider("Zarvel CSP", 25, DevProviderPath());
    RegisterProvider("Zarvel CSP RSA", 1, DevProviderPath());
    const HMODULE loaded = LoadLibraryA(DevProviderPath().c_str());
    if (loaded == nullptr) throw std::runtime_error("cpzarvel.dll cannot be loaded");
    return loaded;
  }();
  return module;
}

DevHome::DevHome() : old_(Variable(kHomeVariable)) {
  static std::atomic<unsigned> counter{0};
  char folder[MAX_PATH] = {};
  GetTempPathA(sizeof(folder), folder);
  path_ = std::string(folder) + "devhome" + std::to_string(GetCurrentProcessId()) + "-" +
          std::to_string(++counter);
  std::filesystem::create_directories(path_);
  SetEnvironmentVariableA(kHomeVariable, path_.c_str());
}

DevHome::~DevHome() {
  SetEnvironmentVariableA(kHomeVariable, old_.empty() ? nullptr : old_.c_str());
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace zarext::test
