// The containers and files that the steps hand on to each other.
#ifndef ZAREXT_TOOLS_DEMO_ACTORS_H_
#define ZAREXT_TOOLS_DEMO_ACTORS_H_

#include <windows.h>

#include <wincrypt.h>

#include <string>

#include "demo/story.h"
#include "frame/handles.h"
#include "support/provider_calls.h"
#include "support/store_fixes.h"

namespace zarext::demo {

// The folder with the certificates that OpenSSL made.
inline constexpr char kCertificatesVariable[] = "ZAREXT_DEMO_CERTIFICATES";

// A container's owner, the key that it gets, and how that key signs.
struct Actor {
  const char* container;
  DWORD providerType;
  ALG_ID algorithm;
  DWORD keySpec;
  const char* keyOid;
  const char* signatureOid;
};

// Of AES-128 in CBC mode. Windows has an information record for it; Wine gets one from the first
// step.
inline constexpr char kAes128Oid[] = "2.16.840.1.101.3.4.1.2";
inline constexpr char kMakersSignature[] = "1.3.6.1.4.1.32473.1.2.2";
inline constexpr char kNationalSignature[] = "1.2.398.3.10.1.1.2.3.1";

inline constexpr Actor kNational = {
    "demo-national", 25, 0x2A4A, AT_SIGNATURE, "1.2.398.3.10.1.1.2.1.1", kNationalSignature};
inline constexpr Actor kMaker = {
    "demo-maker", 25, 0xAA3A, AT_SIGNATURE, "1.3.6.1.4.1.32473.1.5.8", kMakersSignature};
inline constexpr Actor kRsa = {"demo-rsa",         1, AT_SIGNATURE, AT_SIGNATURE, szOID_RSA_RSA,
                               szOID_RSA_SHA256RSA};
inline constexpr Actor kAuthority = {
    "demo-authority", 25, 0xAA3A, AT_SIGNATURE, "1.3.6.1.4.1.32473.1.5.8", kMakersSignature};
inline constexpr Actor kSender = {
    "demo-sender", 25, 0xA045, AT_KEYEXCHANGE, "1.3.6.1.4.1.32473.1.8.8", nullptr};
inline constexpr Actor kFirst = {
    "demo-first", 25, 0xA045, AT_KEYEXCHANGE, "1.3.6.1.4.1.32473.1.8.8", nullptr};
inline constexpr Actor kSecond = {
    "demo-second", 25, 0xA045, AT_KEYEXCHANGE, "1.3.6.1.4.1.32473.1.8.8", nullptr};
// A key of the maker's with PKCS #1 signatures, which are the same each time.
inline constexpr Actor kMakersRsa = {
    "demo-makers-rsa", 25, 0xA452, AT_SIGNATURE, "1.3.6.1.4.1.32473.1.5.22", szOID_RSA_SHA256RSA};
inline constexpr char kNationalCopy[] = "demo-national-copy";
inline constexpr char kMakersRsaCopy[] = "demo-makers-rsa-copy";

// What a watched process holds while it acts: the module and the provider, which the platform would
// load and free around every call, and the fixes that Wine needs.
class Host {
 public:
  Host();

 private:
  test::Context provider_;
  test::StoreFixes fixes_;
};

// Told as calls: CryptAcquireContext, with CRYPT_NEWKEYSET or without; CryptGenKey, exportable.
test::Context NewContainer(const Actor& actor);
test::Context NewContainer(const char* container, DWORD providerType);
test::Context OpenContainer(const Actor& actor);
test::Key GenerateKey(const test::Context& context, const Actor& actor);

// A certificate that OpenSSL made, by its file name.
Octets ReadCertificate(const std::string& name);
// A certificate that an earlier step made, and the place for a later one's.
Octets ReadHandedOn(const Actor& actor);
void HandOn(const Actor& actor, const Octets& certificate);

// The common name in a certificate.
std::string SubjectName(PCCERT_CONTEXT certificate);
// Told as a call: the last error, 0 if the issuer's key made the certificate's signature.
DWORD Verify(const UniqueCertContext& certificate, const UniqueCertContext& issuer);

}  // namespace zarext::demo

#endif  // ZAREXT_TOOLS_DEMO_ACTORS_H_
