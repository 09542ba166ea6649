#include "frame/export_frame.h"
#include "frame/provider_type.h"
#include "store/container_cache.h"
#include "store/load_certificates.h"
#include "store/store_callbacks.h"

namespace zarext {
namespace {

bool IsServedProvider(HCRYPTPROV hCryptProv) {
  return IsServedProviderType(ReadProviderType(hCryptProv, [](ErrorCode code) { throw code; }));
}

BOOL OpenStore(ExportTrace& trace, HCRYPTPROV hCryptProv, HCERTSTORE hCertStore,
               CERT_STORE_PROV_INFO* pStoreProvInfo) {
  if (hCryptProv != 0 && !IsServedProvider(hCryptProv)) {
    // No closing line and no last error, unlike any other failure: callers try the store with every
    // provider that they have.
    return FALSE;
  }
  // No owner type holds the section: a load that throws leaves it entered, and opens of other
  // threads wait from then on.
  TContainerCache::EnterOpenSection();
  const std::int32_t loaded = load_certs_from_CSP(hCertStore);
  TContainerCache::LeaveOpenSection();
  if (loaded != 1) {
    return FALSE;
  }
  RequireParameter(pStoreProvInfo != nullptr);
  DescribeStore(hCertStore, pStoreProvInfo);
  trace.Line("FINISH");
  return TRUE;
}

// Every failure but that of the provider's type ends with the same line.
void EndFailedOpen(ExportTrace& trace, ErrorCode code) {
  SetLastError(code);
  trace.Line("FINISH");
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" BOOL WINAPI ZarOpenStoreProv(LPCSTR lpszStoreProvider, DWORD /*dwEncodingType*/,
                                        HCRYPTPROV hCryptProv, DWORD dwFlags,
                                        const void* /*pvPara*/, HCERTSTORE hCertStore,
                                        CERT_STORE_PROV_INFO* pStoreProvInfo) {
  return RunExport("ZarOpenStoreProv", [&](ExportTrace& trace) {
    // The framework's built-in providers have numbers instead of names.
    const char* const name = IS_INTRESOURCE(lpszStoreProvider) ? nullptr : lpszStoreProvider;
    trace.WholeLine(
        "EXT : ZarOpenStoreProv [lpszStoreProvider = %s] [hCryptProv = %x] [dwFlags = %X] "
        "[hCertStore = %p]",
        name, Hex(hCryptProv), Hex(dwFlags), hCertStore);
    BOOL result = FALSE;
    RunGuarded(
        [&](ErrorCode code) {
          trace.Line("ERROR = %x", Hex(code));
          EndFailedOpen(trace, code);
        },
        [&] {
          trace.Line("ERROR");
          EndFailedOpen(trace, static_cast<ErrorCode>(NTE_NO_MEMORY));
        },
        [&] { result = OpenStore(trace, hCryptProv, hCertStore, pStoreProvInfo); });
    return result;
  });
}
