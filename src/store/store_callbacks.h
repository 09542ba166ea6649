// The functions through which the framework reaches an open store. hStoreProv is the framework's
// own memory store, which holds the certificates; the signatures are the framework's.
#ifndef ZAREXT_STORE_STORE_CALLBACKS_H_
#define ZAREXT_STORE_STORE_CALLBACKS_H_

#include <windows.h>
#include <wincrypt.h>

namespace zarext {

// Fills all 40 octets: the table of callbacks, and the framework's store as the provider's handle.
void DescribeStore(HCERTSTORE hCertStore, CERT_STORE_PROV_INFO* info) noexcept;

// Closes the framework's store by force; the framework closes it once more.
BOOL WINAPI CertStoreProvCloseCallback(HCERTSTOREPROV hStoreProv, DWORD dwFlags);

// Always FALSE.
BOOL WINAPI CertStoreProvReadCertCallback(HCERTSTOREPROV hStoreProv,
                                          PCCERT_CONTEXT pStoreCertContext, DWORD dwFlags,
                                          PCCERT_CONTEXT* ppProvCertContext);

// Writes an added certificate into the provider: a self-signed one into the chain of one key of
// every container that lacks it, any other into the first key without a certificate that takes
// it. TRUE if it is in one afterwards.
BOOL WINAPI CertStoreProvWriteCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                           DWORD dwFlags);

// Always FALSE: nothing can be deleted from such a store.
BOOL WINAPI CertStoreProvDeleteCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                            DWORD dwFlags);

// Finds in the framework's store. TRUE also when nothing was found; FALSE with 87 without a find
// record or a place for the result.
BOOL WINAPI CertStoreProvFindCert(HCERTSTOREPROV hStoreProv, PCCERT_STORE_PROV_FIND_INFO pFindInfo,
                                  PCCERT_CONTEXT pPrevCertContext, DWORD dwFlags,
                                  void** ppvStoreProvFindInfo, PCCERT_CONTEXT* ppProvCertContext);

BOOL WINAPI CertStoreProvFreeFindCert(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                      void* pvStoreProvFindInfo, DWORD dwFlags);

// The property of the context, which the framework's store keeps. FALSE with 87 without a context
// or a place for the length.
BOOL WINAPI CertStoreProvGetCertProperty(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                         DWORD dwPropId, DWORD dwFlags, void* pvData,
                                         DWORD* pcbData);

// These two are not in the table: the framework keeps properties and revocation lists to itself.
BOOL WINAPI CertStoreProvSetCertPropertyCallback(HCERTSTOREPROV hStoreProv,
                                                 PCCERT_CONTEXT pCertContext, DWORD dwPropId,
                                                 DWORD dwFlags, const void* pvData);
BOOL WINAPI CertStoreProvWriteCRLCallback(HCERTSTOREPROV hStoreProv, PCCRL_CONTEXT pCrlContext,
                                          DWORD dwFlags);

}  // namespace zarext

#endif  // ZAREXT_STORE_STORE_CALLBACKS_H_
