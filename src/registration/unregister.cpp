// DllUnregisterServer: removes most of what DllRegisterServer wrote.
#include "zarext.h"

#include <windows.h>

#include <wincrypt.h>

#include "frame/export_frame.h"
#include "registration/crypt32_library.h"
#include "registration/module_path.h"
#include "registration/oid_info.h"
#include "registration/physical_store.h"
#include "registration/removals.h"

namespace zarext {
namespace {

decltype(CryptUnregisterOIDInfo)* unregisterOidInfo = nullptr;
decltype(CryptUnregisterOIDFunction)* unregisterOidFunction = nullptr;
decltype(CertUnregisterPhysicalStore)* unregisterPhysicalStore = nullptr;

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

extern "C" HRESULT WINAPI DllUnregisterServer() {
  using zarext::ExportTrace;
  return zarext::RunExport<HRESULT>("DllUnregisterServer", E_UNEXPECTED,
                                    [](ExportTrace&) { return zarext::UnregisterAll(); });
}
