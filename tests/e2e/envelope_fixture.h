// Parties of an enveloped message: containers of the development provider, their exchange keys, and
// certificates for them from a real issuer.
#ifndef ZAREXT_TESTS_E2E_ENVELOPE_FIXTURE_H_
#define ZAREXT_TESTS_E2E_ENVELOPE_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "contract/provider_fixture.h"
#include "e2e/key_holder.h"
#include "frame/handles.h"
#include "support/enveloped_message.h"
#include "support/issued_certificate.h"
#include "support/module_under_test.h"
#include "support/trace_capture.h"

namespace zarext::test {

// ALG_ID of the exchange keys that make 80-octet blobs, and the OID of such a key.
inline constexpr ALG_ID kExchangeAlgId = 0xA045;
inline constexpr char kExchangeOid[] = "1.3.6.1.4.1.32473.1.8.8";

// A container with a fresh exchange key.
class Party : public KeyHolder {
 public:
  explicit Party(const char* container, ALG_ID algId = kExchangeAlgId, DWORD type = 25,
                 DWORD keyFlags = 0)
      : KeyHolder(container, algId, type, keyFlags) {}
};

// An RSA certification authority in the RSA companion provider.
class Issuer {
 public:
  Issuer() : context_(NewContainer("issuer", 1)), key_(Generate(context_, AT_SIGNATURE)) {}

  // A certificate whose public key is the party's whole blob, under `keyOid`.
  [[nodiscard]] UniqueCertContext Certify(const Party& party, const char* keyOid) const {
    return Certify(SubjectKey(keyOid, party.PublicBlob()));
  }
  [[nodiscard]] UniqueCertContext Certify(const SubjectKey& key) const {
    return CertificateContext(IssueCertificate(
        {context_.Get(), AT_SIGNATURE, szOID_RSA_SHA256RSA, "Issuer"}, "Party", key, ++serial_));
  }

 private:
  Context context_;
  Key key_;
  mutable std::uint8_t serial_ = 0;
};

// A sender, a recipient and a message between them.
class EnvelopeTest : public ProviderTest {
 protected:
  EnvelopeTest() { Module(); }

  BOOL Encrypt(const char* contentOid, HCRYPTPROV provider,
               const std::vector<PCCERT_CONTEXT>& recipients) {
    CRYPT_ENCRYPT_MESSAGE_PARA para = {};
    para.cbSize = sizeof para;
    para.dwMsgEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    para.hCryptProv = provider;
    para.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(contentOid);
    SetLastError(0);
    return EncryptMessage(&para, recipients, content, &message);
  }

  [[nodiscard]] bool MessageHolds(const Octets& octets) const {
    return std::search(message.begin(), message.end(), octets.begin(), octets.end()) !=
           message.end();
  }

  ZeroedFrameworkMemory zeroedFrameworkMemory;
  Party sender{"sender"};
  Party recipient{"recipient"};
  Issuer issuer;
  Octets content = {'c', 'o', 'n', 't', 'e', 'n', 't'};
  Octets message;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_ENVELOPE_FIXTURE_H_
