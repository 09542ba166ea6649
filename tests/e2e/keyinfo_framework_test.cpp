// The public functions that lead to the key exports.
#include "e2e/keyinfo_setup.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using PublicKeyFunctions = KeyFrameworkTest;

// Points to the blob.
CERT_PUBLIC_KEY_INFO InfoOf(const char* oid, Octets* blob) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(oid);
  info.PublicKey = {static_cast<DWORD>(blob->size()), blob->data(), 0};
  return info;
}

void ExpectImports(const KeyHolder& holder, CERT_PUBLIC_KEY_INFO* info) {
  Key imported;
  Must(CryptImportPublicKeyInfoEx(holder.Provider(), X509_ASN_ENCODING, info, 0, 0, nullptr,
                                  imported.Out()),
       "CryptImportPublicKeyInfoEx");
  EXPECT_EQ(holder.PublicBlob(), Export(imported, PUBLICKEYBLOB));
}

TEST_F(PublicKeyFunctions, ExportWithAnOidGoesToTheExtendedExport) {
  const KeyHolder holder("holder");
  TraceCapture trace;
  char oid[] = "1.3.6.1.4.1.32473.99.1";
  PublicKeyInfo info("CryptExportPublicKeyInfoEx", [&](CERT_PUBLIC_KEY_INFO* data, DWORD* size) {
    return CryptExportPublicKeyInfoEx(holder.Provider(), AT_SIGNATURE, X509_ASN_ENCODING, oid, 0,
                                      nullptr, data, size);
  });
  EXPECT_THAT(trace.Messages(), Contains("EXT : ZarExportPublicKeyInfoEx : PublicKeyObjId = "
                                         "1.3.6.1.4.1.32473.99.1.")
                                    .Times(2));
  EXPECT_EQ("1.3.6.1.4.1.32473.1.5.8", info.Oid());
  EXPECT_EQ(holder.PublicBlob(), info.Key());
  ExpectImports(holder, info.Get());
}

TEST_F(PublicKeyFunctions, ExportForEveryKeyOfTheProviderAndBack) {
  const std::vector<std::pair<ALG_ID, const char*>> rows = {
      {0xAA3A, "1.3.6.1.4.1.32473.1.5.8"},  {0xA045, "1.3.6.1.4.1.32473.1.8.8"},
      {0x2A3A, "1.2.398.3.10.1.1.1.1.1"},   {0x2A4A, "1.2.398.3.10.1.1.2.1.1"},
      {0xA055, "1.2.398.3.10.1.4.1.1.1"},   {0xAA4C, "1.3.6.1.4.1.32473.1.5.17"},
      {0x2A4C, "1.2.398.3.10.1.1.2.2.1"},   {0xA04B, "1.2.398.3.10.1.4.1.2.1"},
      {0xA450, "1.3.6.1.4.1.32473.1.5.20"}, {0xA050, "1.3.6.1.4.1.32473.1.8.20"},
  };
  for (const auto& [algorithm, oid] : rows) {
    const KeyHolder holder(std::to_string(algorithm).c_str(), algorithm);
    const bool exchange = GET_ALG_TYPE(algorithm) == ALG_TYPE_ANY;
    char asked[] = "1.3.6.1.4.1.32473.99.1";
    PublicKeyInfo info("CryptExportPublicKeyInfoEx", [&](CERT_PUBLIC_KEY_INFO* data, DWORD* size) {
      return CryptExportPublicKeyInfoEx(holder.Provider(), exchange ? AT_KEYEXCHANGE : AT_SIGNATURE,
                                        X509_ASN_ENCODING, asked, 0, nullptr, data, size);
    });
    EXPECT_EQ(oid, info.Oid());
    EXPECT_EQ(holder.PublicBlob(), info.Key());
    // The national arc's keys go out as whole blobs and come in as OCTET STRINGs: the two
    // directions do not meet, by design.
    if (info.Oid().find("1.2.398.3.10.1") != 0) {
      ExpectImports(holder, info.Get());
    }
  }
}

TEST_F(PublicKeyFunctions, ExportWithoutAnOidGoesToTheEncoder) {
  const KeyHolder holder("holder");
  TraceCapture trace;
  PublicKeyInfo info("CryptExportPublicKeyInfo", [&](CERT_PUBLIC_KEY_INFO* data, DWORD* size) {
    return CryptExportPublicKeyInfo(holder.Provider(), AT_SIGNATURE, X509_ASN_ENCODING, data, size);
  });
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 0, "
                       "Algorithm = 1.3.6.1.4.1.32473.1.5.8.")
                  .Times(2));
  EXPECT_EQ("1.3.6.1.4.1.32473.1.5.8", info.Oid());
  EXPECT_EQ(holder.PublicBlob(), info.Key());
}

TEST_F(PublicKeyFunctions, ImportGoesToTheExtendedExport) {
  const KeyHolder holder("holder");
  Octets blob = holder.PublicBlob();
  CERT_PUBLIC_KEY_INFO info = InfoOf(kImportOnlyOid, &blob);
  TraceCapture trace;
  Key imported;
  ASSERT_TRUE(
      CryptImportPublicKeyInfo(holder.Provider(), X509_ASN_ENCODING, &info, imported.Out()));
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.3.6.1.4.1.32473.99.2."));
  EXPECT_EQ(blob, Export(imported, PUBLICKEYBLOB));
  trace.Clear();
  ASSERT_TRUE(CryptImportPublicKeyInfoEx(holder.Provider(), X509_ASN_ENCODING, &info, 0x201D, 0,
                                         nullptr, imported.Out()));
  EXPECT_THAT(trace.Messages(), Contains(HasSubstr("aiKeyAlg = 201d, dwFlags = 0.")));
}

TEST_F(PublicKeyFunctions, ImportWithoutABindingForItGoesToTheConverter) {
  const KeyHolder holder("holder");
  Octets blob = holder.PublicBlob();
  CERT_PUBLIC_KEY_INFO info = InfoOf(kConvertOnlyOid, &blob);
  TraceCapture trace;
  Key imported;
  ASSERT_TRUE(
      CryptImportPublicKeyInfo(holder.Provider(), X509_ASN_ENCODING, &info, imported.Out()));
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarConvertPublicKeyInfo : Algorithm = 1.3.6.1.4.1.32473.99.3."));
  EXPECT_THAT(trace.Messages(), Not(Contains(StartsWith("EXT : ZarImportPublicKeyInfo"))));
  EXPECT_EQ(blob, Export(imported, PUBLICKEYBLOB));
}

TEST_F(PublicKeyFunctions, AProvidersRefusalReachesTheCaller) {
  const KeyHolder holder("holder");
  Octets blob = holder.PublicBlob();
  blob[20] ^= 1;
  CERT_PUBLIC_KEY_INFO info = InfoOf(kImportOnlyOid, &blob);
  const DWORD code = ImportCode(holder.Own(), blob);
  ASSERT_NE(0u, code);
  Key imported;
  EXPECT_FALSE(CryptImportPublicKeyInfoEx(holder.Provider(), X509_ASN_ENCODING, &info, 0, 0,
                                          nullptr, imported.Out()));
  EXPECT_EQ(code, GetLastError());
}

// The framework never calls the plain pair; its parameter lists are the framework's all the same.
TEST_F(PublicKeyFunctions, ThePlainPairCalledAsTheFrameworkWould) {
  const KeyHolder holder("holder");
  const auto exportPlain =
      test::Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, CERT_PUBLIC_KEY_INFO*, DWORD*)>(
          "ZarExportPublicKeyInfo");
  const auto importPlain =
      test::Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*)>(
          "ZarImportPublicKeyInfo");
  DWORD size = 0;
  ASSERT_TRUE(exportPlain(holder.Provider(), AT_SIGNATURE, X509_ASN_ENCODING, nullptr, &size));
  EXPECT_EQ(80u + 56, size);
  // What is written is longer than what is reported: 48 + 32 + the blob.
  Octets block(160);
  auto* info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(block.data());
  ASSERT_TRUE(exportPlain(holder.Provider(), AT_SIGNATURE, X509_ASN_ENCODING, info, &size));
  Key imported;
  ASSERT_TRUE(importPlain(holder.Provider(), X509_ASN_ENCODING, info, imported.Out()));
  EXPECT_EQ(holder.PublicBlob(), Export(imported, PUBLICKEYBLOB));
}

}  // namespace
}  // namespace zarext::test
