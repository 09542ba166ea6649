#include "store/certificates.h"

#include <algorithm>

namespace zarext {

UniqueForcedStore OpenChain(std::span<const BYTE> chain) {
  return chain.empty() ? UniqueForcedStore()
                       : UniqueForcedStore(CryptGetMessageCertificates(
                             kBothEncodings, 0, 0, chain.data(), static_cast<DWORD>(chain.size())));
}

unsigned int SerialOctet(const CERT_INFO& certificate, DWORD index) noexcept {
  const CRYPT_INTEGER_BLOB& serial = certificate.SerialNumber;
  return index < serial.cbData ? serial.pbData[index] : 0;
}

bool IsSameBlob(const CRYPT_DATA_BLOB& left, const CRYPT_DATA_BLOB& right) noexcept {
  return std::equal(left.pbData, left.pbData + left.cbData, right.pbData,
                    right.pbData + right.cbData);
}

}  // namespace zarext
