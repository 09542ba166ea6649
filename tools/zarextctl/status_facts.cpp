#include "zarextctl/status_facts.h"

#include <algorithm>

#include "frame/provider_binding.h"
#include "frame/provider_type.h"
#include "store/key_provider.h"
#include "store/log_file.h"
#include "zarextctl/export_list.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr DWORD kPatience = 1000;

// The entry points without which advapi32 does not take a provider.
constexpr const char* kProviderFunctions[] = {
    "CPAcquireContext", "CPCreateHash",  "CPDecrypt",        "CPDeriveKey",    "CPDestroyHash",
    "CPDestroyKey",     "CPEncrypt",     "CPExportKey",      "CPGenKey",       "CPGenRandom",
    "CPGetHashParam",   "CPGetKeyParam", "CPGetProvParam",   "CPGetUserKey",   "CPHashData",
    "CPHashSessionKey", "CPImportKey",   "CPReleaseContext", "CPSetHashParam", "CPSetKeyParam",
    "CPSetProvParam",   "CPSignHash",    "CPVerifySignature"};

// The octets of a path that the module takes, in the ANSI code page and with its end.
constexpr std::size_t kLongestImagePath = 256;

void ReadImagePath(const RegistryKey& key, ProviderFacts* facts) {
  const auto value = key.Value("Image Path");
  if (!value) {
    // The module and the platform fall back to different things; neither should be relied on.
    facts->imagePath = "missing";
    return;
  }
  facts->imagePath = DescribeValue(*value);
  const auto text = TextOf(*value);
  facts->isPathUsable = text && value->type == REG_SZ && Ansi(*text).size() < kLongestImagePath;
  facts->isPathFull = text && text->find_first_of("\\/") != std::string::npos;
}

ProviderFacts ReadProvider(const char* name, std::uint32_t type) {
  ProviderFacts facts;
  facts.name = name;
  facts.expectedType = type;
  const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kProvidersKey) + "\\" + name);
  facts.isRegistered = static_cast<bool>(key);
  if (!facts.isRegistered) {
    return facts;
  }
  facts.type = key.Number("Type");
  ReadImagePath(key, &facts);
  if (!facts.isPathUsable) {
    return facts;
  }
  facts.file = ReadModuleFile(Expanded(facts.imagePath), kProviderFunctions);
  if (facts.isPathFull) {
    facts.writers = BroadGroupsWith(Access::kWrite, facts.file.path);
  }
  return facts;
}

LogFacts ReadLog() {
  LogFacts facts;
  facts.exists = Exists(kLogFile);
  facts.isFile = IsRegularFile(kLogFile);
  if (!facts.isFile) {
    return facts;
  }
  facts.isReadOnly = (GetFileAttributesA(kLogFile) & FILE_ATTRIBUTE_READONLY) != 0;
  HANDLE file = CreateFileA(kLogFile, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  facts.writeCode = file == INVALID_HANDLE_VALUE ? GetLastError() : 0;
  if (file != INVALID_HANDLE_VALUE) {
    CloseHandle(file);
  }
  facts.replacers = BroadGroupsWith(Access::kReplace, kLogFile);
  return facts;
}

std::string DefaultOfType() {
  // "Type 025": three digits.
  const std::string number = std::to_string(kProviderType);
  const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kProviderTypesKey) + "\\Type " +
                                                std::string(3 - number.size(), '0') + number);
  return key.Text("Name").value_or("");
}

}  // namespace

StatusFacts GatherStatus(const std::string& dll) {
  StatusFacts facts;
  const std::string registered = RegisteredDll();
  facts.isAnyRegistered = !registered.empty();
  const std::string beside = Folder(ModulePath()) + "\\ZAREXT.dll";
  const std::string path = !dll.empty() ? dll : registered.empty() ? beside : registered;
  facts.registration = ReadRegistration(path);
  // Before any module is loaded: loading ours makes the section.
  facts.listing = ReadListing(kPatience);
  facts.mutex = ReadMutex(kPatience);
  facts.processes = ProcessesWithModule();
  facts.module = ReadModuleFile(path, kExports);
  facts.providers = {ReadProvider(kProviderName, kProviderType),
                     ReadProvider(kRsaProviderName, PROV_RSA_FULL)};
  facts.defaultOfType = DefaultOfType();
  facts.log = ReadLog();
  return facts;
}

}  // namespace zarext::ctl
