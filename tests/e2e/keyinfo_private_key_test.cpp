// Private keys from one container to another. This framework never calls the two exports; they are
// called as it would.
#include "e2e/keyinfo_setup.h"
#include "support/module_calls.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

using PrivateKeys = KeyFrameworkTest;

BOOL ImportInto(const Context& context, CRYPT_PRIVATE_KEY_INFO* info) {
  return test::Export<ImportPrivKeyFunc>("ZarImportPrivKeyFunc")(context.Get(), info,
                                                                 CRYPT_EXPORTABLE, nullptr);
}

TEST_F(PrivateKeys, MoveFromContainerToContainer) {
  for (const ALG_ID algorithm : {0xAA3Au, 0xAA4Cu, 0xA450u}) {
    const std::string name = std::to_string(algorithm);
    const KeyHolder holder(name.c_str(), algorithm, 25, CRYPT_EXPORTABLE);
    PrivateKeyInfo info(holder.Provider(), AT_SIGNATURE);
    EXPECT_NE(std::string::npos,
              std::string(info.Get()->Algorithm.pszObjId).find("1.3.6.1.4.1.32473.1.5."));
    const Context target = NewContainer(("to" + name).c_str());
    ASSERT_EQ(TRUE, ImportInto(target, info.Get()));
    EXPECT_EQ(holder.PublicBlob(), Export(UserKey(target, AT_SIGNATURE), PUBLICKEYBLOB));
    // What one signs the other's key checks.
    const ALG_ID hash = algorithm == 0xA450 ? CALG_SHA_256 : algorithm == 0xAA3A ? 0x801D : 0x8023;
    const Octets data = {1, 2, 3};
    const Octets signature = SignData(target, AT_SIGNATURE, hash, data);
    const Key check = Import(holder.Own(), holder.PublicBlob());
    EXPECT_EQ(0u, VerifyCode(holder.Own(), check.Get(), hash, data, signature));
    // Once more: the key exists, which is no failure.
    EXPECT_EQ(TRUE, ImportInto(target, info.Get()));
  }
}

// The key that a second container gets is the same one: both check each other's signatures, and
// where a signature has no random part both make the same.
TEST_F(PrivateKeys, TheCopySignsLikeTheOriginal) {
  const Octets data = {1, 2, 3};
  const KeyHolder national("national", 0x2A4A, 25, CRYPT_EXPORTABLE);
  TraceCapture trace;
  PrivateKeyInfo info(national.Provider(), AT_SIGNATURE);
  EXPECT_STREQ("1.2.398.3.10.1.1.2.1.1", info.Get()->Algorithm.pszObjId);
  const Context copy = NewContainer("national-copy");
  ASSERT_EQ(TRUE, ImportInto(copy, info.Get()));
  // Asked for the size, for the key (an ECPrivateKey with curve and public value), and imported.
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(AllOf(StartsWith("EXT : ZarExportPrivKeyFunc : hCryptProv = "),
                        EndsWith(", dwKeySpec = 2, pszPrivateKeyObjId = (null).")),
                  AllOf(StartsWith("EXT : ZarExportPrivKeyFunc : hCryptProv = "),
                        EndsWith(", dwKeySpec = 2, pszPrivateKeyObjId = (null).")),
                  "EXT : ZarExportPrivKeyFunc : Algorithm.pszObjId = 1.2.398.3.10.1.1.2.1.1, "
                  "Parameters.cbData = 0.",
                  AllOf(StartsWith("EXT : ZarImportPrivKeyFunc : hCryptProv = "),
                        EndsWith(", dwFlags = 1.")),
                  "EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = 1.2.398.3.10.1.1.2.1.1, "
                  "Version = 0, PrivateKey.cbData = 120, Attr = 0000000000000000."));
  const Key copied = UserKey(copy, AT_SIGNATURE);
  const Key original = UserKey(national.Own(), AT_SIGNATURE);
  EXPECT_EQ(0u, VerifyCode(copy, copied.Get(), 0x8022, data,
                           SignData(national.Own(), AT_SIGNATURE, 0x8022, data)));
  EXPECT_EQ(0u, VerifyCode(national.Own(), original.Get(), 0x8022, data,
                           SignData(copy, AT_SIGNATURE, 0x8022, data)));

  const KeyHolder rsa("rsa", 0xA450, 25, CRYPT_EXPORTABLE);
  PrivateKeyInfo rsaInfo(rsa.Provider(), AT_SIGNATURE);
  const Context rsaCopy = NewContainer("rsa-copy");
  ASSERT_EQ(TRUE, ImportInto(rsaCopy, rsaInfo.Get()));
  EXPECT_EQ(SignData(rsa.Own(), AT_SIGNATURE, CALG_SHA_256, data),
            SignData(rsaCopy, AT_SIGNATURE, CALG_SHA_256, data));
  // Another key does not.
  const KeyHolder other("other", 0x2A4A);
  EXPECT_NE(0u, VerifyCode(other.Own(), UserKey(other.Own(), AT_SIGNATURE).Get(), 0x8022, data,
                           SignData(copy, AT_SIGNATURE, 0x8022, data)));
}

TEST_F(PrivateKeys, AnotherKeyInTheContainerIsAFailure) {
  const KeyHolder one("one", 0xAA3A, 25, CRYPT_EXPORTABLE);
  const KeyHolder other("other", 0xAA3A, 25, CRYPT_EXPORTABLE);
  PrivateKeyInfo info(one.Provider(), AT_SIGNATURE);
  EXPECT_EQ(FALSE, ImportInto(other.Own(), info.Get()));
  EXPECT_EQ(static_cast<DWORD>(NTE_TOKEN_KEYSET_STORAGE_FULL), GetLastError());
}

TEST_F(PrivateKeys, AnUnexportableKeyStays) {
  const KeyHolder holder("holder", 0xAA3A);
  DWORD size = 0;
  EXPECT_EQ(FALSE, test::Export<ExportPrivKeyFunc>("ZarExportPrivKeyFunc")(
                       holder.Provider(), AT_SIGNATURE, nullptr, 0, nullptr, nullptr, &size));
  EXPECT_NE(0u, GetLastError());
  EXPECT_EQ(0u, size);
}

TEST_F(PrivateKeys, OpensslsDocumentsAreImportedWhole) {
  Octets document = FromHex(openssl::kGost2001AKey);
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  info.PrivateKey = {static_cast<DWORD>(document.size()), document.data()};
  const Context target = NewContainer("openssl");
  ASSERT_EQ(TRUE, ImportInto(target, &info));
  // Signs what the certificate's key checks.
  const Octets certificate = FromHex(openssl::kGost2001ACertificate);
  PCCERT_CONTEXT decoded = CertCreateCertificateContext(X509_ASN_ENCODING, certificate.data(),
                                                        static_cast<DWORD>(certificate.size()));
  Must(decoded != nullptr, "CertCreateCertificateContext");
  Key key;
  const BOOL imported = CryptImportPublicKeyInfo(
      target.Get(), X509_ASN_ENCODING, &decoded->pCertInfo->SubjectPublicKeyInfo, key.Out());
  CertFreeCertificateContext(decoded);
  Must(imported, "CryptImportPublicKeyInfo");
  const Octets data = {1, 2, 3};
  const Octets signature = SignData(target, AT_SIGNATURE, 0x8015, data);
  EXPECT_EQ(0u, VerifyCode(target, key.Get(), 0x8015, data, signature));
}

TEST_F(PrivateKeys, AnOpensslKeyIsWrappedIntoADocument) {
  // The key alone, with the algorithm's parameters beside it.
  const Octets document = FromHex(openssl::kGost2001AKey);
  // SEQUENCE { 0, SEQUENCE { OID, SEQUENCE of 18 }, OCTET STRING { OCTET STRING of 32 } }
  Octets parameters(document.begin() + 15, document.begin() + 35);
  Octets key(document.begin() + 37, document.end());
  ASSERT_EQ(0x30, parameters[0]);
  ASSERT_EQ(32u, key.size());
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameters.data()};
  info.PrivateKey = {static_cast<DWORD>(key.size()), key.data()};
  const Context wrapped = NewContainer("wrapped");
  ASSERT_EQ(TRUE, ImportInto(wrapped, &info));
  const Context whole = NewContainer("whole");
  Import(whole, document);
  EXPECT_EQ(Export(UserKey(whole, AT_SIGNATURE), PUBLICKEYBLOB),
            Export(UserKey(wrapped, AT_SIGNATURE), PUBLICKEYBLOB));
}

}  // namespace
}  // namespace zarext::test
