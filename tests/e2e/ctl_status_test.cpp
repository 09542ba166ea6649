// zarextctl status: a healthy installation, and each finding provoked once.
#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "contract/store_fixture.h"
#include "e2e/ctl_fixture.h"
#include "zarextctl/findings.h"

namespace zarext::test {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kLog[] = "c:\\zarext.log";
const std::string kRecord =
    std::string(kOidRoot) + "EncodingType 0\\CryptDllFindOIDInfo\\1.2.643.2.2.19!3";
const std::string kBinding =
    std::string(kOidRoot) + "EncodingType 1\\CryptDllImportPublicKeyInfoEx\\1.2.643.2.2.19";
const std::string kStoreKey =
    "Software\\Microsoft\\SystemCertificates\\MY\\PhysicalStores\\Zarvel Store Provider";
const std::string kProvider = std::string(kProviderRoot) + "Zarvel CSP";
const std::string kRsaProvider = std::string(kProviderRoot) + "Zarvel CSP RSA";

Octets NumberOctets(DWORD number) {
  return {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8),
          static_cast<BYTE>(number >> 16), static_cast<BYTE>(number >> 24)};
}

// Of the processes that have the module loaded only the tests' own is sure to be there.
const Replacements kRun = {{"loaded by   ctl_e2e\\.exe \\([0-9]+\\)\n", "loaded by   <tests>\n"},
                           {"loaded by   [^<][^\n]*\n", ""},
                           {"ctl_e2e\\.exe \\([0-9]+\\)", "<tests>"},
                           {"all of [0-9]+ ms", "all of <n> ms"},
                           {"devhome[0-9]+-[0-9]+", "<home>"},
                           {"C:\\\\[^\"\n]*\\\\(<home>)", "<temp>\\$1"}};

class Status : public CtlTest {
 protected:
  Status() {
    Module();
    SharedSection().Wipe();
  }

  // A file in the test's home.
  [[nodiscard]] std::string File(const char* name, const std::string& text) const {
    std::string path = home_.Path() + "\\" + name;
    const UniqueFile file(std::fopen(path.c_str(), "wb"));
    (void)std::fwrite(text.data(), 1, text.size(), file.Get());
    return path;
  }
};

// Identifiers of the findings, in order.
std::vector<std::string> Ids(const std::vector<std::string>& arguments = {}) {
  std::vector<std::string> all = {"status", "--json"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<std::string> ids;
  const json document = json::parse(RunTool(all).out);
  for (const json& finding : document.at("findings")) {
    ids.push_back(finding.at("id"));
  }
  return ids;
}

TEST_F(Status, NothingIsWrongWithAFreshInstallation) {
  ExpectGolden("status-healthy", RunTool({"status"}), kRun);
}

TEST_F(Status, JsonHasEveryField) {
  const ToolResult result = RunTool({"status", "--json"});
  EXPECT_EQ(0u, result.exitCode);
  EXPECT_EQ("", result.err);
  const json document = json::parse(result.out);
  const json& module = document.at("module");
  EXPECT_EQ(json(ProgramFolder() + "ZAREXT.dll"), module.at("path"));
  EXPECT_EQ(true, module.at("exists"));
  EXPECT_EQ("1.0.0.0", module.at("version"));
  EXPECT_EQ("not signed", module.at("signature"));
  EXPECT_EQ(true, module.at("loads"));
  EXPECT_EQ(json::array(), module.at("missingFunctions"));
  const json& registration = document.at("registration");
  EXPECT_EQ(68, registration.at("recordsPresent"));
  EXPECT_EQ(68, registration.at("records"));
  EXPECT_EQ(475, registration.at("bindingsPresent"));
  EXPECT_EQ(475, registration.at("bindings"));
  EXPECT_EQ("present", registration.at("physicalStore"));
  EXPECT_EQ(json::array(), registration.at("items"));
  const json& providers = document.at("providers");
  ASSERT_EQ(2u, providers.size());
  EXPECT_EQ("Zarvel CSP", providers[0].at("name"));
  EXPECT_EQ(25, providers[0].at("type"));
  EXPECT_EQ(json(DevProviderPath()), providers[0].at("imagePath"));
  EXPECT_EQ(true, providers[0].at("file").at("loads"));
  EXPECT_EQ("Zarvel CSP RSA", providers[1].at("name"));
  EXPECT_EQ(1, providers[1].at("type"));
  EXPECT_EQ(false, document.at("log").at("exists"));
  EXPECT_EQ(true, document.at("listing").at("exists"));
  EXPECT_EQ(false, document.at("listing").at("mutexHeld"));
  const json& findings = document.at("findings");
  ASSERT_EQ(2u, findings.size());
  EXPECT_EQ("note", findings[0].at("severity"));
  EXPECT_EQ("module-signature", findings[0].at("id"));
  EXPECT_EQ("aes256-bound", findings[1].at("id"));
  EXPECT_EQ(json("zarextctl register --dll \"" + ProgramFolder() + "ZAREXT.dll\" --without-aes256"),
            findings[1].at("mend"));
}

TEST_F(Status, AllListsEveryRecordAndBinding) {
  const ToolResult result = RunTool({"status", "--all"});
  EXPECT_THAT(result.out, HasSubstr("\n  present          1  1.3.6.1.5.5.7.3.10 (key usage) Data "
                                    "Validation and Certification Server.\n"));
  EXPECT_THAT(result.out, HasSubstr("\n  present          CertDllOpenStoreProv Zarvel Store "
                                    "Provider -> ZarOpenStoreProv\n"));
  EXPECT_EQ(68 + 475, json::parse(RunTool({"status", "--all", "--json"}).out)
                          .at("registration")
                          .at("items")
                          .size());
}

TEST_F(Status, TheChecksAreListed) {
  ExpectGolden("status-checks", RunTool({"status", "--checks"}));
}

TEST_F(Status, EveryDamageOfTheRegistrationIsFound) {
  const std::string foreign = std::string(kOidRoot) + "EncodingType 1\\CryptDllFormatObject\\1.2.3";
  const HKEY machine = HKEY_LOCAL_MACHINE;
  const HKEY user = HKEY_CURRENT_USER;
  const std::string text = File("text.dll", "no module");
  const std::vector<Damaged> cases = {
      {"status-record-missing", Removed(machine, kRecord)},
      {"status-record-differs",
       Changed(machine, kRecord, "Algid", REG_DWORD, NumberOctets(0x1234))},
      {"status-record-damaged", Changed(machine, kRecord, "Name", REG_SZ, {'a', 0, 'b'})},
      {"status-binding-missing", Removed(machine, kBinding)},
      {"status-binding-other-dll",
       Changed(machine, kBinding, "Dll", REG_SZ, TextOctets("C:\\Папка\\ZAREXT.dll"))},
      {"status-binding-other-function",
       Changed(machine, kBinding, "FuncName", REG_SZ, TextOctets("ZarConvertPublicKeyInfo"))},
      {"status-binding-damaged", Changed(machine, kBinding, "Dll", REG_BINARY, {1, 2})},
      {"status-foreign-binding",
       Changed(machine, foreign, "Dll", REG_SZ, TextOctets("C:\\old\\zarext.DLL"))},
      {"status-store-missing", Removed(user, kStoreKey)},
      {"status-store-differs", Changed(user, kStoreKey, "Priority", REG_DWORD, NumberOctets(7))},
      {"status-provider-not-registered", Removed(machine, kRsaProvider)},
      {"status-provider-path",
       Changed(machine, kProvider, "Image Path", REG_DWORD, NumberOctets(1))},
      {"status-provider-path-endless",
       Changed(machine, kProvider, "Image Path", REG_SZ, {'a', 0, 'b', 0})},
      {"status-provider-module-missing",
       Changed(machine, kProvider, "Image Path", REG_SZ, TextOctets("C:\\nowhere\\cpzarvel.dll"))},
      {"status-provider-does-not-load",
       Changed(machine, kProvider, "Image Path", REG_SZ, TextOctets(text))},
      {"status-provider-entry-point", Changed(machine, kProvider, "Image Path", REG_SZ,
                                              TextOctets(ProgramFolder() + "ZAREXT.dll"))},
      {"status-provider-type", Changed(machine, kProvider, "Type", REG_DWORD, NumberOctets(24))},
      {"status-provider-default",
       Removed(machine, "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 025")},
      {"status-provider-without-path",
       Changed(machine, kProvider, "Image Path", REG_SZ, TextOctets("cpzarvel.dll"))},
      {"status-provider-path-expandable",
       Changed(machine, kProvider, "Image Path", REG_EXPAND_SZ, TextOctets(DevProviderPath()))},
      {"status-provider-path-long", Changed(machine, kProvider, "Image Path", REG_SZ,
                                            TextOctets("C:\\" + std::string(253, 'a')))},
      {"status-record-extra", Changed(machine, kRecord, "ExtraInfo", REG_BINARY, {1, 2, 3, 4})},
      // The right octets, and no REG_BINARY.
      {"status-record-extra-type", Changed(machine, kRecord, "ExtraInfo", REG_DWORD,
                                           {0x1D, 0x20, 0, 0, 0, 0, 0, 0, 25, 0, 0, 0})},
      {"status-provider-default-other",
       Changed(machine, "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 025",
               "Name", REG_SZ, TextOctets("Another CSP"))},
  };
  for (const Damaged& damaged : cases) {
    const RegistryDamage damage = damaged.damage();
    ExpectGolden(damaged.golden, RunTool({"status"}), kRun);
  }
  EXPECT_THAT(Ids(), ElementsAre("module-signature", "aes256-bound"));
}

// The text, a zero, and an octet more.
Octets Longer(const std::string& text) {
  Octets octets(text.begin(), text.end());
  octets.insert(octets.end(), {0, 1});
  return octets;
}

TEST_F(Status, ThePhysicalStoreIsComparedValueByValue) {
  const struct {
    const char* name;
    DWORD type;
    Octets octets;
    const char* detail;
  } rows[] = {
      {"OpenStoreProvider", REG_SZ, TextOctets("Other"), "OpenStoreProvider is Other"},
      {"OpenEncodingType", REG_DWORD, NumberOctets(1), "OpenEncodingType is 0x1 and not 0x10001"},
      {"OpenFlags", REG_DWORD, NumberOctets(1), "OpenFlags is 0x1 and not 0x50000"},
      {"OpenParameters", REG_BINARY, {'Z'}, "OpenParameters is REG_BINARY of 1 octet"},
      {"OpenParameters", REG_BINARY, Longer("Zarvel Store Provider"),
       "OpenParameters is REG_BINARY of 23 octets"},
      {"Flags", REG_DWORD, NumberOctets(0), "Flags is 0x0 and not 0x1"},
  };
  for (const auto& row : rows) {
    const auto damage =
        RegistryDamage::SetValue(HKEY_CURRENT_USER, kStoreKey, row.name, row.type, row.octets);
    EXPECT_THAT(RunTool({"status"}).out,
                HasSubstr(std::string("store is damaged: ") + row.detail + " [store-differs]"));
  }
}

TEST_F(Status, ABindingOfAnotherProductIsNoneOfItsConcern) {
  const auto other = RegistryDamage::SetValue(
      HKEY_LOCAL_MACHINE, std::string(kOidRoot) + "EncodingType 1\\CryptDllFormatObject\\1.2.3",
      "Dll", REG_SZ, TextOctets("C:\\other\\other.dll"));
  EXPECT_THAT(Ids(), ElementsAre("module-signature", "aes256-bound"));
}

TEST_F(Status, AModuleThatIsNotThereOrNotOurs) {
  EXPECT_THAT(Ids({"--dll", "C:\\nowhere\\ZAREXT.dll"}),
              ElementsAre("binding-other-dll", "module-missing", "aes256-bound"));
  EXPECT_THAT(Ids({"--dll", File("text.dll", "no module")}), Contains("module-does-not-load"));
  EXPECT_THAT(Ids({"--dll", DevProviderPath()}), Contains("module-lacks-function"));
  EXPECT_THAT(Ids({"--dll", "C:\\windows\\system32\\crypt32.dll"}), Contains("module-version"));
}

// Opens a file or a folder to everyone.
void OpenToEveryone(const std::string& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  Must(ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;;FA;;;WD)", SDDL_REVISION_1,
                                                            &descriptor, nullptr),
       "ConvertStringSecurityDescriptorToSecurityDescriptor");
  const UniqueLocalMemory owner(descriptor);
  Must(SetFileSecurityA(path.c_str(), DACL_SECURITY_INFORMATION, descriptor), "SetFileSecurity");
}

TEST_F(Status, AProviderThatOthersMayReplace) {
  const std::string copy = home_.Path() + "\\cpzarvel.dll";
  std::filesystem::copy_file(DevProviderPath(), copy);
  const auto moved = RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, kProvider, "Image Path", REG_SZ,
                                              TextOctets(copy));
  EXPECT_THAT(Ids(), ElementsAre("module-signature", "aes256-bound"));
  OpenToEveryone(copy);
  ExpectGolden("status-provider-writable", RunTool({"status"}), kRun);
}

// A module that is not there can be put there.
TEST_F(Status, AProvidersFolderThatOthersMayWrite) {
  const std::string folder = home_.Path() + "\\open";
  std::filesystem::create_directory(folder);
  const auto moved = RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, kProvider, "Image Path", REG_SZ,
                                              TextOctets(folder + "\\cpzarvel.dll"));
  OpenToEveryone(folder);
  const ToolResult result = RunTool({"status"});
  EXPECT_THAT(result.out, HasSubstr("\\open\\cpzarvel.dll is not there [provider-module-missing]"));
  EXPECT_THAT(result.out, HasSubstr("\\open\\cpzarvel.dll may be replaced by Everyone (folder) "
                                    "[provider-writable]"));
}

class LogFile {
 public:
  LogFile() { const UniqueFile file(std::fopen(kLog, "wb")); }
  ~LogFile() {
    std::error_code ignored;
    std::filesystem::remove(kLog, ignored);
  }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
};

TEST_F(Status, TheLogFile) {
  {
    const LogFile log;
    EXPECT_THAT(RunTool({"status"}).out, HasSubstr("c:\\zarext.log, can be written\n"));
    EXPECT_THAT(Ids(), ElementsAre("module-signature", "aes256-bound"));
    {
      const UniqueKernelObject kept(
          CreateFileA(kLog, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
      ExpectGolden("status-log-not-writable", RunTool({"status"}), kRun);
    }
    SetFileAttributesA(kLog, FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(ctl::GatherStatus("").log.isReadOnly);
    SetFileAttributesA(kLog, FILE_ATTRIBUTE_NORMAL);
    EXPECT_FALSE(ctl::GatherStatus("").log.isReadOnly);
    OpenToEveryone(kLog);
    ExpectGolden("status-log-replaceable", RunTool({"status"}), kRun);
  }
  std::filesystem::create_directory(kLog);
  ExpectGolden("status-log-no-file", RunTool({"status"}), kRun);
  std::filesystem::remove(kLog);
}

TEST_F(Status, ADamagedListing) {
  SharedSection().Put(0, {0x31, 0x00});
  ExpectGolden("status-listing-damaged", RunTool({"status"}), kRun);
  SharedSection().Wipe();
}

// A copy of the development provider that exports these functions under other names.
std::string ProviderWithout(const std::string& folder, const std::vector<std::string>& functions) {
  std::ifstream original(DevProviderPath(), std::ios::binary);
  std::string image{std::istreambuf_iterator<char>(original), {}};
  for (const std::string& function : functions) {
    const std::size_t name = image.find('\0' + function + '\0');
    Must(name != std::string::npos, function.c_str());
    // The last letter alone changes, so that the list of names stays sorted.
    ++image[name + function.size()];
  }
  std::string path = folder + "\\without" + std::to_string(functions.size()) + ".dll";
  std::ofstream(path, std::ios::binary) << image;
  return path;
}

TEST_F(Status, AProviderThatLacksFewEntryPoints) {
  const struct {
    std::vector<std::string> functions;
    const char* what;
  } rows[] = {
      {{"CPHashSessionKey"}, "lacks CPHashSessionKey [provider-entry-point]"},
      {{"CPHashSessionKey", "CPSignHash"},
       "lacks CPHashSessionKey and 1 more [provider-entry-point]"},
  };
  for (const auto& row : rows) {
    const auto path = ProviderWithout(home_.Path(), row.functions);
    const auto damage = RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, kProvider, "Image Path",
                                                 REG_SZ, TextOctets(path));
    EXPECT_THAT(RunTool({"status"}).out, HasSubstr(row.what));
  }
}

// The finding of this name, made from these facts and nothing else.
ctl::Finding FindingFrom(ctl::StatusFacts facts, const std::string& id) {
  facts.providers.resize(1);
  const auto findings = ctl::RunChecks(facts);
  const auto found = std::ranges::find(findings, id, &ctl::Finding::id);
  return found == findings.end() ? ctl::Finding{} : *found;
}

// The tests' platform does not tell whose a mutex is, so that the finding is asked by itself.
TEST_F(Status, TheOwnerOfAHeldMutexIsTheOneToEnd) {
  const std::string cause =
      "a process hangs in it; every program that opens \"MY\" waits. The module is loaded in: ";
  const struct {
    ctl::MutexState mutex;
    std::vector<ctl::ProcessName> processes;
    const char* what;
    std::string cause;
    const char* mend;
  } rows[] = {
      {{true, true, 1000, 4712, "signer.exe"},
       {{4711, "mail.exe"}, {4712, "signer.exe"}},
       "the listing's mutex was held for all of 1000 ms by signer.exe (4712)",
       cause + "mail.exe (4711), signer.exe (4712)",
       "taskkill /F /PID 4712"},
      {{true, true, 1000, 0, ""},
       {},
       "the listing's mutex was held for all of 1000 ms by a process that the system does not name",
       cause + "no process that may be looked into",
       "taskkill /F /PID (one of those)"},
  };
  for (const auto& row : rows) {
    ctl::StatusFacts facts;
    facts.mutex = row.mutex;
    facts.processes = row.processes;
    const ctl::Finding finding = FindingFrom(facts, "mutex-held");
    EXPECT_EQ(ctl::Severity::kError, finding.severity);
    EXPECT_EQ(row.what, finding.what);
    EXPECT_EQ(row.cause, finding.cause);
    EXPECT_EQ(row.mend, finding.mend);
  }
}

// Neither a read-only attribute nor an access list keeps the user of the tests' platform from
// writing where that user is root, so that the finding is asked by itself.
TEST_F(Status, ALogThatThisUserMayNotWrite) {
  const struct {
    bool isReadOnly;
    const char* cause;
    const char* mend;
  } rows[] = {
      {false, "this user has no right to", "icacls c:\\zarext.log /grant Users:(RD,AD)"},
      {true, "it is marked as read-only", "attrib -R c:\\zarext.log"},
  };
  for (const auto& row : rows) {
    ctl::StatusFacts facts;
    facts.log = {true, true, row.isReadOnly, ERROR_ACCESS_DENIED, {}};
    const ctl::Finding finding = FindingFrom(facts, "log-not-writable");
    EXPECT_EQ(ctl::Severity::kWarning, finding.severity);
    EXPECT_EQ("c:\\zarext.log cannot be written: 0x5 ERROR_ACCESS_DENIED", finding.what);
    EXPECT_EQ(row.cause, finding.cause);
    EXPECT_EQ(row.mend, finding.mend);
  }
}

TEST_F(Status, AMutexThatIsHeld) {
  const ChildProcess holder = HoldMutex();
  const ToolResult result = RunTool({"status"});
  EXPECT_EQ(1u, result.exitCode);
  EXPECT_THAT(result.out, HasSubstr("error: the listing's mutex was held for all of 1"));
  EXPECT_THAT(result.out, HasSubstr("ctl_e2e.exe ("));
  EXPECT_THAT(result.out, HasSubstr("[mutex-held]"));
  EXPECT_THAT(result.out, HasSubstr("  mend:  taskkill /F /PID "));
}

}  // namespace
}  // namespace zarext::test
