// Certificates in the framework's stores, and what is compared and traced of them.
#ifndef ZAREXT_STORE_CERTIFICATES_H_
#define ZAREXT_STORE_CERTIFICATES_H_

#include <windows.h>

#include <wincrypt.h>

#include <span>

#include "frame/encoding_type.h"
#include "frame/handles.h"

namespace zarext {

using UniqueForcedStore = UniqueCertStore<CERT_CLOSE_STORE_FORCE_FLAG>;

// The certificates of a chain; none if it is empty or cannot be read (then with the last error).
UniqueForcedStore OpenChain(std::span<const BYTE> chain);

// Calls visit(context) for every certificate of a store.
template <typename Visit>
void ForEachCertificate(HCERTSTORE store, Visit visit) {
  UniqueCertContext context;
  do {
    // The enumeration takes the previous context with it.
    context = UniqueCertContext(CertEnumCertificatesInStore(store, context.Detach()));
    if (context) {
      visit(context.Get());
    }
  } while (context);
}

// An octet of the serial number as the traces show it; 0 where there is none.
unsigned int SerialOctet(const CERT_INFO& certificate, DWORD index) noexcept;

// Equal in length and octets.
bool IsSameBlob(const CRYPT_DATA_BLOB& left, const CRYPT_DATA_BLOB& right) noexcept;

inline bool IsSelfSigned(const CERT_INFO& certificate) noexcept {
  return IsSameBlob(certificate.Issuer, certificate.Subject);
}

}  // namespace zarext

#endif  // ZAREXT_STORE_CERTIFICATES_H_
