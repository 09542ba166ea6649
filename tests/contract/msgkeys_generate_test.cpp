// ZarMsgGenContentEncryptKey: the key and its context, what is traced, what is refused.
#include "contract/msgkeys_generate_fixture.h"
#include "contract/recorded_acquisitions.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(GenerateForMessageTest, RefusesANullRecordWithoutATrace) {
  auto* generate =
      Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>("ZarMsgGenContentEncryptKey");
  TraceCapture trace;
  EXPECT_EQ(FALSE, generate(nullptr, 0, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(GenerateForMessageTest, GeneratesAnExportableKeyOfTheAlgorithm) {
  struct Row {
    const char* oid;
    const char* call;
  };
  const Row rows[] = {
      {"2.16.840.1.101.3.4.1.2", "GenKey(1001, 6611, 1) = 4001"},
      {"1.3.6.1.4.1.32473.1.2.4", "GenKey(1001, 681f, 1) = 4002"},
      {"1.3.6.1.4.1.32473.1.20.1", "GenKey(1001, 6620, 1) = 4003"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.oid);
    info.ContentEncryptionAlgorithm.pszObjId = OidText(row.oid);
    info.hCryptProv = Context();
    provider.ClearCalls();
    EXPECT_EQ(TRUE, Call());
    EXPECT_THAT(provider.Calls(), ElementsAre("GetProvParam(1001, 16, 4, 0)", row.call));
    EXPECT_NE(0u, info.hContentEncryptKey);
  }
  EXPECT_EQ(0x4003u, OwnKey(info.hContentEncryptKey));
}

TEST_F(GenerateForMessageTest, TracesTheRecordWithoutRecipients) {
  info.hCryptProv = Context();
  info.hContentEncryptKey = 0x123456789ABCDEF0;
  info.dwEncryptFlags = 0xA1;
  info.dwFlags = 0xB2;
  const std::string providerLine = ProviderLine();
  EXPECT_THAT(providerLine, testing::HasSubstr("= 9abcdef0,"));
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = "
                          "1.3.6.1.4.1.32473.1.2.4.",
                          "EXT : ZarMsgGenContentEncryptKey : dwEncryptFlags = a1, dwFlags=b2.",
                          providerLine, "EXT : ZarMsgGenContentEncryptKey : cRecipients = 0."));
  EXPECT_EQ(0xB2u, info.dwFlags);
}

TEST_F(GenerateForMessageTest, TracesTheFirstRecipientOnly) {
  CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO keyAgree = {};
  keyAgree.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.3.4");
  CMSG_RECIPIENT_ENCODE_INFO both[2] = {};
  both[0].dwRecipientChoice = CMSG_KEY_AGREE_RECIPIENT;
  both[0].pKeyAgree = &keyAgree;
  both[1].dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
  info.hCryptProv = Context();
  info.cRecipients = 2;
  info.rgCmsRecipients = both;
  const std::string providerLine = ProviderLine();
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = "
                  "1.3.6.1.4.1.32473.1.2.4.",
                  "EXT : ZarMsgGenContentEncryptKey : dwEncryptFlags = 0, dwFlags=0.", providerLine,
                  "EXT : ZarMsgGenContentEncryptKey : cRecipients = 2.",
                  "EXT : ZarMsgGenContentEncryptKey : rgCmsRecipients.dwRecipientChoice = 2.",
                  "EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_AGREE_RECIPIENT = 1.2.3.4."));
}

TEST_F(GenerateForMessageTest, TracesNumbersAsTheyAlwaysWere) {
  for (const TracedNumber& row : kTracedNumbers) {
    UseRecipient(row.number);
    info.cRecipients = row.number;
    info.dwEncryptFlags = row.number;
    info.dwFlags = row.number;
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(1));
    const auto messages = trace.Messages();
    ASSERT_EQ(5u, messages.size());
    const std::string own = "EXT : ZarMsgGenContentEncryptKey : ";
    EXPECT_EQ(own + "dwEncryptFlags = " + row.hexadecimal + ", dwFlags=" + row.hexadecimal + ".",
              messages[1]);
    EXPECT_EQ(own + "cRecipients = " + row.decimal + ".", messages[3]);
    EXPECT_EQ(own + "rgCmsRecipients.dwRecipientChoice = " + row.decimal + ".", messages[4]);
  }
}

// The entry lines come first: they are written for a refused call too.
TEST_F(GenerateForMessageTest, RefusesFlagsAfterTheEntryLines) {
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  info.ContentEncryptionAlgorithm.pszObjId = OidText(kForeignContent);
  const std::string providerLine = ProviderLine();
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(1));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(
          "EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = 1.2.840.113549.3.7.",
          "EXT : ZarMsgGenContentEncryptKey : dwEncryptFlags = 0, dwFlags=0.", providerLine,
          "EXT : ZarMsgGenContentEncryptKey : cRecipients = 1.",
          "EXT : ZarMsgGenContentEncryptKey : rgCmsRecipients.dwRecipientChoice = 1.",
          "EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_TRANS_RECIPIENT = 1.2.643.2.2.19."));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(GenerateForMessageTest, RefusesOtherContentAlgorithms) {
  const char* const refused[] = {kForeignContent,
                                 "2.16.840.1.101.3.4.1.42",
                                 "2.16.840.1.101.3.4.1.21",
                                 "1.3.6.1.4.1.32473.1.2.40",
                                 "1.3.6.1.4.1.32473.1.20.10",
                                 "1.3.6.1.4.1.32473.1.20",
                                 "1.2.643.2.2.21",
                                 "",
                                 nullptr};
  info.hCryptProv = Context();
  provider.ClearCalls();
  for (const char* oid : refused) {
    SCOPED_TRACE(oid == nullptr ? "null" : oid);
    info.ContentEncryptionAlgorithm.pszObjId = OidText(oid);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(0x80090008u, GetLastError());
    const auto messages = trace.Messages();
    ASSERT_EQ(5u, messages.size());
    EXPECT_EQ(std::string("EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = ") +
                  (oid == nullptr ? "(null)" : oid) + ".",
              messages[0]);
    EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : pszObjId error = 80090008.", messages[4]);
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// Longer than the buffer of a line.
TEST_F(GenerateForMessageTest, TracesALongAlgorithmWhole) {
  const std::string oid(6000, '7');
  info.ContentEncryptionAlgorithm.pszObjId = OidText(oid.c_str());
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : ContentEncryptionAlgorithm = " + oid + ".",
            trace.Messages().front());
}

TEST_F(GenerateForMessageTest, ReportsAnUnreadableProviderType) {
  info.hCryptProv = Context();
  provider.FailCall("GetProvParam", 1, 0x8009001D);
  ExpectFailure([&] { return Call(); }, 0x8009001D,
                "EXT : ZarMsgGenContentEncryptKey : CryptGetProvParam error = 8009001d.");
  EXPECT_THAT(provider.KeyCalls(), ElementsAre("GetProvParam(1001, 16, 4, 0) ! 8009001d"));
}

// NTE_BAD_TYPE is thrown, but what the caller sees is NTE_NO_MEMORY.
TEST_F(GenerateForMessageTest, RefusesOtherProviderTypesAsLackOfMemory) {
  info.hCryptProv = Context();
  for (const DWORD type : {24u, 0u, 2u, 12u, 26u, 0x119u, 0x80000019u, 0xFFFFFFFFu}) {
    provider.providerType = type;
    ExpectFailure([&] { return Call(); }, 0x8009000E,
                  "EXT : ZarMsgGenContentEncryptKey : CryptGetProvParam[" +
                      Low(GetCurrentThreadId()) + "] : PP_PROVTYPE=" + Low(type) + ".");
    EXPECT_EQ(0u, info.hContentEncryptKey);
  }
}

TEST_F(GenerateForMessageTest, AcceptsTheRsaProviderType) {
  const ProviderContext rsa(1);
  info.hCryptProv = rsa.Get();
  provider.providerType = 1;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(0x4001u, OwnKey(info.hContentEncryptKey));
  CryptDestroyKey(info.hContentEncryptKey);
}

TEST_F(GenerateForMessageTest, AcquiresAVerificationContextAndAsksForItsRelease) {
  info.dwFlags = 0x123;
  const RecordedAcquisitions acquisitions;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(acquisitions.Calls(), ElementsAre("CryptAcquireContextA(null, null, 25, f0000000)"));
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 1001", "GenKey(1001, 681f, 1) = 4001"));
  EXPECT_EQ(0x8000u, info.dwFlags);
  ASSERT_NE(0u, info.hCryptProv);
  CryptDestroyKey(info.hContentEncryptKey);
  CryptReleaseContext(info.hCryptProv, 0);
}

TEST_F(GenerateForMessageTest, ReportsAFailedAcquisition) {
  info.dwFlags = 0x123;
  provider.FailCall("AcquireContext", 1, 0x80090016);
  ExpectFailure([&] { return Call(); }, 0x80090016,
                "EXT : ZarMsgGenContentEncryptKey : CryptAcquireContext = 80090016.");
  EXPECT_EQ(0x123u, info.dwFlags);
  EXPECT_EQ(0u, info.hCryptProv);
}

// What was written before the failure stays.
TEST_F(GenerateForMessageTest, KeepsAnAcquiredContextWhenGenerationFails) {
  provider.FailCall("GenKey", 1, 0x80090020);
  ExpectFailure([&] { return Call(); }, 0x80090020,
                "EXT : ZarMsgGenContentEncryptKey : CryptGenKey = 80090020.");
  EXPECT_EQ(0x8000u, info.dwFlags);
  EXPECT_EQ(0u, info.hContentEncryptKey);
  EXPECT_THAT(provider.OpenContexts(), ElementsAre(0x1001));
  CryptReleaseContext(info.hCryptProv, 0);
}

TEST_F(GenerateForMessageTest, RefusesAMissingRecipientArray) {
  info.cRecipients = 1;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(4u, trace.Messages().size());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(GenerateForMessageTest, RefusesAMissingRecipientWhereItsKeyIsNeeded) {
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  recipient.pKeyTrans = nullptr;
  info.hCryptProv = Context();
  provider.ClearCalls();
  ExpectFailure([&] { return Call(); }, 87,
                "EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_TRANS_RECIPIENT = (null).");
  EXPECT_EQ(2u, provider.Calls().size());
}

TEST_F(GenerateForMessageTest, TracesMissingTextsAsNull) {
  UseRecipient(CMSG_KEY_AGREE_RECIPIENT);
  recipient.pKeyAgree = nullptr;
  info.hCryptProv = Context();
  {
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_AGREE_RECIPIENT = (null).",
              trace.Messages().back());
  }
  const ProviderHandleAsKey providerHandleAsKey;
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  keyTrans.KeyEncryptionAlgorithm.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : CMSG_KEY_TRANS_RECIPIENT = (null).",
            trace.Messages().back());
  LocalFree(info.pbContentEncryptKey);
}

}  // namespace
}  // namespace zarext::test
