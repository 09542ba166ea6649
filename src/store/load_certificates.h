// Fills a store with the certificates of the provider's containers.
#ifndef ZAREXT_STORE_LOAD_CERTIFICATES_H_
#define ZAREXT_STORE_LOAD_CERTIFICATES_H_

#include <windows.h>
#include <wincrypt.h>

#include <cstdint>

namespace zarext {

// Adds to `hCertStore` the certificates of the cached listing, which is read from the provider when
// it is older than 60 seconds or empty; a walk also puts the self-signed certificates of the keys'
// chains into the user's "ROOT" store. Returns 1. Throws an ErrorCode when there is no provider
// module, and 3 when a provider name cannot be converted; everything else is passed over. A load
// inside another one of the same thread adds what is listed so far. The caller holds the store-open
// critical section: nothing here throws for want of memory.
std::int32_t load_certs_from_CSP(HCERTSTORE hCertStore);

}  // namespace zarext

#endif  // ZAREXT_STORE_LOAD_CERTIFICATES_H_
