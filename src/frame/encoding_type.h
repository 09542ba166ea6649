// The encoding type of everything that the module reads and registers for both kinds.
#ifndef ZAREXT_FRAME_ENCODING_TYPE_H_
#define ZAREXT_FRAME_ENCODING_TYPE_H_

#include <windows.h>
#include <wincrypt.h>

namespace zarext {

// 0x10001.
inline constexpr DWORD kBothEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace zarext

#endif  // ZAREXT_FRAME_ENCODING_TYPE_H_
