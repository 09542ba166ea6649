// Signed messages, through the framework.
#ifndef ZAREXT_TESTS_SUPPORT_SIGNED_MESSAGE_H_
#define ZAREXT_TESTS_SUPPORT_SIGNED_MESSAGE_H_

#include <windows.h>

#include <wincrypt.h>

#include "support/provider_calls.h"

namespace zarext::test {

inline constexpr DWORD kMessageEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// Signed with the key that the certificate's property points to; the certificate goes along.
inline Octets SignMessage(PCCERT_CONTEXT signer, const char* hashOid, const Octets& content) {
  CRYPT_SIGN_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgEncodingType = kMessageEncoding;
  para.pSigningCert = signer;
  para.HashAlgorithm.pszObjId = const_cast<char*>(hashOid);
  para.cMsgCert = 1;
  para.rgpMsgCert = &signer;
  const BYTE* parts[] = {content.data()};
  DWORD sizes[] = {static_cast<DWORD>(content.size())};
  return Fetch("CryptSignMessage", [&](BYTE* data, DWORD* size) {
    return CryptSignMessage(&para, FALSE, 1, parts, sizes, data, size);
  });
}

// The last error of the check; 0, and what was signed, if the signature is right.
inline DWORD VerifyMessage(const Octets& message, Octets* content) {
  CRYPT_VERIFY_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgAndCertEncodingType = kMessageEncoding;
  content->resize(message.size());
  auto size = static_cast<DWORD>(content->size());
  const DWORD code = CodeOf(CryptVerifyMessageSignature(&para, 0, message.data(),
                                                        static_cast<DWORD>(message.size()),
                                                        content->data(), &size, nullptr));
  content->resize(code == 0 ? size : 0);
  return code;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_SIGNED_MESSAGE_H_
