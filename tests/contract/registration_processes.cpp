// Processes that are started before and after a registration, and look at what the framework makes
// of it, which reads the records when it is loaded. The exit code of each is the number of
// deviations, which the standard output names.
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "contract/registration_registry.h"
#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

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

}  // namespace zarext::test
