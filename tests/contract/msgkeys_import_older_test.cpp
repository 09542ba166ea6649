// ZarImportEncryptKey.
#include "contract/msgkeys_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ImportEncryptKey = BOOL WINAPI(HCRYPTPROV, DWORD, CRYPT_ALGORITHM_IDENTIFIER*,
                                     CRYPT_ALGORITHM_IDENTIFIER*, BYTE*, DWORD, HCRYPTKEY*);

class ImportEncodedKeyTest : public MessageKeysTest {
 protected:
  ImportEncodedKeyTest() {
    content.pszObjId = OidText("1.3.6.1.4.1.32473.1.2.4");
    publicKey.pszObjId = OidText("1.3.6.1.4.1.32473.1.4.4");
    Context();
    provider.ClearCalls();
  }

  BOOL Call(DWORD size = 4) {
    SetLastError(0);
    // The key specification is not looked at.
    return Export<ImportEncryptKey>("ZarImportEncryptKey")(Context(), 0xFFFFFFFE, &content,
                                                           &publicKey, encoded.data(), size, &key);
  }

  CRYPT_ALGORITHM_IDENTIFIER content = {};
  CRYPT_ALGORITHM_IDENTIFIER publicKey = {};
  Octets encoded = {0x01, 0x02, 0x1F, 0x68};
  HCRYPTKEY key = 0;
};

TEST_F(ImportEncodedKeyTest, ImportsAnExportableKey) {
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), ElementsAre("ImportKey(1001, [01021f68], 0, 1) = 3001"));
  EXPECT_EQ(0x3001u, OwnKey(key));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarImportEncryptKey : paiPubKey = 1.3.6.1.4.1.32473.1.4.4.",
                          "EXT : ZarImportEncryptKey : paiEncrypt = 1.3.6.1.4.1.32473.1.2.4."));
}

TEST_F(ImportEncodedKeyTest, ServesThreeContentAndTwoKeyAlgorithms) {
  for (const char* keyOid : {"1.3.6.1.4.1.32473.1.4.4", "1.3.6.1.4.1.32473.1.3.4"}) {
    for (const char* oid :
         {"1.3.6.1.4.1.32473.1.1.4", "1.3.6.1.4.1.32473.1.2.4", "1.2.643.2.2.21"}) {
      SCOPED_TRACE(std::string(keyOid) + " " + oid);
      publicKey.pszObjId = OidText(keyOid);
      content.pszObjId = OidText(oid);
      EXPECT_EQ(TRUE, Call());
    }
  }
}

TEST_F(ImportEncodedKeyTest, RefusesOtherKeyAlgorithmsWithoutALineOfTheirOwn) {
  for (const char* oid :
       {"1.3.6.1.4.1.32473.1.4.40", "1.3.6.1.4.1.32473.1.4", "9.1.3.6.1.4.1.32473.1.4.4",
        "1.3.6.1.4.1.32473.1.3.40", "1.3.6.1.4.1.32473.1.3", "9.1.3.6.1.4.1.32473.1.3.4",
        "1.2.643.2.2.19", ""}) {
    SCOPED_TRACE(oid);
    publicKey.pszObjId = OidText(oid);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(0x80090008u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre(std::string("EXT : ZarImportEncryptKey : paiPubKey = ") + oid + "."));
  }
  publicKey.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : ZarImportEncryptKey : paiPubKey = (null)."));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// The line names the export function.
TEST_F(ImportEncodedKeyTest, RefusesOtherContentAlgorithmsInTheNameOfTheExport) {
  for (const char* oid :
       {"2.16.840.1.101.3.4.1.2", "1.3.6.1.4.1.32473.1.20.1", "1.3.6.1.4.1.32473.1.2.40",
        "1.3.6.1.4.1.32473.1.1.40", "1.3.6.1.4.1.32473.1.1", "9.1.3.6.1.4.1.32473.1.1.4",
        "1.2.643.2.2.2", "1.2.643.2.2.210", "9.1.2.643.2.2.21", ""}) {
    SCOPED_TRACE(oid);
    content.pszObjId = OidText(oid);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(0x80090008u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre("EXT : ZarImportEncryptKey : paiPubKey = 1.3.6.1.4.1.32473.1.4.4.",
                            std::string("EXT : ZarImportEncryptKey : paiEncrypt = ") + oid + ".",
                            "EXT : ZarExportEncryptKey : pszObjId error = 80090008."));
  }
  content.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_EQ("EXT : ZarImportEncryptKey : paiEncrypt = (null).", trace.Messages()[1]);
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ImportEncodedKeyTest, RefusesAnEmptyKeyAfterBothAlgorithms) {
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(0));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(2u, trace.Messages().size());
  }
  {
    TraceCapture trace;
    SetLastError(0);
    EXPECT_EQ(FALSE, Export<ImportEncryptKey>("ZarImportEncryptKey")(Context(), 0, &content,
                                                                     &publicKey, nullptr, 4, &key));
    EXPECT_EQ(87u, GetLastError());
    // A line more would tell of the platform's own refusal.
    EXPECT_EQ(2u, trace.Messages().size());
  }
  content.pszObjId = OidText("1.2.3");
  EXPECT_EQ(FALSE, Call(0));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ImportEncodedKeyTest, RefusesMissingArguments) {
  auto* importKey = Export<ImportEncryptKey>("ZarImportEncryptKey");
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, importKey(Context(), 0, &content, nullptr, encoded.data(), 4, &key));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), IsEmpty());
  }
  {
    TraceCapture trace;
    SetLastError(0);
    EXPECT_EQ(FALSE, importKey(Context(), 0, nullptr, &publicKey, encoded.data(), 4, &key));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(1u, trace.Messages().size());
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// Behind the checks of algorithms and key, in place of the call. Made by the module itself: not
// every version of the platform survives the call.
TEST_F(ImportEncodedKeyTest, NoPlaceForTheHandleIsThePlatformsRefusal) {
  const RecordedImport<"CryptImportKey", decltype(CryptImportKey)> import(Module(), "ADVAPI32.dll");
  auto* importKey = Export<ImportEncryptKey>("ZarImportEncryptKey");
  {
    TraceCapture trace;
    SetLastError(0);
    EXPECT_EQ(FALSE, importKey(Context(), 0, &content, &publicKey, encoded.data(), 4, nullptr));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre("EXT : ZarImportEncryptKey : paiPubKey = 1.3.6.1.4.1.32473.1.4.4.",
                            "EXT : ZarImportEncryptKey : paiEncrypt = 1.3.6.1.4.1.32473.1.2.4.",
                            "EXT : ZarImportEncryptKey : CryptImportKey = 57."));
  }
  TraceCapture trace;
  EXPECT_EQ(FALSE, importKey(Context(), 0, &content, &publicKey, encoded.data(), 0, nullptr));
  EXPECT_EQ("EXT : ZarImportEncryptKey : paiEncrypt = 1.3.6.1.4.1.32473.1.2.4.",
            trace.Messages().back());
  EXPECT_THAT(LinesOf(events.Lines(), {"platform: "}), IsEmpty());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ImportEncodedKeyTest, ReportsAFailedImport) {
  provider.FailCall("ImportKey", 1, 0x80090005);
  ExpectFailure([&] { return Call(); }, 0x80090005,
                "EXT : ZarImportEncryptKey : CryptImportKey = 80090005.");
}

}  // namespace
}  // namespace zarext::test
