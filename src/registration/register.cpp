// DllRegisterServer: writes the module's registrations.
#include "zarext.h"

#include <windows.h>

#include <wincrypt.h>

#include "frame/export_frame.h"
#include "registration/crypt32_library.h"
#include "registration/function_bindings.h"
#include "registration/module_path.h"
#include "registration/oid_info.h"
#include "registration/oid_records.h"
#include "registration/physical_store.h"

namespace zarext {
namespace {

decltype(CryptRegisterOIDInfo)* registerOidInfo = nullptr;
decltype(CryptRegisterOIDFunction)* registerOidFunction = nullptr;
decltype(CertRegisterPhysicalStore)* registerPhysicalStore = nullptr;

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

}  // namespace
}  // namespace zarext

extern "C" HRESULT WINAPI DllRegisterServer() {
  using zarext::ExportTrace;
  return zarext::RunExport<HRESULT>("DllRegisterServer", E_UNEXPECTED,
                                    [](ExportTrace&) { return zarext::RegisterAll(); });
}
