#include "contract/registration_registry.h"

#include <cstdio>
#include <map>
#include <utility>

#include "support/child_process.h"

namespace zarext::test {
namespace {

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

void Append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

}  // namespace

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

std::vector<std::string> AllLines() {
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

std::vector<std::string> RemainingLines() {
  Lines lines = ParentKeys();
  for (const ExpectedRecord& record : RemainingRecords()) {
    Append(lines, RecordLines(record));
  }
  for (const ExpectedBinding& binding : RemainingBindings()) {
    Append(lines, BindingLines(binding));
  }
  return lines;
}

}  // namespace zarext::test
