// ZarMsgExportKeyTrans: the sender's public key behind the wrapped key, where it is appended.
#include "contract/msgkeys_export_fixture.h"

namespace zarext::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Octets Joined(Octets left, const Octets& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(ExportForMessageTest, AppendsTheSenderBlobForAnOwnAlgorithm) {
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(
      provider.Calls(),
      ElementsAre("ImportKey(1001, [0602abcd], 0, 0) = 3001", "GetUserKey(1001, 1) = 2001",
                  "SetProvParam(1001, 60, [01000000], 0)", "ExportKey(1001, 2001, 0, 6, 0, 512)",
                  "ExportKey(1001, 4001, 3001, 1, 0, 512)", "DestroyKey(1001, 3001)",
                  "DestroyKey(1001, 2001)"));
  EXPECT_EQ(140u, output.EncryptedKey.cbData);
  EXPECT_EQ(Joined(Sequence(60, 0x10), Sequence(80, 0x80)), EncryptedKey());
}

// The argument's algorithm decides, not the first recipient's and not the output record's.
TEST_F(ExportForMessageTest, AForeignAlgorithmGetsTheBareWrappedKey) {
  for (const char* oid : {"1.2.840.113549.1.1.1", "1.2.643.7.1.1.1.1", "1.2.643.2.2"}) {
    SCOPED_TRACE(oid);
    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO foreign = keyTrans;
    foreign.KeyEncryptionAlgorithm.pszObjId = OidText(oid);
    provider.ClearCalls();
    EXPECT_EQ(TRUE, Call(&foreign, &output));
    EXPECT_EQ(3u, provider.Calls().size());
    EXPECT_THAT(provider.Calls(), Each(Not(HasSubstr("GetUserKey"))));
    EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
  }
}

// Nor do the content's algorithm, the first recipient's or the output record's.
TEST_F(ExportForMessageTest, OnlyTheArgumentsAlgorithmDecides) {
  struct Row {
    const char* content;
    const char* first;
    const char* argument;
    const char* output;
    DWORD size;
  };
  constexpr char kForeign[] = "1.2.840.113549.1.1.1";
  constexpr char kOwn[] = "1.2.643.2.2.19";
  for (const Row& row :
       {Row{kForeign, kForeign, kOwn, kForeign, 140}, Row{kOwn, kOwn, kForeign, kOwn, 60}}) {
    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO argument = keyTrans;
    info.ContentEncryptionAlgorithm.pszObjId = OidText(row.content);
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText(row.first);
    argument.KeyEncryptionAlgorithm.pszObjId = OidText(row.argument);
    output.KeyEncryptionAlgorithm.pszObjId = OidText(row.output);
    EXPECT_EQ(TRUE, Call(&argument, &output));
    EXPECT_EQ(row.size, output.EncryptedKey.cbData);
  }
}

// Nothing of one call is left for the next.
TEST_F(ExportForMessageTest, ASecondCallWithoutASenderKeyAppendsNothing) {
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(140u, output.EncryptedKey.cbData);
  provider.FailCall("GetUserKey", 2, 0x8009000D);
  provider.ClearCalls();
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
  EXPECT_THAT(
      provider.Calls(),
      ElementsAre("ImportKey(1001, [0602abcd], 0, 0) = 3002", "GetUserKey(1001, 1) ! 8009000d",
                  "ExportKey(1001, 4001, 3002, 1, 0, 512)", "DestroyKey(1001, 3002)"));
  provider.FailCall("ExportKey", 4, 0x8009000B);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
}

TEST_F(ExportForMessageTest, EveryOwnArcGetsTheSenderBlob) {
  for (const char* oid :
       {"1.2.643.2.2.19", "1.3.6.1.4.1.32473.1.5.8", "1.2.398.3.10.1", "1.2.398.3.10.1.1.1.2"}) {
    SCOPED_TRACE(oid);
    keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText(oid);
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(140u, output.EncryptedKey.cbData);
  }
}

TEST_F(ExportForMessageTest, LeavesOutASenderBlobOfAnotherLength) {
  for (const std::size_t size : {std::size_t{79}, std::size_t{81}, std::size_t{144}}) {
    SCOPED_TRACE(size);
    provider.blobs[PUBLICKEYBLOB] = Sequence(size, 0x80);
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
    EXPECT_EQ(15u, trace.Messages().size());
    EXPECT_EQ("EXT : ZarMsgExportKeyTrans : EncryptedKeySize=60.", trace.Messages().back());
  }
}

struct SenderFailure {
  const char* function;  // of the provider
  DWORD error;
  const char* line;
  std::vector<std::string> calls;
  friend void PrintTo(const SenderFailure& row, std::ostream* out) { *out << row.function; }
};

class ExportWithoutASender : public ExportForMessageTest,
                             public testing::WithParamInterface<SenderFailure> {};

INSTANTIATE_TEST_SUITE_P(
    Calls, ExportWithoutASender,
    testing::Values(
        SenderFailure{"GetUserKey",
                      0x8009000D,
                      "CryptGetUserKey = 8009000d.",
                      {"ImportKey(1001, [0602abcd], 0, 0) = 3001", "GetUserKey(1001, 1) ! 8009000d",
                       "ExportKey(1001, 4001, 3001, 1, 0, 512)", "DestroyKey(1001, 3001)"}},
        SenderFailure{"ExportKey",
                      0x8009000B,
                      "CryptExportKey = 8009000b.",
                      {"ImportKey(1001, [0602abcd], 0, 0) = 3001", "GetUserKey(1001, 1) = 2001",
                       "SetProvParam(1001, 60, [01000000], 0)",
                       "ExportKey(1001, 2001, 0, 6, 0, 512) ! 8009000b",
                       "ExportKey(1001, 4001, 3001, 1, 0, 512)", "DestroyKey(1001, 3001)",
                       "DestroyKey(1001, 2001)"}}),
    [](const auto& variant) { return std::string(variant.param.function); });

TEST_P(ExportWithoutASender, GoesOn) {
  const SenderFailure& row = GetParam();
  provider.FailCall(row.function, 1, row.error);
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
  const auto messages = trace.Messages();
  ASSERT_EQ(16u, messages.size());
  EXPECT_EQ(std::string("EXT : ZarMsgExportKeyTrans : ") + row.line, messages[11]);
  EXPECT_EQ(row.calls, provider.Calls());
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

// A provider that says how long the blob would be, and fails.
class LengthAndFailure : public RecordingProvider {
 public:
  BOOL ExportKey(HCRYPTPROV context, HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType,
                 DWORD flags, BYTE* data, DWORD* size) override {
    if (blobType != PUBLICKEYBLOB) {
      return RecordingProvider::ExportKey(context, key, exchangeKey, blobType, flags, data, size);
    }
    *size = 80;
    SetLastError(0x8009000B);
    return FALSE;
  }
};

TEST_F(ExportForMessageTest, TheLengthOfAFailedSenderBlobDoesNotCount) {
  LengthAndFailure failing;
  failing.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
  UseScript(&failing);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
  UseScript(&provider);
}

// advapi32 never gives a null handle with success; patched ones show what the module makes of it.
BOOL WINAPI GetNoUserKey(HCRYPTPROV, DWORD, HCRYPTKEY* key) {
  *key = 0;
  return TRUE;
}
BOOL WINAPI ExportWithoutAKey(HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType, DWORD flags,
                              BYTE* data, DWORD* size) {
  if (key != 0) {
    return CryptExportKey(key, exchangeKey, blobType, flags, data, size);
  }
  *size = 80;
  return TRUE;
}

TEST_F(ExportForMessageTest, ASenderBlobWithoutAKeyIsNotAppended) {
  const ImportPatch userKey(Module(), "ADVAPI32.dll", "CryptGetUserKey", &GetNoUserKey);
  const ImportPatch exportKey(Module(), "ADVAPI32.dll", "CryptExportKey", &ExportWithoutAKey);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(60, 0x10), EncryptedKey());
  EXPECT_THAT(provider.Calls(),
              ElementsAre("ImportKey(1001, [0602abcd], 0, 0) = 3001",
                          "SetProvParam(1001, 60, [01000000], 0)",
                          "ExportKey(1001, 4001, 3001, 1, 0, 512)", "DestroyKey(1001, 3001)"));
}

TEST_F(ExportForMessageTest, DoesNotMindARefusedProviderParameter) {
  provider.FailCall("SetProvParam", 1, 0x8009000A);
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(140u, output.EncryptedKey.cbData);
  EXPECT_EQ(15u, trace.Messages().size());
}

// 432 octets are the most that the sender blob leaves room for.
TEST_F(ExportForMessageTest, TheSenderBlobMayEndTheBlock) {
  provider.blobs[SIMPLEBLOB] = Sequence(432, 0x30);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Joined(Sequence(432, 0x30), Sequence(80, 0x80)), EncryptedKey());
}

TEST_F(ExportForMessageTest, FailsWhereTheSenderBlobHasNoRoom) {
  for (const std::size_t size : {std::size_t{433}, std::size_t{512}}) {
    SCOPED_TRACE(size);
    provider.blobs[SIMPLEBLOB] = Sequence(size, 0x30);
    ExpectFailure([&] { return Call(); }, 0x80090004,
                  "EXT : ZarMsgExportKeyTrans : CryptExportKey = 80090004.");
    EXPECT_EQ(nullptr, output.EncryptedKey.pbData);
    EXPECT_EQ(0u, output.EncryptedKey.cbData);
    EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
  }
}

TEST_F(ExportForMessageTest, AProviderThatClaimsMoreThanItsRoomHasFailed) {
  provider.claimedExportSize = 513;
  ExpectFailure([&] { return Call(); }, 0x80090004,
                "EXT : ZarMsgExportKeyTrans : CryptExportKey = 80090004.");
  EXPECT_EQ(nullptr, output.EncryptedKey.pbData);
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

TEST_F(ExportForMessageTest, ABareWrappedKeyMayFillTheWholeBlock) {
  provider.blobs[SIMPLEBLOB] = Sequence(512, 0x30);
  provider.blobs[PUBLICKEYBLOB] = Sequence(79, 0x80);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(Sequence(512, 0x30), EncryptedKey());
}

}  // namespace
}  // namespace zarext::test
