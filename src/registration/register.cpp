// DllRegisterServer: writes the module's registrations.
#include "zarext.h"

#include <windows.h>

#include <wincrypt.h>

#include <cstring>

#include "frame/export_frame.h"
#include "registration/crypt32_library.h"
#include "registration/function_bindings.h"
#include "registration/module_path.h"
#include "registration/oid_info.h"
#include "registration/oid_records.h"
#include "registration/physical_store.h"

namespace zarext {
namespace {

static_assert(sizeof(CERT_PHYSICAL_STORE_INFO) == 48);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, pszOpenStoreProvider) == 8);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwOpenEncodingType) == 16);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwOpenFlags) == 20);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, OpenParameters) == 24);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwFlags) == 40);
static_assert(offsetof(CERT_PHYSICAL_STORE_INFO, dwPriority) == 44);

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

BOOL RegisterPhysicalStore() {
  char provider[sizeof kStoreProvider];
  std::memcpy(provider, kStoreProvider, sizeof provider);
  CERT_PHYSICAL_STORE_INFO info = {};
  info.cbSize = sizeof info;
  info.pszOpenStoreProvider = provider;
  info.dwOpenEncodingType = physical_store::kOpenEncodingType;
  info.dwOpenFlags = physical_store::kOpenFlags;
  info.OpenParameters = {physical_store::kParametersSize, reinterpret_cast<BYTE*>(provider)};
  info.dwFlags = physical_store::kFlags;
  info.dwPriority = physical_store::kPriority;
  return registerPhysicalStore(physical_store::kSystemStore, physical_store::kLocation,
                               kStoreProviderWide, &info, nullptr);
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
  RequireSuccess(RegisterPhysicalStore());
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
