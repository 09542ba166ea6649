// Registration with the real framework and the user's own tool, regsvr32. The patches that the
// platform needs come from patches.dll, named first on the command line.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "contract/registration_expected.h"
#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/module_under_test.h"
#include "support/platform.h"
#include "support/prepared_process.h"
#include "support/registry_snapshot.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;
using Lines = std::vector<std::string>;

const std::string kOid = "HKLM\\SOFTWARE\\Microsoft\\Cryptography\\OID\\";
const std::string kRecords = kOid + "EncodingType 0\\CryptDllFindOIDInfo";
const std::string kPhysicalStores =
    "HKCU\\Software\\Microsoft\\SystemCertificates\\MY\\PhysicalStores";

// The functions that the platform has no key of before the registration.
const char* const kNewFunctions[] = {
    "EncodingType 1\\CryptDllImportPrivateKeyInfoEx",
    "EncodingType 1\\CryptDllExportPrivateKeyInfoEx",
    "EncodingType 1\\CryptDllImportPublicKeyInfoEx",
    "EncodingType 1\\CryptDllImportPublicKeyInfo",
    "EncodingType 1\\CryptDllExportPublicKeyInfoEx",
    "EncodingType 1\\CryptDllExportPublicKeyInfo",
    "EncodingType 1\\CryptDllConvertPublicKeyInfo",
    "EncodingType 1\\CryptDllEncodePublicKeyAndParameters",
    "EncodingType 1\\CryptMsgDllGenContentEncryptKey",
    "EncodingType 1\\CryptMsgDllGenEncryptKey",
    "EncodingType 1\\CryptMsgDllImportEncryptKey",
    "EncodingType 1\\CryptMsgDllImportKeyTrans",
    "EncodingType 1\\CryptMsgDllExportEncryptKey",
    "EncodingType 1\\CryptMsgDllExportKeyTrans",
};

// The empty keys that no removal takes away.
Lines ParentKeys() {
  Lines lines = {kRecords, "HKCU\\Software\\Microsoft\\SystemCertificates",
                 "HKCU\\Software\\Microsoft\\SystemCertificates\\MY", kPhysicalStores};
  for (const char* function : kNewFunctions) {
    lines.push_back(kOid + function);
  }
  return lines;
}

std::string Hex(const char* format, DWORD number) {
  char text[16];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string LittleEndian(DWORD number) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    text += Hex("%02lx", number >> (8 * i) & 0xFF);
  }
  return text;
}

Lines RecordLines(const ExpectedRecord& record) {
  const std::string key = kRecords + "\\" + record.oid + "!" + std::to_string(record.group);
  Lines lines = {key, key + " : Name = text " + record.name,
                 key + " : ExtraInfo = type 3 " + LittleEndian(record.extra[0]) +
                     LittleEndian(record.extra[1]) + LittleEndian(record.extra[2]),
                 key + " : Flags = number 1"};
  if (record.algorithm != 0) {
    lines.push_back(key + " : Algid = number " + Hex("%lx", record.algorithm));
  }
  return lines;
}

Lines BindingLines(const ExpectedBinding& binding) {
  // The framework files a type by its lower half.
  const std::string key = kOid + "EncodingType " + std::to_string(binding.encodingType & 0xFFFF) +
                          "\\" + binding.function + "\\" + binding.oid;
  return {key, key + " : Dll = text " + ProgramFolder() + "ZAREXT.dll",
          key + " : FuncName = text " + binding.exportName};
}

// Of the records with one OID and group the last, as the framework has it.
std::vector<ExpectedRecord> LastRecords() {
  std::map<std::pair<std::string, DWORD>, ExpectedRecord> last;
  for (const ExpectedRecord& record : RegisteredRecords()) {
    last[{record.oid, record.group}] = record;
  }
  std::vector<ExpectedRecord> records;
  for (const auto& entry : last) {
    records.push_back(entry.second);
  }
  return records;
}

void Append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// Everything that registration adds to the registry.
Lines AllLines() {
  const std::string store = kPhysicalStores + "\\Zarvel Store Provider";
  Lines lines = ParentKeys();
  Append(lines,
         {store, store + " : OpenStoreProvider = text Zarvel Store Provider",
          store + " : OpenEncodingType = number 10001", store + " : OpenFlags = number 50000",
          store + " : OpenParameters = type 3 "
                  "5a617276656c2053746f72652050726f7669646572",
          store + " : Flags = number 1", store + " : Priority = number 1"});
  for (const ExpectedRecord& record : LastRecords()) {
    Append(lines, RecordLines(record));
  }
  for (const ExpectedBinding& binding : RegisteredBindings()) {
    Append(lines, BindingLines(binding));
  }
  return lines;
}

const std::vector<ExpectedRecord>& RemainingRecords() {
  static const std::vector<ExpectedRecord> records = {
      {"1.2.398.3.10.1.4.1.1", 3, "Ключ ГОСТ 34.10-2015/kz", 0xA055, {0xA055, 0, 25}},
      {"1.2.398.3.10.1.4.1.2", 3, "Ключ ГОСТ 34.10-2015/kz", 0xA04B, {0xA04B, 0, 25}},
  };
  return records;
}

std::vector<ExpectedBinding> RemainingBindings() {
  const std::pair<const char*, const char*> functions[] = {
      {"CryptDllImportPrivateKeyInfoEx", "ZarImportPrivKeyFunc"},
      {"CryptDllExportPrivateKeyInfoEx", "ZarExportPrivKeyFunc"},
      {"CryptDllImportPublicKeyInfoEx", "ZarImportPublicKeyInfoEx"},
      {"CryptDllImportPublicKeyInfo", "ZarImportPublicKeyInfo"},
      {"CryptDllExportPublicKeyInfoEx", "ZarExportPublicKeyInfoEx"},
      {"CryptDllExportPublicKeyInfo", "ZarExportPublicKeyInfo"},
  };
  std::vector<ExpectedBinding> bindings;
  for (const auto& [function, exportName] : functions) {
    for (const char* oid : {"1.2.398.3.10.1.1.2.1.1", "1.2.398.3.10.1.4.1.1.1",
                            "1.2.398.3.10.1.1.2.2.1", "1.2.398.3.10.1.4.1.2.1"}) {
      bindings.push_back({1, function, oid, exportName});
    }
  }
  return bindings;
}

// What unregistration leaves.
Lines RemainingLines() {
  Lines lines = ParentKeys();
  for (const ExpectedRecord& record : RemainingRecords()) {
    Append(lines, RecordLines(record));
  }
  for (const ExpectedBinding& binding : RemainingBindings()) {
    Append(lines, BindingLines(binding));
  }
  return lines;
}

// What follows runs in processes of their own, each started after a registration: the framework
// reads the records when it is loaded. The exit code is the number of deviations, which the
// standard output names.

std::wstring Wide(const std::string& utf8) {
  wchar_t wide[128] = {};
  MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, wide, 128);
  return wide;
}

class Deviations {
 public:
  void Expect(bool holds, const std::string& what) {
    if (!holds) {
      std::printf("deviates: %s\n", what.c_str());
      ++count_;
    }
  }
  [[nodiscard]] int Count() const { return std::min(count_, 250); }

 private:
  int count_ = 0;
};

bool Matches(const CRYPT_OID_INFO* info, const ExpectedRecord& record) {
  return info != nullptr && record.oid == info->pszOID && record.group == info->dwGroupId &&
         Wide(record.name) == info->pwszName && record.algorithm == info->Algid &&
         info->ExtraInfo.cbData == 12 &&
         std::equal(record.extra.begin(), record.extra.end(),
                    reinterpret_cast<const DWORD*>(info->ExtraInfo.pbData));
}

const CRYPT_OID_INFO* FindRecord(const ExpectedRecord& record) {
  std::string oid = record.oid;
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid.data(), record.group);
}

void ExpectRecords(Deviations& deviations, const std::vector<ExpectedRecord>& records) {
  for (const ExpectedRecord& record : records) {
    deviations.Expect(Matches(FindRecord(record), record),
                      record.oid + "!" + std::to_string(record.group));
  }
}

// The address that the framework finds for a binding, null if none.
void* Resolve(const ExpectedBinding& binding) {
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet(binding.function.c_str(), 0);
  void* address = nullptr;
  HCRYPTOIDFUNCADDR handle = nullptr;
  if (!CryptGetOIDFunctionAddress(set, binding.encodingType, binding.oid.c_str(), 0, &address,
                                  &handle)) {
    return nullptr;
  }
  CryptFreeOIDFunctionAddress(handle, 0);
  return address;
}

void ExpectBindings(Deviations& deviations, const std::vector<ExpectedBinding>& bindings) {
  for (const ExpectedBinding& binding : bindings) {
    void* const expected = reinterpret_cast<void*>(Export<int()>(binding.exportName.c_str()));
    deviations.Expect(Resolve(binding) == expected, binding.function + " " + binding.oid);
  }
}

}  // namespace

ZAREXT_CHILD(SeesEverythingRegistered) {
  Deviations deviations;
  ExpectRecords(deviations, LastRecords());
  ExpectBindings(deviations, RegisteredBindings());
  return deviations.Count();
}

// Spelled out once more, as a user of the framework asks.
ZAREXT_CHILD(SeesNamedRecords) {
  Deviations deviations;
  ExpectRecords(
      deviations,
      {
          {"1.3.6.1.4.1.32473.1.5.20", 3, "Ключ RSA (1024 bits)", 0xA450, {0xA450, 0, 1}},
          {"1.2.398.3.10.1.1.1.1.1", 3, "Ключ ГОСТ 34.310-2004/kz", 0x2A3A, {0xAA3A, 0, 25}},
          {"1.3.6.1.4.1.32473.1.2.2", 3, "Алгоритм ГОСТ 34.310.", 0x201D, {0x201D, 0, 25}},
          {"1.3.6.1.4.1.32473.1.2.2", 4, "Алгоритм подписи ГОСТ 34.310.", 0x801D, {0x201D, 0, 25}},
      });
  return deviations.Count();
}

// The three identifiers that are not the provider's own.
const std::vector<ExpectedRecord> kSharedRecords = {
    {"1.3.6.1.5.5.7.3.10", 7, "Data Validation and Certification Server.", 0, {0, 0, 25}},
    {"1.3.6.1.5.5.7.3.9", 7, "Online Certificate Status Protocol.", 0, {0, 0, 25}},
    {"2.16.840.1.101.3.4.1.42", 2, "Алгоритм шифрования AES.", 0x6610, {0, 0, 25}},
};

// In its group and in any, and AES-256 by its ALG_ID too: as programs without the provider ask.
ZAREXT_CHILD(SeesSharedRecords) {
  Deviations deviations;
  for (const ExpectedRecord& record : kSharedRecords) {
    std::string oid = record.oid;
    deviations.Expect(Matches(FindRecord(record), record), record.oid);
    deviations.Expect(Matches(CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid.data(), 0), record),
                      record.oid + " in any group");
  }
  ALG_ID aes256 = 0x6610;
  deviations.Expect(
      Matches(CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &aes256, 2), kSharedRecords[2]),
      "ALG_ID 0x6610");
  return deviations.Count();
}

// Whether the platform has records of its own for them.
ZAREXT_CHILD(SeesNoSharedRecords) {
  Deviations deviations;
  for (const ExpectedRecord& record : kSharedRecords) {
    deviations.Expect(FindRecord(record) == nullptr, record.oid);
  }
  return deviations.Count();
}

ZAREXT_CHILD(SeesTheRemainder) {
  Deviations deviations;
  ExpectRecords(deviations, RemainingRecords());
  ExpectBindings(deviations, RemainingBindings());
  for (const ExpectedRecord& record : LastRecords()) {
    const bool remains =
        record.oid == "1.2.398.3.10.1.4.1.1" || record.oid == "1.2.398.3.10.1.4.1.2";
    // The platform may have a record of its own for an OID, but not this one.
    const bool gone = !Matches(FindRecord(record), record);
    deviations.Expect(gone != remains, "record " + record.oid);
  }
  std::set<std::pair<std::string, std::string>> remaining;
  for (const ExpectedBinding& binding : RemainingBindings()) {
    remaining.insert({binding.function, binding.oid});
  }
  for (const ExpectedBinding& binding : RegisteredBindings()) {
    const bool resolves = Resolve(binding) != nullptr;
    deviations.Expect(resolves == remaining.contains({binding.function, binding.oid}),
                      "binding " + binding.function + " " + binding.oid);
  }
  return deviations.Count();
}

// Without regsvr32, with the patches in the own process: bit 0 registration, bit 1 unregistration
// failed.
ZAREXT_CHILD(RegistersDirectly) {
  int registered = 0;
  try {
    RegisterInThisProcess(Export<HRESULT WINAPI()>("DllRegisterServer"));
  } catch (const std::exception&) {
    registered = 1;
  }
  const int removed = Export<HRESULT WINAPI()>("DllUnregisterServer")() == S_OK ? 0 : 2;
  return registered + removed;
}

namespace {

// Without the patches nothing of this can be seen.
void ExpectThatThePlatformRegisters() {
  if (IsWine() && !PatchesWanted()) {
    RegisterPatchedModule();
  }
}
const PreparedProcess prepared(&ExpectThatThePlatformRegisters);

DWORD Child(const char* name) { return ChildProcess(name).Wait().value_or(259); }

// The life of an installation, gone through once; the tests look at what it left at each step.
struct Lifecycle {
  const std::string patches = Patches();
  const std::string module = QuotedInProgramFolder("ZAREXT.dll");

  const RegistryLines before = ReadRegistry();
  const DWORD sharedBefore = Child("SeesNoSharedRecords");
  const DWORD removingNothing = Regsvr32("/u " + patches + module);
  const RegistryLines afterRemovingNothing = ReadRegistry();
  // Windows has the functions: there this would be the registration that follows.
  const std::optional<DWORD> unpatched = IsWine() ? std::optional(Regsvr32(module)) : std::nullopt;
  const RegistryLines afterUnpatched = ReadRegistry();
  const DWORD registering = Regsvr32(patches + module);
  const RegistryLines registered = ReadRegistry();
  const DWORD deviations = Child("SeesEverythingRegistered");
  const DWORD namedDeviations = Child("SeesNamedRecords");
  const DWORD sharedDeviations = Child("SeesSharedRecords");
  const DWORD registeringAgain = Regsvr32(patches + module);
  const RegistryLines registeredAgain = ReadRegistry();
  const DWORD removing = Regsvr32("/u " + patches + module);
  const RegistryLines removed = ReadRegistry();
  const DWORD remainderDeviations = Child("SeesTheRemainder");
  const DWORD sharedRemoved = Child("SeesNoSharedRecords");
  const DWORD removingAgain = Regsvr32("/u " + patches + module);
  const RegistryLines removedAgain = ReadRegistry();
  const DWORD direct = Child("RegistersDirectly");
  const RegistryLines afterDirect = ReadRegistry();

  static const Lifecycle& Instance() {
    static const Lifecycle instance;
    return instance;
  }
};

// What registering or removing added to the registry is `expected` and nothing else.
void ExpectAdded(const RegistryLines& before, const RegistryLines& after, const Lines& expected) {
  const Lines added = LinesWithout(after, before);
  const RegistryLines addedSet(added.begin(), added.end());
  RegistryLines expectedSet(expected.begin(), expected.end());
  // The framework makes these when a user's store is first opened.
  for (const char* key : {"HKCU\\Software\\Microsoft\\SystemCertificates",
                          "HKCU\\Software\\Microsoft\\SystemCertificates\\MY"}) {
    if (before.contains(key)) {
      expectedSet.erase(key);
    }
  }
  EXPECT_THAT(LinesWithout(expectedSet, addedSet), IsEmpty()) << "are missing";
  EXPECT_THAT(LinesWithout(addedSet, expectedSet), IsEmpty()) << "are too many";
  EXPECT_THAT(LinesWithout(before, after), IsEmpty()) << "were there before";
}

class RegistrationLife : public testing::Test {
 protected:
  const Lifecycle& life = Lifecycle::Instance();
};

TEST_F(RegistrationLife, RemovingWhatIsNotThereSucceeds) {
  EXPECT_EQ(0u, life.removingNothing);
  EXPECT_EQ(life.before, life.afterRemovingNothing);
}

// regsvr32 ends with 5 if the function reports a failure. On Windows nothing is patched, and the
// registration succeeds: so says the documentation of its functions; it was not seen there.
TEST_F(RegistrationLife, WithoutThePatchesThePlatformRefuses) {
  EXPECT_EQ(IsWine() ? 5u : 0u, life.unpatched.value_or(life.registering));
  EXPECT_EQ(life.before, life.afterUnpatched);
}

TEST_F(RegistrationLife, RegistersExactlyTheStatedKeys) {
  EXPECT_EQ(0u, life.registering);
  ExpectAdded(life.before, life.registered, AllLines());
}

TEST_F(RegistrationLife, ANewProcessFindsAllOfIt) {
  EXPECT_EQ(0u, life.deviations);
  EXPECT_EQ(0u, life.namedDeviations);
}

// Windows has records of its own for them.
TEST_F(RegistrationLife, TheFrameworkNamesSharedIdentifiersAsTheModuleDoes) {
  EXPECT_EQ(0u, life.sharedDeviations);
  if (IsWine()) {
    EXPECT_EQ(0u, life.sharedBefore);
    EXPECT_EQ(0u, life.sharedRemoved);
  }
}

TEST_F(RegistrationLife, RegisteringAgainChangesNothing) {
  EXPECT_EQ(0u, life.registeringAgain);
  EXPECT_EQ(life.registered, life.registeredAgain);
}

TEST_F(RegistrationLife, RemovingLeavesExactlyTheStatedRemainder) {
  EXPECT_EQ(0u, life.removing);
  ExpectAdded(life.before, life.removed, RemainingLines());
}

TEST_F(RegistrationLife, ANewProcessFindsTheRemainderAndNoMore) {
  EXPECT_EQ(0u, life.remainderDeviations);
}

TEST_F(RegistrationLife, RemovingAgainSucceedsAndChangesNothing) {
  EXPECT_EQ(0u, life.removingAgain);
  EXPECT_EQ(life.removed, life.removedAgain);
}

TEST_F(RegistrationLife, WorksFromAnyProcess) {
  EXPECT_EQ(0u, life.direct);
  EXPECT_EQ(life.removed, life.afterDirect);
}

// Behind the life of the installation: where the platform registers (Windows, by its documentation;
// it was not seen there) this is one more registration, and what its removal leaves is there
// already.
TEST_F(RegistrationLife, InAProcessWithoutThePatchesReportsTheOneCode) {
  EXPECT_EQ(IsWine() ? static_cast<HRESULT>(0x8000FFFF) : S_OK,
            Export<HRESULT WINAPI()>("DllRegisterServer")());
  EXPECT_EQ(S_OK, Export<HRESULT WINAPI()>("DllUnregisterServer")());
}

}  // namespace
}  // namespace zarext::test
