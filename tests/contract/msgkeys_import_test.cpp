// ZarMsgImportKeyTrans.
#include "contract/msgkeys_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ImportKeyTrans = BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                                   DWORD, void*, HCRYPTKEY*);

// An encrypted key of 180 octets: 100 of the wrapped key, 80 of the sender's public key.
class ImportForMessageTest : public MessageKeysTest {
 protected:
  ImportForMessageTest() {
    content.pszObjId = OidText("1.3.6.1.4.1.32473.1.2.4");
    para.cbSize = sizeof para;
    para.hCryptProv = Context();
    para.pKeyTrans = &keyTrans;
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.643.2.2.19");
    keyTrans.EncryptedKey = {180, encrypted.Data()};
    provider.ClearCalls();
  }

  BOOL Call(DWORD dwFlags = 0) {
    SetLastError(0);
    // What is reserved is not looked at.
    return Export<ImportKeyTrans>("ZarMsgImportKeyTrans")(&content, &para, dwFlags,
                                                          reinterpret_cast<void*>(1), &key);
  }

  static std::string Import(const Octets& octets, const char* exchangeKey, const char* result) {
    return "ImportKey(1001, [" + HexText(octets) + "], " + exchangeKey + ", 0) " + result;
  }

  GuardedMemory encrypted{Sequence(180, 0), GuardedMemory::Guard::kBefore};
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
  CMSG_KEY_TRANS_RECIPIENT_INFO keyTrans = {};
  HCRYPTKEY key = 0;
};

TEST_F(ImportForMessageTest, ImportsTheSenderKeyAndThenTheContentKey) {
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(),
              ElementsAre(Import(Sequence(80, 100), "0", "= 3001"),
                          Import(Sequence(100, 0), "3001", "= 3002"), "DestroyKey(1001, 3001)"));
  EXPECT_EQ(100u, keyTrans.EncryptedKey.cbData);
  EXPECT_EQ(encrypted.Data(), keyTrans.EncryptedKey.pbData);
  EXPECT_EQ(0x3002u, OwnKey(key));
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x3002));
}

TEST_F(ImportForMessageTest, TracesTheCall) {
  para.dwKeySpec = 17;
  para.dwRecipientIndex = 18;
  keyTrans.dwVersion = 0x1A;
  keyTrans.RecipientId.dwIdChoice = 19;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  const std::string own = "EXT : ZarMsgImportKeyTrans : ";
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(own + "ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
                  own + "hCryptProv=" + Low(para.hCryptProv) + ".",
                  own + "dwKeySpec = 17, dwRecipientIndex=18.",
                  own + "KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
                  own + "RecipientId.dwIdChoice = 19, dwVersion=1a.",
                  own + "pKeyTrans->EncryptedKeySize = 180.", own + "CryptImportKey - OK."));
}

TEST_F(ImportForMessageTest, TracesNumbersAsTheyAlwaysWere) {
  for (const TracedNumber& row : kTracedNumbers) {
    para.dwKeySpec = row.number;
    para.dwRecipientIndex = row.number;
    keyTrans.dwVersion = row.number;
    keyTrans.RecipientId.dwIdChoice = row.number;
    keyTrans.EncryptedKey = {row.number, nullptr};
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    const auto messages = trace.Messages();
    ASSERT_LT(5u, messages.size());
    const std::string own = "EXT : ZarMsgImportKeyTrans : ";
    EXPECT_EQ(own + "dwKeySpec = " + row.decimal + ", dwRecipientIndex=" + row.decimal + ".",
              messages[2]);
    EXPECT_EQ(
        own + "RecipientId.dwIdChoice = " + row.decimal + ", dwVersion=" + row.hexadecimal + ".",
        messages[4]);
    EXPECT_EQ(own + "pKeyTrans->EncryptedKeySize = " + row.decimal + ".", messages[5]);
  }
}

// Any content algorithm will do: the provider learns it from the blob.
TEST_F(ImportForMessageTest, DoesNotCheckTheContentAlgorithm) {
  content.pszObjId = OidText("1.2.3");
  EXPECT_EQ(TRUE, Call());
}

TEST_F(ImportForMessageTest, AForeignAlgorithmGivesTheWholeBlobToTheProvider) {
  keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.840.113549.1.1.1");
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), ElementsAre(Import(Sequence(180, 0), "0", "= 3001")));
  EXPECT_EQ(180u, keyTrans.EncryptedKey.cbData);
}

TEST_F(ImportForMessageTest, EveryOwnArcIsSplit) {
  for (const char* oid : {"1.3.6.1.4.1.32473.1.5.8", "1.2.398.3.10.1", "1.2.643.2.2.19"}) {
    SCOPED_TRACE(oid);
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText(oid);
    keyTrans.EncryptedKey.cbData = 180;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(100u, keyTrans.EncryptedKey.cbData);
  }
}

TEST_F(ImportForMessageTest, GoesOnWithTheWholeBlobWithoutASenderKey) {
  const struct {
    DWORD error;
    const char* result;
    const char* line;
  } rows[] = {{0x80090015, "! 80090015", "CryptImportKey 1 = 80090015."},
              {0, "! 0", "CryptImportKey 1 = 0."}};
  int call = 1;
  for (const auto& row : rows) {
    provider.FailCall("ImportKey", call, row.error);
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    const auto calls = provider.Calls();
    ASSERT_EQ(static_cast<std::size_t>(call + 1), calls.size());
    EXPECT_EQ(Import(Sequence(80, 100), "0", row.result), calls[calls.size() - 2]);
    EXPECT_EQ(180u, keyTrans.EncryptedKey.cbData);
    const auto messages = trace.Messages();
    ASSERT_EQ(8u, messages.size());
    EXPECT_EQ(std::string("EXT : ZarMsgImportKeyTrans : ") + row.line, messages[6]);
    EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey - OK.", messages[7]);
    call += 2;
  }
  EXPECT_THAT(provider.Calls(), testing::Contains(Import(Sequence(180, 0), "0", "= 3001")));
}

// What lies before the encrypted key is a forbidden page.
TEST_F(ImportForMessageTest, AShortKeyHasNoSenderKey) {
  keyTrans.EncryptedKey.cbData = 79;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), ElementsAre(Import(Sequence(79, 0), "0", "= 3001")));
  EXPECT_EQ(79u, keyTrans.EncryptedKey.cbData);
  const auto messages = trace.Messages();
  ASSERT_EQ(8u, messages.size());
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : pKeyTrans->EncryptedKeySize = 79.", messages[5]);
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey 1 = 80090005.", messages[6]);
}

TEST_F(ImportForMessageTest, AKeyOfEightyOctetsIsTheSenderKeyAlone) {
  keyTrans.EncryptedKey.cbData = 80;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0u, keyTrans.EncryptedKey.cbData);
  EXPECT_THAT(provider.Calls(),
              ElementsAre(Import(Sequence(80, 0), "0", "= 3001"), "DestroyKey(1001, 3001)"));
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey = 57.", trace.Messages().back());
}

TEST_F(ImportForMessageTest, AMissingKeyIsRefusedByThePlatform) {
  for (const DWORD size : {DWORD{0}, DWORD{180}}) {
    keyTrans.EncryptedKey = {size, nullptr};
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(87u, GetLastError());
    const auto messages = trace.Messages();
    ASSERT_EQ(8u, messages.size());
    EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey 1 = 80090005.", messages[6]);
    EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey = 57.", messages[7]);
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// The shortened length stays after a failure, and a second attempt starts from it.
TEST_F(ImportForMessageTest, KeepsTheShortenedLengthWhenTheContentKeyFails) {
  provider.FailCall("ImportKey", 2, 0x80090005);
  ExpectFailure([&] { return Call(); }, 0x80090005,
                "EXT : ZarMsgImportKeyTrans : CryptImportKey = 80090005.");
  EXPECT_EQ(100u, keyTrans.EncryptedKey.cbData);
  EXPECT_THAT(provider.OpenKeys(), IsEmpty());
  provider.ClearCalls();
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(),
              ElementsAre(Import(Sequence(80, 20), "0", "= 3002"),
                          Import(Sequence(20, 0), "3002", "= 3003"), "DestroyKey(1001, 3002)"));
}

// Nothing of one call is left for the next.
TEST_F(ImportForMessageTest, ASecondCallWithoutASenderKeyUsesNone) {
  EXPECT_EQ(TRUE, Call());
  provider.ClearCalls();
  keyTrans.EncryptedKey.cbData = 180;
  provider.FailCall("ImportKey", 3, 0x80090015);
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), ElementsAre(Import(Sequence(80, 100), "0", "! 80090015"),
                                            Import(Sequence(180, 0), "0", "= 3003")));
}

TEST_F(ImportForMessageTest, RefusesMissingArguments) {
  auto* importKey = Export<ImportKeyTrans>("ZarMsgImportKeyTrans");
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, importKey(nullptr, &para, 0, nullptr, &key));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), IsEmpty());
  }
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(1));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(1u, trace.Messages().size());
  }
  {
    TraceCapture trace;
    SetLastError(0);
    EXPECT_EQ(FALSE, importKey(&content, nullptr, 0, nullptr, &key));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(1u, trace.Messages().size());
  }
  {
    para.pKeyTrans = nullptr;
    ExpectFailure([&] { return Call(); }, 87,
                  "EXT : ZarMsgImportKeyTrans : KeyEncryptionAlgorithm = (null).");
    para.pKeyTrans = &keyTrans;
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// Made by the module itself: not every version of the platform survives the call.
TEST_F(ImportForMessageTest, NoPlaceForTheHandleIsThePlatformsRefusal) {
  const RecordedImport<"CryptImportKey", decltype(CryptImportKey)> import(
      Module(), "ADVAPI32.dll",
      [](HCRYPTPROV, const BYTE*, DWORD size, HCRYPTKEY, DWORD, HCRYPTKEY*) {
        return std::to_string(size);
      });
  TraceCapture trace;
  SetLastError(0);
  EXPECT_EQ(FALSE,
            Export<ImportKeyTrans>("ZarMsgImportKeyTrans")(&content, &para, 0, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(7u, trace.Messages().size());
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey = 57.", trace.Messages().back());
  // The sender's key was imported and split off before.
  EXPECT_THAT(LinesOf(events.Lines(), {"platform: "}), ElementsAre("platform: CryptImportKey(80)"));
  EXPECT_EQ(100u, keyTrans.EncryptedKey.cbData);
  EXPECT_THAT(provider.OpenKeys(), IsEmpty());
}

TEST_F(ImportForMessageTest, TracesMissingTextsAsNull) {
  content.pszObjId = nullptr;
  keyTrans.KeyEncryptionAlgorithm.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : ContentEncryptionAlgorithm = (null).",
            trace.Messages()[0]);
  EXPECT_EQ("EXT : ZarMsgImportKeyTrans : KeyEncryptionAlgorithm = (null).", trace.Messages()[3]);
  EXPECT_THAT(provider.Calls(), ElementsAre(Import(Sequence(180, 0), "0", "= 3001")));
}

// advapi32 never gives a null handle with success; a patched one shows what the module makes of it.
BOOL WINAPI ImportNoKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY* key) {
  *key = 0;
  SetLastError(0x77);
  return TRUE;
}

TEST_F(ImportForMessageTest, ANullHandleIsFalseWithoutACodeOfItsOwn) {
  key = 5;
  const ImportPatch patch(Module(), "ADVAPI32.dll", "CryptImportKey", &ImportNoKey);
  ExpectFailure([&] { return Call(); }, 0x77, "EXT : ZarMsgImportKeyTrans : CryptImportKey - OK.");
  EXPECT_EQ(0u, key);
}

TEST_F(ImportForMessageTest, DestroysTheSenderKeyAfterTheFailureIsReported) {
  provider.FailCall("ImportKey", 2, 0x80090005);
  provider.FailCall("DestroyKey", 1, 0x5A5A);
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x5A5Au, GetLastError());
}

}  // namespace
}  // namespace zarext::test
