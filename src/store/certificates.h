// Certificates in the framework's stores, and what is compared and traced of them.
#ifndef ZAREXT_STORE_CERTIFICATES_H_
#define ZAREXT_STORE_CERTIFICATES_H_

#include <algorithm>
#include <span>

#include "frame/encoding_type.h"
#include "frame/handles.h"

namespace zarext {

using UniqueForcedStore = UniqueCertStore<CERT_CLOSE_STORE_FORCE_FLAG>;

// The certificates of a chain. If it is empty or cannot be read, calls fail(code) with the last
// error, and there are none.
template <typename Fail>
UniqueForcedStore OpenChain(std::span<const BYTE> chain, Fail fail) {
  UniqueForcedStore message;
  if (!chain.empty()) {
    message.Reset(CryptGetMessageCertificates(kBothEncodings, 0, 0, chain.data(),
                                              static_cast<DWORD>(chain.size())));
  }
  if (!message) {
    fail(GetLastError());
  }
  return message;
}

// Calls visit(context) for every certificate of a store.
template <typename Visit>
void ForEachCertificate(HCERTSTORE store, Visit visit) {
  // The enumeration takes the previous context with it.
  for (UniqueCertContext context(CertEnumCertificatesInStore(store, nullptr)); context;
       context.Reset(CertEnumCertificatesInStore(store, context.Detach()))) {
    visit(context.Get());
  }
}

// An octet of the serial number as the traces show it; 0 where there is none.
inline unsigned int SerialOctet(const CERT_INFO& certificate, DWORD index) noexcept {
  const CRYPT_INTEGER_BLOB& serial = certificate.SerialNumber;
  return index < serial.cbData ? serial.pbData[index] : 0;
}

// Equal in length and octets.
inline bool IsSameBlob(const CRYPT_DATA_BLOB& left, const CRYPT_DATA_BLOB& right) noexcept {
  return std::equal(left.pbData, left.pbData + left.cbData, right.pbData,
                    right.pbData + right.cbData);
}

inline bool IsSelfSigned(const CERT_INFO& certificate) noexcept {
  return IsSameBlob(certificate.Issuer, certificate.Subject);
}

}  // namespace zarext

#endif  // ZAREXT_STORE_CERTIFICATES_H_
