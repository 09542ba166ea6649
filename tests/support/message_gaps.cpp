#include "support/message_gaps.h"

#include <wincrypt.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "support/certificates.h"

namespace zarext::test {
namespace {

using Octets = std::vector<std::uint8_t>;
constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// 1.3.6.1.4.1.32473.999.2 and .3
constexpr char kContentOid[] = "1.3.6.1.4.1.32473.999.2";
constexpr char kKeyOid[] = "1.3.6.1.4.1.32473.999.3";

Octets Algorithm(std::uint8_t last) {
  return MakeElement(
      0x30, MakeElement(0x06, {0x2B, 0x06, 0x01, 0x04, 0x01, 0x81, 0xFD, 0x59, 0x87, 0x67, last}));
}

Octets Joined(const std::vector<Octets>& parts) {
  Octets all;
  for (const Octets& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Of an issuer without a name; the wrapped key is the recipient's number.
Octets Recipient(std::uint8_t number) {
  const Octets issuerAndSerial =
      MakeElement(0x30, Joined({MakeElement(0x30, {}), MakeElement(0x02, {number})}));
  return MakeElement(0x30, Joined({MakeElement(0x02, {0}), issuerAndSerial, Algorithm(3),
                                   MakeElement(0x04, {number})}));
}

// An enveloped message for two recipients, which nobody can open.
Octets MessageForTwo() {
  const Octets data = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
  const Octets content = MakeElement(
      0x30, Joined({MakeElement(0x06, Joined({data, {1}})), Algorithm(2), MakeElement(0x80, {0})}));
  const Octets enveloped =
      MakeElement(0x30, Joined({MakeElement(0x02, {0}),
                                MakeElement(0x31, Joined({Recipient(0), Recipient(1)})), content}));
  return MakeElement(
      0x30, Joined({MakeElement(0x06, Joined({data, {3}})), MakeElement(0xA0, enveloped)}));
}

std::optional<ImportDispatch> dispatched;

template <bool byContent>
BOOL WINAPI Import(PCRYPT_ALGORITHM_IDENTIFIER /*content*/, PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA para,
                   DWORD /*flags*/, void* /*reserved*/, HCRYPTKEY* key) {
  dispatched = {byContent, para->pKeyTrans->EncryptedKey.pbData[0]};
  *key = 0;
  SetLastError(static_cast<DWORD>(NTE_BAD_DATA));
  return FALSE;
}

void Install(const char* oid, void* function) {
  const CRYPT_OID_FUNC_ENTRY entry = {oid, function};
  CryptInstallOIDFunctionAddress(nullptr, X509_ASN_ENCODING, CMSG_OID_IMPORT_KEY_TRANS_FUNC, 1,
                                 &entry, 0);
}

}  // namespace

ImportDispatch DispatchOfImport() {
  static const ImportDispatch dispatch = [] {
    Install(kContentOid, reinterpret_cast<void*>(&Import<true>));
    Install(kKeyOid, reinterpret_cast<void*>(&Import<false>));
    HCRYPTPROV provider = 0;
    CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT);
    const HCRYPTMSG message = CryptMsgOpenToDecode(kEncoding, 0, 0, 0, nullptr, nullptr);
    const Octets encoded = MessageForTwo();
    CryptMsgUpdate(message, encoded.data(), static_cast<DWORD>(encoded.size()), TRUE);
    CMSG_CTRL_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = provider;
    para.dwKeySpec = AT_KEYEXCHANGE;
    para.dwRecipientIndex = 1;
    CryptMsgControl(message, 0, CMSG_CTRL_DECRYPT, &para);
    CryptMsgClose(message);
    CryptReleaseContext(provider, 0);
    if (!dispatched) {
      throw std::runtime_error("no function of the process' own is called for a message's key");
    }
    return *dispatched;
  }();
  return dispatch;
}

bool ContentAlgorithmIsUnknown(const char* oid) {
  CMSG_ENVELOPED_ENCODE_INFO info = {};
  info.cbSize = sizeof info;
  info.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(oid);
  const HCRYPTMSG message =
      CryptMsgOpenToEncode(kEncoding, 0, CMSG_ENVELOPED, &info, nullptr, nullptr);
  const DWORD error = GetLastError();
  CryptMsgClose(message);
  return message == nullptr && error == static_cast<DWORD>(CRYPT_E_UNKNOWN_ALGO);
}

}  // namespace zarext::test
