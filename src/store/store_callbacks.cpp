#include "store/store_callbacks.h"

#include <cstddef>
#include <iterator>

#include "frame/export_frame.h"
#include "frame/provider_binding.h"

namespace zarext {
namespace {

template <typename Function>
void* Slot(Function* function) {
  return reinterpret_cast<void*>(function);
}

// In the framework's order of slots. Null where the framework's own store does the work, also for
// the two functions that are not in the table: callers who set properties on the store's
// certificates, or add revocation lists to it, would see the difference.
void* callbackTable[] = {
    Slot(CertStoreProvCloseCallback),
    Slot(CertStoreProvReadCertCallback),
    Slot(CertStoreProvWriteCertCallback),
    Slot(CertStoreProvDeleteCertCallback),
    nullptr,  // set property of a certificate
    nullptr,  // revocation lists: read, write, delete, set property
    nullptr,
    nullptr,
    nullptr,
    nullptr,  // trust lists: the same four
    nullptr,
    nullptr,
    nullptr,
    nullptr,  // control
    Slot(CertStoreProvFindCert),
    Slot(CertStoreProvFreeFindCert),
    Slot(CertStoreProvGetCertProperty),
};
static_assert(std::size(callbackTable) == CERT_STORE_PROV_GET_CERT_PROPERTY_FUNC + 1);
static_assert(sizeof(CERT_STORE_PROV_INFO) == 40);

// What the traces show of a certificate; a missing one shows as "(null)" and 0.
const char* SignatureOid(PCCERT_CONTEXT context) noexcept {
  return context == nullptr || context->pCertInfo == nullptr
             ? nullptr
             : context->pCertInfo->SignatureAlgorithm.pszObjId;
}
int EncodedSize(PCCERT_CONTEXT context) noexcept {
  return context == nullptr ? 0 : Int(context->cbCertEncoded);
}

}  // namespace

void DescribeStore(HCERTSTORE hCertStore, CERT_STORE_PROV_INFO* info) noexcept {
  *info = {};
  info->cbSize = sizeof *info;
  info->cStoreProvFunc = static_cast<DWORD>(std::size(callbackTable));
  info->rgpvStoreProvFunc = callbackTable;
  info->hStoreProv = hCertStore;
}

BOOL WINAPI CertStoreProvCloseCallback(HCERTSTOREPROV hStoreProv, DWORD dwFlags) {
  return RunExport("CertStoreProvCloseCallback", [&](ExportTrace& trace) {
    trace.WholeLine("EXT : CertStoreProvCloseCallback [hCertStore = %X] [dwFlags = %X, hLib = %x]",
                    Hex(hStoreProv), Hex(dwFlags), Hex(ProviderModule()));
    if (hStoreProv != nullptr) {
      CertCloseStore(hStoreProv, CERT_CLOSE_STORE_FORCE_FLAG);
    }
  });
}

BOOL WINAPI CertStoreProvReadCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT /*context*/,
                                          DWORD dwFlags, PCCERT_CONTEXT* /*result*/) {
  return RunExport("CertStoreProvReadCertCallback", [&](ExportTrace& trace) -> BOOL {
    trace.WholeLine("EXT : CertStoreProvReadCertCallback [hCertStore = %X] [dwFlags = %X]",
                    Hex(hStoreProv), Hex(dwFlags));
    return FALSE;
  });
}

BOOL WINAPI CertStoreProvDeleteCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                            DWORD /*dwFlags*/) {
  return RunExport("CertStoreProvDeleteCertCallback", [&](ExportTrace& trace) -> BOOL {
    trace.WholeLine(
        "EXT : CertStoreProvDeleteCertCallback [hCertStore = %X] [pszObjId = %s, size = %i]",
        Hex(hStoreProv), SignatureOid(pCertContext), EncodedSize(pCertContext));
    return FALSE;
  });
}

BOOL WINAPI CertStoreProvFindCert(HCERTSTOREPROV hStoreProv, PCCERT_STORE_PROV_FIND_INFO pFindInfo,
                                  PCCERT_CONTEXT pPrevCertContext, DWORD dwFlags,
                                  void** /*ppvStoreProvFindInfo*/,
                                  PCCERT_CONTEXT* ppProvCertContext) {
  return RunExport("CertStoreProvFindCert", [&](ExportTrace& trace) {
    trace.WholeLine("EXT : CertStoreProvFindCert [hCertStore = %X] [dwFlags = %X]", Hex(hStoreProv),
                    Hex(dwFlags));
    RequireParameter(pFindInfo != nullptr && ppProvCertContext != nullptr);
    // TRUE also when nothing is found: the framework looks at the context alone.
    *ppProvCertContext = CertFindCertificateInStore(hStoreProv, pFindInfo->dwMsgAndCertEncodingType,
                                                    pFindInfo->dwFindFlags, pFindInfo->dwFindType,
                                                    pFindInfo->pvFindPara, pPrevCertContext);
  });
}

BOOL WINAPI CertStoreProvFreeFindCert(HCERTSTOREPROV /*hStoreProv*/, PCCERT_CONTEXT /*context*/,
                                      void* /*pvStoreProvFindInfo*/, DWORD /*dwFlags*/) {
  return RunExport("CertStoreProvFreeFindCert",
                   [](ExportTrace& trace) { trace.WholeLine("EXT : CertStoreProvFreeFindCert"); });
}

BOOL WINAPI CertStoreProvGetCertProperty(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                         DWORD dwPropId, DWORD /*dwFlags*/, void* pvData,
                                         DWORD* pcbData) {
  return RunExport("CertStoreProvGetCertProperty", [&](ExportTrace& trace) -> BOOL {
    trace.WholeLine("EXT : CertStoreProvGetCertProperty [hCertStore = %X] [dwPropId = %X]",
                    Hex(hStoreProv), Hex(dwPropId));
    RequireParameter(pCertContext != nullptr && pcbData != nullptr);
    return CertGetCertificateContextProperty(pCertContext, dwPropId, pvData, pcbData);
  });
}

BOOL WINAPI CertStoreProvSetCertPropertyCallback(HCERTSTOREPROV hStoreProv,
                                                 PCCERT_CONTEXT pCertContext, DWORD dwPropId,
                                                 DWORD /*dwFlags*/, const void* /*pvData*/) {
  return RunExport("CertStoreProvSetCertPropertyCallback", [&](ExportTrace& trace) {
    trace.WholeLine(
        "EXT : CertStoreProvSetCertPropertyCallback [hCertStore = %X] [dwPropId = %X] [pszObjId = "
        "%s, size = %i]",
        Hex(hStoreProv), Hex(dwPropId), SignatureOid(pCertContext), EncodedSize(pCertContext));
  });
}

BOOL WINAPI CertStoreProvWriteCRLCallback(HCERTSTOREPROV /*hStoreProv*/,
                                          PCCRL_CONTEXT /*pCrlContext*/, DWORD /*dwFlags*/) {
  return RunExport("CertStoreProvWriteCRLCallback", [](ExportTrace& trace) -> BOOL {
    trace.WholeLine("CertStoreProvWriteCRLCallback");
    return FALSE;
  });
}

}  // namespace zarext
