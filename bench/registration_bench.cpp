// Registering the module against the bare framework calls that it makes: 68 records, 475 bindings
// and one physical store, with the same arguments, into the same registry. The same for removing.
//
// Run as registration_bench.exe --child=Bench: the test support's entry point is linked in.
#include <windows.h>

#include <wincrypt.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/ratio.h"
#include "contract/registration_expected.h"
#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

void Must(bool done) {
  if (!done) {
    throw std::runtime_error("a registration call failed");
  }
}

std::wstring Wide(const std::string& utf8) {
  std::wstring wide(utf8.size() + 1, L'\0');
  wide.resize(static_cast<std::size_t>(MultiByteToWideChar(
      CP_UTF8, 0, utf8.c_str(), -1, wide.data(), static_cast<int>(wide.size()))));
  return wide;
}

// The framework's calls with everything ready beforehand.
class BareCalls {
 public:
  BareCalls() : path_(MAX_PATH, L'\0') {
    path_.resize(GetModuleFileNameW(Module(), path_.data(), MAX_PATH));
    for (const ExpectedRecord& record : RegisteredRecords()) {
      names_.push_back(Wide(record.name));
    }
  }

  void Register() {
    const std::vector<ExpectedRecord>& records = RegisteredRecords();
    for (std::size_t row = 0; row < records.size(); ++row) {
      CRYPT_OID_INFO info = InfoOf(records[row], names_[row].data());
      Must(CryptRegisterOIDInfo(&info, CRYPT_INSTALL_OID_INFO_BEFORE_FLAG));
    }
    char provider[] = "Zarvel Store Provider";
    CERT_PHYSICAL_STORE_INFO store = {};
    store.cbSize = sizeof store;
    store.pszOpenStoreProvider = provider;
    store.dwOpenEncodingType = 0x10001;
    store.dwOpenFlags = 0x50000;
    store.OpenParameters = {sizeof provider - 1, reinterpret_cast<BYTE*>(provider)};
    store.dwFlags = 1;
    store.dwPriority = 1;
    Must(CertRegisterPhysicalStore(L"MY", CERT_SYSTEM_STORE_CURRENT_USER, L"Zarvel Store Provider",
                                   &store, nullptr));
    for (const ExpectedBinding& binding : registered_) {
      Must(CryptRegisterOIDFunction(binding.encodingType, binding.function.c_str(),
                                    binding.oid.c_str(), path_.c_str(),
                                    binding.exportName.c_str()));
    }
  }

  // Results are not looked at: what is gone already is refused.
  void Unregister() {
    CertUnregisterPhysicalStore(L"MY", 0x10010, L"Zarvel Store Provider");
    wchar_t noName[] = L"";
    for (const ExpectedRecord& record : RemovedRecords()) {
      CRYPT_OID_INFO info = InfoOf(record, noName);
      CryptUnregisterOIDInfo(&info);
    }
    for (const ExpectedBinding& binding : removed_) {
      CryptUnregisterOIDFunction(binding.encodingType, binding.function.c_str(),
                                 binding.oid.c_str());
    }
  }

 private:
  static CRYPT_OID_INFO InfoOf(const ExpectedRecord& record, const wchar_t* name) {
    CRYPT_OID_INFO info = {};
    info.cbSize = sizeof info;
    info.pszOID = record.oid.c_str();
    info.pwszName = name;
    info.dwGroupId = record.group;
    info.Algid = record.algorithm;
    info.ExtraInfo = {12, reinterpret_cast<BYTE*>(const_cast<DWORD*>(record.extra.data()))};
    return info;
  }

  std::wstring path_;
  std::vector<std::wstring> names_;
  const std::vector<ExpectedBinding> registered_ = RegisteredBindings();
  const std::vector<ExpectedBinding> removed_ = RemovedBindings();
};

ZAREXT_CHILD(Bench) {
  Must(ApplyFrameworkPatches());
  BareCalls bare;
  auto* const registerServer = Export<HRESULT WINAPI()>("DllRegisterServer");
  auto* const unregisterServer = Export<HRESULT WINAPI()>("DllUnregisterServer");
  bench::PrintHead();
  bench::CompareNeighbours(
      "DllRegisterServer : its 544 framework calls", 101, 1.1,
      [&] { Must(registerServer() == S_OK); }, [&] { bare.Register(); });
  bench::CompareNeighbours(
      "DllUnregisterServer, nothing there : its 518 framework calls", 101, 1.1,
      [&] { Must(unregisterServer() == S_OK); }, [&] { bare.Unregister(); });
  return 0;
}

}  // namespace
}  // namespace zarext::test
