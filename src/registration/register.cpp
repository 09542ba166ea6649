// DllRegisterServer writes the module's registrations; DllUnregisterServer removes most of them.
#include "zarext.h"

#include <array>
#include <memory>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/module_state.h"
#include "registration/function_bindings.h"
#include "registration/oid_info.h"
#include "registration/oid_records.h"
#include "registration/physical_store.h"
#include "registration/removals.h"

namespace zarext {
namespace {

decltype(CryptRegisterOIDInfo)* registerOidInfo = nullptr;
decltype(CryptRegisterOIDFunction)* registerOidFunction = nullptr;
decltype(CertRegisterPhysicalStore)* registerPhysicalStore = nullptr;
decltype(CryptUnregisterOIDInfo)* unregisterOidInfo = nullptr;
decltype(CryptUnregisterOIDFunction)* unregisterOidFunction = nullptr;
decltype(CertUnregisterPhysicalStore)* unregisterPhysicalStore = nullptr;

// crypt32, loaded by name and asked for its registration functions: the module loads on systems
// that lack one of them.
class Crypt32Library {
 public:
  Crypt32Library() : library_(LoadLibraryA("crypt32")) {
    RequireSuccess(static_cast<bool>(library_));
  }

  // Puts the address of `name` into `function`, null if there is none, and then throws the last
  // error.
  template <typename Function>
  void Find(const char* name, Function*& function) const {
    function =
        reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library_.Get(), name)));
    RequireSuccess(function != nullptr);
  }

  // crypt32 keeps the reference that this use took.
  void StayLoaded() noexcept { static_cast<void>(library_.Detach()); }

 private:
  UniqueModule library_;
};

// Characters of a path with its terminating zero; a longer path is cut.
constexpr DWORD kModulePathSize = 260;
using WideModulePath = std::array<wchar_t, kModulePathSize>;

// The module's full path, read in the ANSI code page and then widened: a folder whose name that
// code page cannot spell is registered with replacement characters, and the framework does not find
// it.
WideModulePath ReadModulePath() {
  const auto narrow = std::make_unique<char[]>(kModulePathSize);
  RequireSuccess(GetModuleFileNameA(ModuleInstance(), narrow.get(), kModulePathSize) != 0);
  // Older systems fill the buffer with a cut path and leave no room for the zero.
  narrow[kModulePathSize - 1] = '\0';
  WideModulePath wide{};
  RequireSuccess(MultiByteToWideChar(CP_ACP, 0, narrow.get(), -1, wide.data(), kModulePathSize) !=
                 0);
  return wide;
}

void RegisterRecords(OidInfo& info) {
  for (const OidRecord& record : records::kTable) {
    info.SetExtra(record.extra);
    RequireSuccess(registerOidInfo(info.Fill(record), CRYPT_INSTALL_OID_INFO_BEFORE_FLAG) != FALSE);
  }
  // Whoever kept the address of the values finds the initial ones from here on.
  info.SetExtra(records::kInitialExtra);
}

BOOL Register(const Binding& binding, const WideModulePath& path) {
  return registerOidFunction(binding.encodingType, binding.function, binding.oid, path.data(),
                             binding.exportName);
}

// Stops at the first failure and takes nothing back.
HRESULT RegisterAll() {
  Crypt32Library crypt32;
  crypt32.Find("CryptRegisterOIDInfo", registerOidInfo);
  crypt32.Find("CryptRegisterOIDFunction", registerOidFunction);
  crypt32.Find("CertRegisterPhysicalStore", registerPhysicalStore);

  OidInfo info;
  RegisterRecords(info);
  const WideModulePath path = ReadModulePath();
  if (!Register(bindings::kStore.At(0), path)) {
    // The one failure that leaves crypt32 loaded, as its reference count shows.
    crypt32.StayLoaded();
    return E_UNEXPECTED;
  }
  RequireSuccess(physical_store::Register(registerPhysicalStore));
  ForEachKeyBinding([&](const Binding& binding) { RequireSuccess(Register(binding, path)); });
  return S_OK;
}

// What the framework refuses to remove is passed over: it is gone already, as a rule.
HRESULT UnregisterAll() {
  Crypt32Library crypt32;
  crypt32.Find("CryptUnregisterOIDInfo", unregisterOidInfo);
  crypt32.Find("CryptUnregisterOIDFunction", unregisterOidFunction);
  crypt32.Find("CertUnregisterPhysicalStore", unregisterPhysicalStore);

  unregisterPhysicalStore(physical_store::kSystemStore,
                          physical_store::kLocation | CERT_STORE_DELETE_FLAG, kStoreProviderWide);
  OidInfo info;
  ForEachRemovedRecord([&](const OidRecord& record) { unregisterOidInfo(info.Fill(record)); });
  // Nothing below needs the path. A path that cannot be read ends the call all the same, and an
  // administrator finds the bindings still in place.
  static_cast<void>(ReadModulePath());
  ForEachRemovedBinding([](const Binding& binding) {
    unregisterOidFunction(binding.encodingType, binding.function, binding.oid);
  });
  return S_OK;
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" HRESULT WINAPI DllRegisterServer() {
  return RunExport<HRESULT>("DllRegisterServer", E_UNEXPECTED,
                            [](ExportTrace&) { return RegisterAll(); });
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
  return RunExport<HRESULT>("DllUnregisterServer", E_UNEXPECTED,
                            [](ExportTrace&) { return UnregisterAll(); });
}
