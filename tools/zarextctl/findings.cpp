#include "zarextctl/findings.h"

#include <algorithm>
#include <cstring>

#include "store/log_file.h"
#include "version.h"
#include "zarextctl/names.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using Findings = std::vector<Finding>;

constexpr char kRegister[] = "zarextctl register";
constexpr char kAes256[] = "2.16.840.1.101.3.4.1.42";
constexpr char kAes256Function[] = "CryptMsgDllGenContentEncryptKey";

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string RegisterFrom(const StatusFacts& facts) {
  return std::string(kRegister) + " --dll " + Quoted(facts.module.path);
}

// Present items outside of what unregistering leaves make it more than left-overs.
bool IsOnlyLeftOver(const StatusFacts& facts) {
  const RegistrationState& state = facts.registration;
  return std::ranges::all_of(state.records,
                             [](const RecordState& record) {
                               return record.state == ItemState::kMissing ||
                                      StaysBehind(record.record);
                             }) &&
         std::ranges::all_of(state.bindings, [](const BindingState& binding) {
           return binding.state == ItemState::kMissing || StaysBehind(binding.binding);
         });
}

bool IsAnythingThere(const StatusFacts& facts) {
  const auto isThere = [](const auto& item) { return item.state != ItemState::kMissing; };
  return std::ranges::any_of(facts.registration.records, isThere) ||
         std::ranges::any_of(facts.registration.bindings, isThere);
}

bool IsRegistered(const StatusFacts& facts) {
  return IsAnythingThere(facts) && !IsOnlyLeftOver(facts);
}

void CheckRegistered(const StatusFacts& facts, Findings& findings) {
  if (IsRegistered(facts)) {
    return;
  }
  findings.push_back({Severity::kError, "not-registered", "ZAREXT.dll is not registered",
                      "it was never registered, or it was unregistered", kRegister});
  if (IsAnythingThere(facts)) {
    std::size_t records = 0;
    std::size_t bindings = 0;
    for (const RecordState& state : facts.registration.records) {
      records += state.state == ItemState::kMissing ? 0 : 1;
    }
    for (const BindingState& state : facts.registration.bindings) {
      bindings += state.state == ItemState::kMissing ? 0 : 1;
    }
    findings.push_back(
        {Severity::kWarning, "left-over",
         Count(records, "record") + " and " + Count(bindings, "binding") + " are left over",
         "regsvr32 /u does not remove them", "zarextctl unregister --leftovers"});
  }
}

// One finding for all items in one state, which names the first.
template <typename Items, typename Describe>
void Group(const Items& items, ItemState state, const char* noun, const char* verb, Finding finding,
           Findings& findings, Describe describe) {
  std::size_t count = 0;
  std::string first;
  for (const auto& item : items) {
    if (item.state == state) {
      first = count++ == 0 ? describe(item) : first;
    }
  }
  if (count != 0) {
    finding.what = Count(count, noun) + " " + verb + ", first " + first;
    findings.push_back(std::move(finding));
  }
}

void CheckRecords(const StatusFacts& facts, Findings& findings) {
  if (!IsRegistered(facts)) {
    return;
  }
  const auto describe = [](const RecordState& item) {
    return std::string(item.record.oid) + " (" + GroupName(item.record.group) + ")" +
           (item.detail.empty() ? "" : ": " + item.detail);
  };
  const auto& records = facts.registration.records;
  Group(records, ItemState::kMissing, "record", "missing",
        {Severity::kError, "record-missing", "",
         "registering was not finished, or they were deleted", RegisterFrom(facts)},
        findings, describe);
  Group(records, ItemState::kDiffers, "record", "changed",
        {Severity::kError, "record-differs", "", "another version or another program wrote them",
         RegisterFrom(facts)},
        findings, describe);
}

void CheckBindings(const StatusFacts& facts, Findings& findings) {
  if (!IsRegistered(facts)) {
    return;
  }
  const auto describe = [](const BindingState& item) {
    return std::string(item.binding.function) + " for " + item.binding.oid +
           (item.dll.empty() ? "" : " -> " + item.dll + " " + item.function);
  };
  auto bindings = facts.registration.bindings;
  std::erase_if(bindings, [](const BindingState& item) {
    return IsAes256Content(item.binding) && item.state == ItemState::kMissing;
  });
  const auto group = [&](ItemState state, const char* verb, const char* id, const char* cause) {
    Group(bindings, state, "binding", verb, {Severity::kError, id, "", cause, RegisterFrom(facts)},
          findings, describe);
  };
  group(ItemState::kMissing, "missing", "binding-missing",
        "registering was not finished, or they were deleted");
  group(ItemState::kOtherDll, "to another DLL", "binding-other-dll",
        "another copy of the module or another product was registered later");
  group(ItemState::kOtherFunction, "to another function", "binding-other-function",
        "another version registered them");
  group(ItemState::kDiffers, "damaged", "binding-damaged", "their values have a wrong type");
}

void CheckForeign(const StatusFacts& facts, Findings& findings) {
  const auto& foreign = facts.registration.foreign;
  if (!foreign.empty()) {
    findings.push_back(
        {Severity::kWarning, "foreign-binding",
         Count(foreign.size(), "binding") +
             " to a ZAREXT.dll that this version does not make, first " + foreign.front().key,
         "another version made them",
         "reg delete " + Quoted(std::string("HKLM\\") + kOidKey + "\\" + foreign.front().key)});
  }
}

void CheckPhysicalStore(const StatusFacts& facts, Findings& findings) {
  const PhysicalStoreState& store = facts.registration.physicalStore;
  if (!IsRegistered(facts) || store.state == ItemState::kPresent) {
    return;
  }
  const bool isMissing = store.state == ItemState::kMissing;
  findings.push_back({Severity::kError, isMissing ? "store-missing" : "store-differs",
                      isMissing ? "this user's \"MY\" does not show the provider's certificates"
                                : "this user's physical store is damaged: " + store.detail,
                      isMissing ? "another user registered; each user has an own physical store"
                                : "another version or another program wrote it",
                      "zarextctl register --user-store"});
}

void CheckModule(const StatusFacts& facts, Findings& findings) {
  const ModuleFile& module = facts.module;
  if (!module.exists) {
    findings.push_back({Severity::kError, "module-missing", module.path + " is not there",
                        "the file was moved or deleted after it was registered",
                        "zarextctl register --dll \"PATH OF ZAREXT.dll\""});
    return;
  }
  if (module.loadCode != 0) {
    findings.push_back({Severity::kError, "module-does-not-load",
                        module.path + " does not load: " + ErrorLabel(module.loadCode),
                        "the file is damaged or of another kind",
                        "zarextctl register --dll \"PATH OF ZAREXT.dll\""});
    return;
  }
  if (!module.missing.empty()) {
    findings.push_back({Severity::kError, "module-lacks-function",
                        module.path + " lacks " + module.missing.front(),
                        "the file is of another version or of another product",
                        "zarextctl register --dll \"PATH OF ZAREXT.dll\""});
  }
  if (!module.version.starts_with(ZAREXT_VERSION_TEXT)) {
    findings.push_back(
        {Severity::kWarning, "module-version",
         "the DLL is of version " + module.version + ", zarextctl of " + ZAREXT_VERSION_TEXT,
         "the tool and the DLL come from different packages",
         Quoted(Folder(module.path) + "\\zarextctl.exe") + " status"});
  }
}

std::string ProviderMend(const ProviderFacts& provider, const char* value,
                         const std::string& content) {
  return "reg add " + Quoted(std::string("HKLM\\") + kProvidersKey + "\\" + provider.name) +
         " /v " + value + " /f " + content;
}

void CheckProviderPath(const ProviderFacts& provider, Findings& findings) {
  const std::string pathMend =
      ProviderMend(provider, "\"Image Path\"", "/t REG_SZ /d \"PATH OF cpzarvel.dll\"");
  const std::string label = "provider " + Quoted(provider.name) + ": ";
  const auto add = [&](const char* id, const std::string& what, const char* cause) {
    findings.push_back({Severity::kError, id, label + what, cause, pathMend});
  };
  if (!provider.isPathUsable) {
    add("provider-path", "its Image Path is " + provider.imagePath,
        "the value has to be a REG_SZ of at most 255 octets");
  } else if (!provider.file.exists && provider.isPathFull) {
    add("provider-module-missing", provider.file.path + " is not there",
        "the provider was moved or removed");
  } else if (provider.file.loadCode != 0) {
    add("provider-does-not-load",
        provider.file.path + " does not load: " + ErrorLabel(provider.file.loadCode),
        "the file or a module that it needs is missing or damaged");
  } else if (!provider.file.missing.empty()) {
    add("provider-entry-point",
        provider.file.path + " lacks " + provider.file.missing.front() +
            (provider.file.missing.size() == 1
                 ? ""
                 : " and " + std::to_string(provider.file.missing.size() - 1) + " more"),
        "the file is no provider, or an old one");
  }
}

void CheckProviders(const StatusFacts& facts, Findings& findings) {
  for (const ProviderFacts& provider : facts.providers) {
    const std::string label = "provider " + Quoted(provider.name) + ": ";
    const std::string type = std::to_string(provider.expectedType);
    if (!provider.isRegistered) {
      findings.push_back(
          {Severity::kError, "provider-not-registered", label + "not registered",
           "the provider is not installed",
           ProviderMend(provider, "\"Image Path\"", "/t REG_SZ /d \"PATH OF cpzarvel.dll\"")});
      continue;
    }
    CheckProviderPath(provider, findings);
    if (provider.type != provider.expectedType) {
      findings.push_back(
          {Severity::kError, "provider-type",
           label + "its Type is " +
               (provider.type ? std::to_string(*provider.type) : "missing or damaged"),
           "another program changed the registration",
           ProviderMend(provider, "Type", "/t REG_DWORD /d " + type)});
    }
  }
}

void CheckDefaultProvider(const StatusFacts& facts, Findings& findings) {
  const std::string& expected = facts.providers.front().name;
  if (facts.defaultOfType == expected) {
    return;
  }
  findings.push_back({Severity::kWarning, "provider-default",
                      facts.defaultOfType.empty()
                          ? "no provider is set for type 25"
                          : "the provider of type 25 is " + Quoted(facts.defaultOfType),
                      "the provider's installation did not set it, or another one did",
                      std::string("reg add \"HKLM\\") + kProviderTypesKey +
                          "\\Type 025\" /v Name /f /t REG_SZ /d " + Quoted(expected)});
}

void CheckAbuse(const StatusFacts& facts, Findings& findings) {
  for (const ProviderFacts& provider : facts.providers) {
    if (provider.isRegistered && provider.isPathUsable && !provider.isPathFull) {
      findings.push_back(
          {Severity::kWarning, "provider-without-path",
           "provider " + Quoted(provider.name) + ": " + provider.imagePath + " names no folder",
           "whoever can write into a folder of the search order can put another module there",
           ProviderMend(provider, "\"Image Path\"", "/t REG_SZ /d \"PATH OF cpzarvel.dll\"")});
    }
    if (!provider.writers.empty()) {
      findings.push_back({Severity::kWarning, "provider-writable",
                          provider.file.path + " may be replaced by " + provider.writers.front(),
                          "the file or its folder is open to users who are no administrators",
                          "icacls " + Quoted(Folder(provider.file.path)) +
                              " /inheritance:r /grant Administrators:F SYSTEM:F Users:RX /T"});
    }
  }
  if (!facts.log.replacers.empty()) {
    findings.push_back(
        {Severity::kWarning, "log-replaceable",
         std::string(kLogFile) + " may be replaced by " + facts.log.replacers.front(),
         "with a link in its place the module writes into a file of others",
         std::string("icacls ") + kLogFile +
             " /inheritance:r /grant Administrators:F SYSTEM:F Users:(RD,AD)"});
  }
}

void CheckLog(const StatusFacts& facts, Findings& findings) {
  if (facts.log.exists && !facts.log.isFile) {
    findings.push_back({Severity::kWarning, "log-no-file",
                        std::string(kLogFile) + " is no file: nothing is logged",
                        "a folder has the log's name", std::string("rmdir ") + kLogFile});
  } else if (facts.log.writeCode != 0) {
    const bool isShared = facts.log.writeCode == ERROR_SHARING_VIOLATION;
    const std::string path = kLogFile;
    findings.push_back({Severity::kWarning, "log-not-writable",
                        path + " cannot be written: " + ErrorLabel(facts.log.writeCode),
                        isShared               ? "another program keeps it open"
                        : facts.log.isReadOnly ? "it is marked as read-only"
                                               : "this user has no right to",
                        isShared               ? "openfiles /query"
                        : facts.log.isReadOnly ? "attrib -R " + path
                                               : "icacls " + path + " /grant Users:(RD,AD)"});
  }
}

void CheckListing(const StatusFacts& facts, Findings& findings) {
  if (facts.listing.listing.state == SharedListing::State::kDamaged) {
    findings.push_back({Severity::kWarning, "listing-damaged",
                        "the shared listing is damaged: " + facts.listing.listing.damage,
                        "another program writes into the section", "zarextctl cache"});
  }
  if (facts.mutex.isHeld) {
    const std::string owner = facts.mutex.owner == 0 ? "a process that the system does not name"
                                                     : facts.mutex.ownerName + " (" +
                                                           std::to_string(facts.mutex.owner) + ")";
    std::string candidates;
    for (const ProcessName& process : facts.processes) {
      candidates +=
          (candidates.empty() ? "" : ", ") + process.name + " (" + std::to_string(process.id) + ")";
    }
    findings.push_back(
        {Severity::kError, "mutex-held",
         "the listing's mutex was held for all of " + std::to_string(facts.mutex.watched) +
             " ms by " + owner,
         "a process hangs in it; every program that opens \"MY\" waits. The module is loaded in: " +
             (candidates.empty() ? "no process that may be looked into" : candidates),
         facts.mutex.owner == 0 ? "taskkill /F /PID (one of those)"
                                : "taskkill /F /PID " + std::to_string(facts.mutex.owner)});
  }
}

void CheckEffects(const StatusFacts& facts, Findings& findings) {
  const bool isBound =
      std::ranges::any_of(facts.registration.bindings, [](const BindingState& item) {
        return IsAes256Content(item.binding) && item.state != ItemState::kMissing;
      });
  if (isBound) {
    findings.push_back(
        {Severity::kNote, "aes256-bound",
         std::string("AES-256 messages of other programs may fail: ") + kAes256 + " is bound",
         "the framework asks the module for their content keys, and it refuses",
         RegisterFrom(facts) + " --without-aes256"});
  }
}

void CheckSignature(const StatusFacts& facts, Findings& findings) {
  const DWORD signature = facts.module.signature;
  if (!facts.module.exists || signature == 0) {
    return;
  }
  const bool isUnsigned = signature == static_cast<DWORD>(TRUST_E_NOSIGNATURE);
  findings.push_back({isUnsigned ? Severity::kNote : Severity::kWarning, "module-signature",
                      facts.module.path + ": " + SignatureText(signature),
                      isUnsigned ? "it was built without a certificate for signing"
                                 : "the file was changed, or its signer is not trusted here",
                      "certutil -hashfile " + Quoted(facts.module.path) + " SHA256"});
}

constexpr Check kChecks[] = {
    {"registered", "whether anything but left-overs is registered", &CheckRegistered},
    {"records", "the 68 records", &CheckRecords},
    {"bindings", "the 475 bindings", &CheckBindings},
    {"foreign", "bindings that this version does not make", &CheckForeign},
    {"physical-store", "the physical store of the user", &CheckPhysicalStore},
    {"module", "the DLL's file, version and exports", &CheckModule},
    {"signature", "the DLL's signature", &CheckSignature},
    {"providers", "the registration and the modules of both providers", &CheckProviders},
    {"default-provider", "the provider of type 25", &CheckDefaultProvider},
    {"log", "the log file", &CheckLog},
    {"listing", "the shared listing and its mutex", &CheckListing},
    {"effects", "effects on other programs", &CheckEffects},
    {"abuse", "what could be abused", &CheckAbuse},
};

}  // namespace

const char* SeverityName(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kWarning:
      return "warning";
    case Severity::kError:
      return "error";
  }
  return "";
}

std::span<const Check> Checks() { return kChecks; }

std::vector<Finding> RunChecks(const StatusFacts& facts) {
  Findings found;
  for (const Check& check : kChecks) {
    check.run(facts, found);
  }
  // The worst first, otherwise in the order of the checks.
  Findings sorted;
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kNote}) {
    std::ranges::copy_if(found, std::back_inserter(sorted),
                         [=](const Finding& finding) { return finding.severity == severity; });
  }
  return sorted;
}

bool IsAes256Content(const Binding& binding) {
  return std::strcmp(binding.function, kAes256Function) == 0 &&
         std::strcmp(binding.oid, kAes256) == 0;
}

}  // namespace zarext::ctl
