#include "zarextctl/installation.h"

#include <set>

#include "frame/handles.h"
#include "registration/oid_info.h"
#include "registration/physical_store.h"
#include "registration/removals.h"
#include "zarextctl/failure.h"
#include "zarextctl/findings.h"
#include "zarextctl/names.h"
#include "zarextctl/registration_state.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

// The code of a step that failed, with what helps most often.
[[noreturn]] void FailStep(const std::string& step) {
  const DWORD code = GetLastError();
  const bool isDenied = code == ERROR_ACCESS_DENIED || code == static_cast<DWORD>(E_ACCESSDENIED);
  throw Failure(step, code,
                isDenied ? "open a command prompt as administrator and run the same command there"
                         : "run the same command again; what was written before this step stays");
}

std::string Describe(const OidRecord& record) {
  return std::string(record.oid) + " (" + GroupName(record.group) + ")";
}

std::string Describe(const Binding& binding) {
  return std::string(binding.function) + " for " + binding.oid;
}

void RegisterRecords(const Progress& progress) {
  OidInfo info;
  for (const OidRecord& record : records::kTable) {
    info.SetExtra(record.extra);
    if (!CryptRegisterOIDInfo(info.Fill(record), CRYPT_INSTALL_OID_INFO_BEFORE_FLAG)) {
      FailStep("register record " + std::to_string(record.number) + ", " + Describe(record) +
               ", with CryptRegisterOIDInfo");
    }
  }
  progress("records", std::size(records::kTable));
}

void RegisterBinding(const Binding& binding, const std::wstring& path) {
  if (!CryptRegisterOIDFunction(binding.encodingType, binding.function, binding.oid, path.c_str(),
                                binding.exportName)) {
    FailStep("bind " + Describe(binding) + " with CryptRegisterOIDFunction");
  }
}

std::string KeyOf(const Binding& binding) {
  return std::string(kOidKey) + "\\" + BindingKey(binding);
}

bool NamesOurDll(const Binding& binding) {
  const RegistryKey key(HKEY_LOCAL_MACHINE, KeyOf(binding));
  return key && SameIgnoringCase(FileName(key.Text("Dll").value_or("")), "ZAREXT.dll");
}

// The keys of the framework's functions that the module is bound to, without the OID.
std::set<std::string> FunctionKeys() {
  std::set<std::string> keys;
  for (const Binding& binding : AllBindings()) {
    keys.insert(Folder(BindingKey(binding)));
  }
  return keys;
}

// Nothing below it but what is in `going`.
bool IsEmptyWithout(const std::string& functionKey, const std::set<std::string>& going) {
  const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kOidKey) + "\\" + functionKey);
  if (!key) {
    return false;
  }
  const std::string folder = functionKey + "\\";
  for (const std::string& oid : key.Keys()) {
    if (!going.contains(folder + oid)) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::string PathToRegister(const std::string& dll) {
  const UniqueModule module(LoadLibraryW(Wide(dll).c_str()));
  if (!module) {
    throw Failure("load \"" + dll + "\"", GetLastError(),
                  "name the module with --dll \"PATH OF ZAREXT.dll\"");
  }
  if (GetProcAddress(module.Get(), "ZarOpenStoreProv") == nullptr) {
    throw Failure("find ZarOpenStoreProv in \"" + dll + "\"", ERROR_PROC_NOT_FOUND,
                  "name the module with --dll \"PATH OF ZAREXT.dll\"");
  }
  std::string path = ModulePath(module.Get());
  // The module registers its path by way of the ANSI code page, and 260 octets of it.
  if (Utf8FromAnsi(Ansi(path)) != path || Ansi(path).size() >= MAX_PATH) {
    throw Failure("spell the path \"" + path + "\" in the ANSI code page", 0,
                  "move the DLL into a folder with a short name in plain letters, such as "
                  "C:\\Program Files\\Zarvel");
  }
  return path;
}

void RegisterUserStore() {
  if (!physical_store::Register(&CertRegisterPhysicalStore)) {
    FailStep("register this user's physical store with CertRegisterPhysicalStore");
  }
}

void RegisterModule(const std::string& path, bool withoutAes256, const Progress& progress) {
  const std::wstring wide = Wide(path);
  RegisterRecords(progress);
  RegisterBinding(bindings::kStore.At(0), wide);
  progress("store provider", 1);
  RegisterUserStore();
  progress("physical store", 1);
  std::size_t count = 0;
  ForEachKeyBinding([&](const Binding& binding) {
    if (withoutAes256 && IsAes256Content(binding)) {
      CryptUnregisterOIDFunction(binding.encodingType, binding.function, binding.oid);
      return;
    }
    RegisterBinding(binding, wide);
    ++count;
  });
  progress("bindings", count);
}

std::size_t UnregisterModule(const Progress& progress) {
  std::size_t total = 0;
  const auto count = [&](const char* what, std::size_t removed) {
    progress(what, removed);
    total += removed;
  };
  // The platform's answer for a store that is not there differs between systems.
  const bool hadStore = ReadPhysicalStore().state != ItemState::kMissing;
  CertUnregisterPhysicalStore(physical_store::kSystemStore,
                              physical_store::kLocation | CERT_STORE_DELETE_FLAG,
                              kStoreProviderWide);
  const bool hasStore = ReadPhysicalStore().state != ItemState::kMissing;
  count("physical store", hadStore && !hasStore ? 1 : 0);
  std::size_t removed = 0;
  OidInfo info;
  const auto checkAccess = [](const std::string& what) {
    if (GetLastError() == ERROR_ACCESS_DENIED) {
      FailStep(what);
    }
  };
  ForEachRemovedRecord([&](const OidRecord& record) {
    if (CryptUnregisterOIDInfo(info.Fill(record))) {
      ++removed;
    } else {
      checkAccess("remove record " + Describe(record) + " with CryptUnregisterOIDInfo");
    }
  });
  count("records", removed);
  removed = 0;
  ForEachRemovedBinding([&](const Binding& binding) {
    if (CryptUnregisterOIDFunction(binding.encodingType, binding.function, binding.oid)) {
      ++removed;
    } else {
      checkAccess("remove " + Describe(binding) + " with CryptUnregisterOIDFunction");
    }
  });
  count("bindings", removed);
  return total;
}

LeftOvers FindLeftOvers() {
  LeftOvers found;
  std::set<std::string> going;
  for (const OidRecord& record : records::kTable) {
    if (StaysBehind(record) && ReadRecord(record).state != ItemState::kMissing) {
      found.records.push_back(record);
    }
  }
  for (const Binding& binding : AllBindings()) {
    if (StaysBehind(binding) && NamesOurDll(binding)) {
      found.bindings.push_back(binding);
      going.insert(BindingKey(binding));
    }
  }
  for (const std::string& key : FunctionKeys()) {
    if (IsEmptyWithout(key, going)) {
      found.emptyKeys.push_back(key);
    }
  }
  return found;
}

void RemoveLeftOvers(const LeftOvers& leftOvers) {
  OidInfo info;
  for (const OidRecord& record : leftOvers.records) {
    if (!CryptUnregisterOIDInfo(info.Fill(record))) {
      FailStep("remove record " + Describe(record) + " with CryptUnregisterOIDInfo");
    }
  }
  for (const Binding& binding : leftOvers.bindings) {
    if (!CryptUnregisterOIDFunction(binding.encodingType, binding.function, binding.oid)) {
      FailStep("remove " + Describe(binding) + " with CryptUnregisterOIDFunction");
    }
  }
  for (const std::string& key : leftOvers.emptyKeys) {
    // One that got an entry meanwhile is refused, and stays.
    DeleteRegistryKey(HKEY_LOCAL_MACHINE, std::string(kOidKey) + "\\" + key);
  }
}

}  // namespace zarext::ctl
