// Steps 1 and 9: registration and its removal, seen in the registry.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "frame/handles.h"
#include "support/dev_provider.h"
#include "support/message_gaps.h"
#include "support/prepared_process.h"
#include "support/registry_snapshot.h"
#include "support/regsvr32.h"
#include "support/scripted_provider.h"

namespace zarext::demo {
namespace {

constexpr char kRecordsKey[] =
    "HKLM\\SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindOIDInfo\\";
constexpr char kPhysicalStore[] =
    "HKCU\\Software\\Microsoft\\SystemCertificates\\MY\\PhysicalStores\\Zarvel Store Provider";

// No removal takes these away.
constexpr const char* kRecordsThatStay[] = {"1.2.398.3.10.1.4.1.1!3", "1.2.398.3.10.1.4.1.2!3"};

// What the registration added to the registry, or wrote again over what an earlier one had left.
test::RegistryLines& Written() {
  static test::RegistryLines lines;
  return lines;
}

bool IsValue(const std::string& line) { return line.find(" : ") != std::string::npos; }

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

bool IsLeftByAnEarlierOne(const std::string& line) {
  return Contains(line, " : FuncName = text Zar") ||
         std::any_of(std::begin(kRecordsThatStay), std::end(kRecordsThatStay),
                     [&](const char* record) { return line == std::string(kRecordsKey) + record; });
}

struct Added {
  std::vector<std::string> records;   // keys
  std::vector<std::string> bindings;  // their values
  std::vector<std::string> folders;   // keys without values
  bool physicalStore = false;
};

Added Sort(const std::vector<std::string>& lines) {
  Added added;
  const std::set<std::string> all(lines.begin(), lines.end());
  for (const std::string& line : lines) {
    // The values of a key come behind it.
    const auto next = all.upper_bound(line + " :");
    const bool hasValues = next != all.end() && next->rfind(line + " : ", 0) == 0;
    if (Contains(line, " : FuncName = text Zar")) {
      added.bindings.push_back(line);
    } else if (!IsValue(line) && line.rfind(kRecordsKey, 0) == 0) {
      added.records.push_back(line);
    } else if (!IsValue(line) && !hasValues) {
      added.folders.push_back(line);
    }
    added.physicalStore |= line == kPhysicalStore;
  }
  return added;
}

bool IsProviderRegistered(const char* name) {
  const std::string path =
      std::string("SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\") + name;
  UniqueRegistryKey key;
  return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY,
                       key.Put()) == ERROR_SUCCESS;
}

void InstallProviderIfNone() {
  if (IsProviderRegistered("Zarvel CSP")) {
    Note("the provider \"Zarvel CSP\" is installed on this machine already and is used");
    return;
  }
  test::RegisterProvider("Zarvel CSP", 25, test::DevProviderPath());
  test::RegisterProvider("Zarvel CSP RSA", 1, test::DevProviderPath());
  Note(
      "no provider \"Zarvel CSP\" is installed: the development provider, cpzarvel.dll, takes "
      "its place");
}

// What Wine lacks of Windows' own records, for the messages of a later step.
void AddRecordIfMissing() {
  if (test::ContentAlgorithmIsUnknown(kAes128Oid)) {
    test::RegisterOidInfo(kAes128Oid, CRYPT_ENCRYPT_ALG_OID_GROUP_ID, L"aes128", CALG_AES_128);
  }
}

std::string Counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what;
}

// The functions that each identifier is bound to, from the lines of the bindings.
std::map<std::string, std::string> ByIdentifier(const std::vector<std::string>& bindings) {
  std::map<std::string, std::string> functions;
  for (const std::string& line : bindings) {
    const std::string key = line.substr(0, line.find(" : "));
    const std::size_t oid = key.rfind('\\');
    const std::size_t function = key.rfind('\\', oid - 1);
    functions[key.substr(oid + 1)] += " " + key.substr(function + 1, oid - function - 1);
  }
  return functions;
}

}  // namespace

void RegisterModule() {
  InstallProviderIfNone();
  AddRecordIfMissing();
  test::RegistryLines before = test::ReadRegistry();
  std::erase_if(before, IsLeftByAnEarlierOne);
  Call("regsvr32 /s " + test::PatchedModule());
  ExpectCode(0, test::Regsvr32(test::PatchedModule()), "regsvr32 reports success");
  const auto written = test::LinesWithout(test::ReadRegistry(), before);
  Written() = {written.begin(), written.end()};
  const Added added = Sort(written);
  Note("the module writes 68 records; three repeat an identifier and group of another");
  Expect(added.records.size() == 65, Counted(added.records.size(), "keys of records"));
  Expect(added.bindings.size() == 475, Counted(added.bindings.size(), "bindings of functions"));
  Expect(added.physicalStore, "the physical store \"Zarvel Store Provider\" of \"MY\"");
}

void UnregisterModule() {
  Call("regsvr32 /u /s " + test::PatchedModule());
  ExpectCode(0, test::Regsvr32("/u " + test::PatchedModule()), "regsvr32 reports success");
  const test::RegistryLines now = test::ReadRegistry();
  std::vector<std::string> lines;
  std::set_intersection(Written().begin(), Written().end(), now.begin(), now.end(),
                        std::back_inserter(lines));
  const Added left = Sort(lines);
  for (const std::string& record : left.records) {
    Note("stays: the record " + record.substr(std::strlen(kRecordsKey)));
  }
  for (const auto& [oid, functions] : ByIdentifier(left.bindings)) {
    Note(std::string("stay: the bindings of ").append(oid).append(" to").append(functions));
  }
  for (const std::string& key : left.folders) {
    Note("stays, empty or shared: " + key);
  }
  Expect(left.records.size() == std::size(kRecordsThatStay), "two records stay");
  Expect(left.bindings.size() == 24, "24 bindings stay, of four identifiers to six functions");
  Expect(left.folders.size() <= 18, Counted(left.folders.size(), "keys above them stay"));
  Expect(!left.physicalStore, "the physical store is gone");
}

}  // namespace zarext::demo
