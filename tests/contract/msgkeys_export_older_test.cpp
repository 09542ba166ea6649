// ZarExportEncryptKey.
#include "contract/msgkeys_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ExportEncryptKey = BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, CERT_PUBLIC_KEY_INFO*, BYTE*, DWORD*);

class ExportForPublicKeyTest : public MessageKeysTest {
 protected:
  ExportForPublicKeyTest() {
    keyInfo.Algorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.4.4");
    keyInfo.PublicKey = {static_cast<DWORD>(publicKey.size()), publicKey.data(), 0};
    provider.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
    CryptGenKey(Context(), 0x681F, CRYPT_EXPORTABLE, &key);
    provider.ClearCalls();
  }

  BOOL Call(BYTE* data, DWORD* size) {
    SetLastError(0);
    return Export<ExportEncryptKey>("ZarExportEncryptKey")(Context(), key, &keyInfo, data, size);
  }

  CERT_PUBLIC_KEY_INFO keyInfo = {};
  HCRYPTKEY key = 0;
  Octets publicKey = {0x06, 0x02, 0xAB, 0xCD};
};

TEST_F(ExportForPublicKeyTest, ReportsTheSizeAndThenFillsTheBuffer) {
  DWORD size = 0;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call(nullptr, &size));
  EXPECT_EQ(60u, size);
  const GuardedMemory buffer(60);
  EXPECT_EQ(TRUE, Call(buffer.Data(), &size));
  EXPECT_EQ(60u, size);
  EXPECT_EQ(Sequence(60, 0x10), buffer.Content());
  EXPECT_THAT(provider.Calls(),
              ElementsAre("ImportKey(1001, [0602abcd], 0, 1) = 3001",
                          "ExportKey(1001, 4001, 3001, 1, 0, null)", "DestroyKey(1001, 3001)",
                          "ImportKey(1001, [0602abcd], 0, 1) = 3002",
                          "ExportKey(1001, 4001, 3002, 1, 0, 60)", "DestroyKey(1001, 3002)"));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarExportEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.4.4.",
                          "EXT : ZarExportEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.4.4."));
}

TEST_F(ExportForPublicKeyTest, PassesTheCallersLengthThrough) {
  const GuardedMemory buffer(59);
  DWORD size = 59;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(buffer.Data(), &size));
  EXPECT_EQ(234u, GetLastError());
  EXPECT_EQ(60u, size);
  EXPECT_EQ("EXT : ZarExportEncryptKey : CryptExportKey 2 = ea.", trace.Messages().back());
  EXPECT_EQ(Octets(59), buffer.Content());
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

TEST_F(ExportForPublicKeyTest, NamesAFailedSizeQuery) {
  provider.FailCall("ExportKey", 1, 0x80090003);
  DWORD size = 7;
  ExpectFailure([&] { return Call(nullptr, &size); }, 0x80090003,
                "EXT : ZarExportEncryptKey : CryptExportKey 1 = 80090003.");
  EXPECT_EQ(7u, size);
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

TEST_F(ExportForPublicKeyTest, ServesTheTwoKeyAlgorithmsOnly) {
  DWORD size = 0;
  keyInfo.Algorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.3.4");
  EXPECT_EQ(TRUE, Call(nullptr, &size));
  provider.ClearCalls();
  for (const char* oid :
       {"1.3.6.1.4.1.32473.1.4.40", "1.3.6.1.4.1.32473.1.4", "9.1.3.6.1.4.1.32473.1.4.4",
        "1.3.6.1.4.1.32473.1.3.40", "1.3.6.1.4.1.32473.1.3", "9.1.3.6.1.4.1.32473.1.3.4",
        "1.2.643.2.2.19", "1.3.6.1.4.1.32473.1.5.8", ""}) {
    SCOPED_TRACE(oid);
    keyInfo.Algorithm.pszObjId = OidText(oid);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(nullptr, &size));
    EXPECT_EQ(0x80090008u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre(std::string("EXT : ZarExportEncryptKey : Algorithm = ") + oid + "."));
  }
  keyInfo.Algorithm.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(nullptr, &size));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : ZarExportEncryptKey : Algorithm = (null)."));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ExportForPublicKeyTest, RefusesMissingArguments) {
  DWORD size = 0;
  auto* exportKey = Export<ExportEncryptKey>("ZarExportEncryptKey");
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, exportKey(Context(), key, nullptr, nullptr, &size));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), IsEmpty());
    EXPECT_THAT(provider.Calls(), IsEmpty());
  }
  // Without a length the platform refuses.
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarExportEncryptKey : CryptExportKey 1 = 57.", trace.Messages().back());
}

TEST_F(ExportForPublicKeyTest, ReportsAFailedRecipientImport) {
  provider.FailCall("ImportKey", 1, 0x80090007);
  DWORD size = 0;
  ExpectFailure([&] { return Call(nullptr, &size); }, 0x80090007,
                "EXT : ZarExportEncryptKey : CryptImportKey = 80090007.");
}

TEST_F(ExportForPublicKeyTest, DestroysTheKeyAfterTheFailureIsReported) {
  provider.FailCall("ExportKey", 1, 0x80090003);
  provider.FailCall("DestroyKey", 1, 0x5A5A);
  DWORD size = 0;
  EXPECT_EQ(FALSE, Call(nullptr, &size));
  EXPECT_EQ(0x5A5Au, GetLastError());
}

}  // namespace
}  // namespace zarext::test
