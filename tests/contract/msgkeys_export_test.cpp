// ZarMsgExportKeyTrans: what is read of the message, what is traced, what is refused.
#include "contract/msgkeys_export_fixture.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The descriptor's block has room for one octet; what lies behind it is a forbidden page.
TEST_F(ExportForMessageTest, AsksForADescriptorOfOneOctetAndThenForTheData) {
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(allocator.sizes, ElementsAre(1u, 512u));
  EXPECT_THAT(allocator.Block(0), ElementsAre(0));
  EXPECT_EQ(allocator.Address(1), output.EncryptedKey.pbData);
}

TEST_F(ExportForMessageTest, WithoutAnAllocatorTheBlocksAreLocalMemory) {
  info.pfnAlloc = nullptr;
  RecordedLocalAlloc localAlloc;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(localAlloc.Calls(), ElementsAre("LocalAlloc(40, 1)", "LocalAlloc(40, 512)"));
  EXPECT_EQ(512u, LocalSize(output.EncryptedKey.pbData));
  EXPECT_EQ(140u, output.EncryptedKey.cbData);
  LocalFree(output.EncryptedKey.pbData);
}

TEST_F(ExportForMessageTest, TracesAKeyTransportRecipient) {
  info.dwEncryptFlags = 0xA1;
  info.dwFlags = 0xB2;
  keyTrans.RecipientId.dwIdChoice = 0x1C;
  output.dwFlags = 0xD4;
  output.dwRecipientIndex = 0x1E;
  output.EncryptedKey.cbData = 33;
  const std::string handles = "hContentEncryptKey = " + Low(info.hContentEncryptKey) +
                              ", hCryptProv=" + Low(info.hCryptProv) + ".";
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  const std::string own = "EXT : ZarMsgExportKeyTrans : ";
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(
          own + "ContentEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.2.4.",
          own + "dwEncryptFlags = a1, dwFlags=b2, pfnAlloc=" +
              PointerText(reinterpret_cast<void*>(&RecordedAllocator::Allocate)) + ".",
          own + handles, own + "rgCmsRecipients.dwRecipientChoice = 1.",
          own + "pKeyTrans->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
          own + "pKeyTrans->hCryptProv = 0.",
          own + "pKeyTrans->RecipientPublicKeySize = 4 (" + PointerText(publicKey.data()) + ").",
          own + "pKeyTransEncodeInfo->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
          own + "pKeyTransEncodeInfo->hCryptProv=0.",
          own + "pKeyTransEncodeInfo->RecipientId.dwIdChoice = 1c.",
          own + "pKeyTransEncodeInfo->RecipientPublicKeySize = 4 (" +
              Low(reinterpret_cast<ULONG_PTR>(publicKey.data())) + ").",
          own + "pKeyTransEncryptInfo->dwFlags = d4, dwRecipientIndex=1e.",
          own + "pKeyTransEncryptInfo->KeyEncryptionAlgorithm=1.2.643.2.2.20.",
          own + "pKeyTransEncryptInfo->EncryptedKeySize=33.", own + "EncryptedKeySize=140."));
}

TEST_F(ExportForMessageTest, TakesTheProviderOfAMailListAndNothingElse) {
  const ProviderContext second;
  CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO mailList = {};
  mailList.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.3.4");
  mailList.hCryptProv = second.Get();
  mailList.dwKeyChoice = 17;
  first.dwRecipientChoice = CMSG_MAIL_LIST_RECIPIENT;
  first.pMailList = &mailList;
  provider.ClearCalls();
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  const auto messages = trace.Messages();
  ASSERT_LT(7u, messages.size());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : rgCmsRecipients.dwRecipientChoice = 3.", messages[3]);
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : pMailList->KeyEncryptionAlgorithm = 1.2.3.4.",
            messages[4]);
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : pMailList->hCryptProv = " + Low(second.Get()) + ".",
            messages[5]);
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : pMailList->dwKeyChoice = 17.", messages[6]);
  EXPECT_EQ(
      "EXT : ZarMsgExportKeyTrans : pKeyTransEncodeInfo->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
      messages[7]);
  EXPECT_EQ("ImportKey(1002, [0602abcd], 0, 0) = 3001", provider.Calls().front());
  EXPECT_THAT(provider.Calls(), Contains("GetUserKey(1002, 1) = 2001"));
}

TEST_F(ExportForMessageTest, TracesNumbersAsTheyAlwaysWere) {
  CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO mailList = {};
  for (const TracedNumber& row : kTracedNumbers) {
    const std::string own = "EXT : ZarMsgExportKeyTrans : ";
    first.dwRecipientChoice = row.number;
    info.dwEncryptFlags = row.number;
    info.dwFlags = row.number;
    keyTrans.RecipientId.dwIdChoice = row.number;
    output.dwFlags = row.number;
    output.dwRecipientIndex = row.number;
    output.EncryptedKey = {row.number, nullptr};
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    auto messages = trace.Messages();
    ASSERT_EQ(12u, messages.size());
    EXPECT_THAT(messages[1], HasSubstr(std::string("dwEncryptFlags = ") + row.hexadecimal +
                                       ", dwFlags=" + row.hexadecimal + ", pfnAlloc="));
    EXPECT_EQ(own + "rgCmsRecipients.dwRecipientChoice = " + row.hexadecimal + ".", messages[3]);
    EXPECT_EQ(own + "pKeyTransEncodeInfo->RecipientId.dwIdChoice = " + row.hexadecimal + ".",
              messages[6]);
    EXPECT_EQ(own + "pKeyTransEncryptInfo->dwFlags = " + row.hexadecimal +
                  ", dwRecipientIndex=" + row.hexadecimal + ".",
              messages[8]);
    EXPECT_EQ(own + "pKeyTransEncryptInfo->EncryptedKeySize=" + row.decimal + ".", messages[10]);
    // Of a mail list, and of keys that are not there.
    first.dwRecipientChoice = CMSG_MAIL_LIST_RECIPIENT;
    first.pMailList = &mailList;
    mailList.dwKeyChoice = row.number;
    mailList.hCryptProv = row.number;
    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO bare = {};
    bare.hCryptProv = row.number;
    bare.RecipientPublicKey.cbData = row.number;
    trace.Clear();
    EXPECT_EQ(FALSE, Call(&bare, &output));
    messages = trace.Messages();
    ASSERT_LT(10u, messages.size());
    EXPECT_EQ(own + "pMailList->hCryptProv = " + row.hexadecimal + ".", messages[5]);
    EXPECT_EQ(own + "pMailList->dwKeyChoice = " + row.decimal + ".", messages[6]);
    EXPECT_EQ(own + "pKeyTransEncodeInfo->hCryptProv=" + row.hexadecimal + ".", messages[8]);
    EXPECT_EQ(own + "pKeyTransEncodeInfo->RecipientPublicKeySize = " + row.decimal + " (0).",
              messages[10]);
    first.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
    first.pKeyTrans = &bare;
    trace.Clear();
    EXPECT_EQ(FALSE, Call(&bare, &output));
    EXPECT_EQ(own + "pKeyTrans->hCryptProv = " + row.hexadecimal + ".", trace.Messages()[5]);
    EXPECT_EQ(own + "pKeyTrans->RecipientPublicKeySize = " + row.decimal + " (0000000000000000).",
              trace.Messages()[6]);
  }
}

// A mail list without a provider leaves the structure's; the argument's comes before the list's.
TEST_F(ExportForMessageTest, TheProviderIsTheArgumentsThenTheMailListsThenTheStructures) {
  const ProviderContext second;
  const ProviderContext third;
  CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO mailList = {};
  first.dwRecipientChoice = CMSG_MAIL_LIST_RECIPIENT;
  first.pMailList = &mailList;
  struct Row {
    HCRYPTPROV list;
    HCRYPTPROV argument;
    const char* provider;
  };
  for (const Row& row : {Row{0, 0, "1001"}, Row{second.Get(), 0, "1002"},
                         Row{0, third.Get(), "1003"}, Row{second.Get(), third.Get(), "1003"}}) {
    SCOPED_TRACE(row.provider);
    mailList.hCryptProv = row.list;
    keyTrans.hCryptProv = row.argument;
    provider.ClearCalls();
    EXPECT_EQ(TRUE, Call());
    EXPECT_THAT(provider.Calls().front(),
                testing::StartsWith("ImportKey(" + std::string(row.provider) + ", [0602abcd]"));
    EXPECT_THAT(provider.Calls()[1],
                testing::StartsWith("GetUserKey(" + std::string(row.provider) + ", 1)"));
  }
}

TEST_F(ExportForMessageTest, AnotherRecipientChoiceAddsNothing) {
  first.dwRecipientChoice = 0x1F;
  first.pKeyTrans = nullptr;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  const auto messages = trace.Messages();
  ASSERT_EQ(12u, messages.size());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : rgCmsRecipients.dwRecipientChoice = 1f.", messages[3]);
  EXPECT_EQ(
      "EXT : ZarMsgExportKeyTrans : pKeyTransEncodeInfo->KeyEncryptionAlgorithm = 1.2.643.2.2.19.",
      messages[4]);
}

// The first element decides, whatever cRecipients and dwRecipientIndex say.
TEST_F(ExportForMessageTest, LooksAtTheFirstRecipientOnly) {
  CMSG_RECIPIENT_ENCODE_INFO both[2] = {};
  both[0].dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
  both[0].pKeyTrans = &keyTrans;
  both[1].dwRecipientChoice = CMSG_KEY_AGREE_RECIPIENT;
  info.rgCmsRecipients = both;
  info.cRecipients = 0;
  output.dwRecipientIndex = 1;
  EXPECT_EQ(TRUE, Call());
}

TEST_F(ExportForMessageTest, RefusesKeyAgreement) {
  first.dwRecipientChoice = CMSG_KEY_AGREE_RECIPIENT;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : rgCmsRecipients.dwRecipientChoice = 2.",
            trace.Messages().back());
  EXPECT_EQ(4u, trace.Messages().size());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ExportForMessageTest, TheFirstRecipientSuppliesWhatTheArgumentLacks) {
  const ProviderContext second;
  keyTrans.hCryptProv = second.Get();
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO bare = {};
  bare.KeyEncryptionAlgorithm.pszObjId = OidText("1.2.840.113549.1.1.1");
  provider.ClearCalls();
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call(&bare, &output));
  EXPECT_EQ("ImportKey(1002, [0602abcd], 0, 0) = 3001", provider.Calls().front());
  const auto messages = trace.Messages();
  ASSERT_LT(10u, messages.size());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : pKeyTrans->hCryptProv = " + Low(second.Get()) + ".",
            messages[5]);
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : pKeyTransEncodeInfo->RecipientPublicKeySize = 0 (0).",
            messages[10]);
}

TEST_F(ExportForMessageTest, TheArgumentOverridesTheFirstRecipient) {
  const ProviderContext second;
  const ProviderContext third;
  keyTrans.hCryptProv = second.Get();
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO own = keyTrans;
  Octets ownKey = {0x06, 0x20, 0x99};
  own.hCryptProv = third.Get();
  own.RecipientPublicKey = {3, ownKey.data(), 0};
  provider.ClearCalls();
  EXPECT_EQ(TRUE, Call(&own, &output));
  EXPECT_EQ("ImportKey(1003, [062099], 0, 0) = 3001", provider.Calls().front());
}

// No octet is read that neither the argument nor the first recipient announces.
TEST_F(ExportForMessageTest, ALengthWithoutAPointerShortensTheFirstRecipientsKey) {
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO argument = keyTrans;
  argument.RecipientPublicKey = {2, nullptr, 0};
  EXPECT_EQ(TRUE, Call(&argument, &output));
  EXPECT_EQ("ImportKey(1001, [0602], 0, 0) = 3001", provider.Calls().front());
  provider.ClearCalls();
  argument.RecipientPublicKey = {4, nullptr, 0};
  EXPECT_EQ(TRUE, Call(&argument, &output));
  EXPECT_EQ("ImportKey(1001, [0602abcd], 0, 0) = 3002", provider.Calls().front());
  provider.ClearCalls();
  argument.RecipientPublicKey = {5, nullptr, 0};
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(&argument, &output));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : CryptImportKey = 57.", trace.Messages().back());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(ExportForMessageTest, WithoutALengthTheFirstRecipientsKeyIsTaken) {
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO argument = keyTrans;
  const GuardedMemory nothing(0);
  argument.RecipientPublicKey = {0, nothing.Data(), 0};
  EXPECT_EQ(TRUE, Call(&argument, &output));
  EXPECT_EQ("ImportKey(1001, [0602abcd], 0, 0) = 3001", provider.Calls().front());
}

TEST_F(ExportForMessageTest, RefusesMissingArguments) {
  auto* exportKey = Export<ExportKeyTrans>("ZarMsgExportKeyTrans");
  {
    TraceCapture trace;
    SetLastError(0);
    EXPECT_EQ(FALSE, exportKey(nullptr, &keyTrans, &output, 0, nullptr));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), IsEmpty());
  }
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(&keyTrans, &output, 1));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(4u, trace.Messages().size());
  }
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(nullptr, &output));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(7u, trace.Messages().size());
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// The output record is looked at after the provider has been asked for both keys.
TEST_F(ExportForMessageTest, AMissingOutputRecordFailsLate) {
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(&keyTrans, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(11u, trace.Messages().size());
  EXPECT_THAT(
      provider.Calls(),
      ElementsAre("ImportKey(1001, [0602abcd], 0, 0) = 3001", "GetUserKey(1001, 1) = 2001",
                  "SetProvParam(1001, 60, [01000000], 0)", "ExportKey(1001, 2001, 0, 6, 0, 512)",
                  "DestroyKey(1001, 3001)", "DestroyKey(1001, 2001)"));
  EXPECT_THAT(allocator.sizes, IsEmpty());
}

TEST_F(ExportForMessageTest, RefusesMissingInnerRecords) {
  {
    info.rgCmsRecipients = nullptr;
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(3u, trace.Messages().size());
    info.rgCmsRecipients = &first;
  }
  for (const DWORD choice : {DWORD{1}, DWORD{3}}) {
    first.dwRecipientChoice = choice;
    first.pKeyTrans = nullptr;
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(4u, trace.Messages().size());
  }
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// Without an OID the algorithm is a foreign one.
TEST_F(ExportForMessageTest, TracesMissingTextsAsNull) {
  info.ContentEncryptionAlgorithm.pszObjId = nullptr;
  keyTrans.KeyEncryptionAlgorithm.pszObjId = nullptr;
  output.KeyEncryptionAlgorithm.pszObjId = nullptr;
  info.pfnAlloc = nullptr;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(60u, output.EncryptedKey.cbData);
  const std::string own = "EXT : ZarMsgExportKeyTrans : ";
  const auto messages = trace.Messages();
  EXPECT_THAT(messages, Contains(own + "ContentEncryptionAlgorithm = (null)."));
  EXPECT_THAT(messages,
              Contains(own + "dwEncryptFlags = 0, dwFlags=0, pfnAlloc=0000000000000000."));
  EXPECT_THAT(messages, Contains(own + "pKeyTrans->KeyEncryptionAlgorithm = (null)."));
  EXPECT_THAT(messages, Contains(own + "pKeyTransEncodeInfo->KeyEncryptionAlgorithm = (null)."));
  EXPECT_THAT(messages, Contains(own + "pKeyTransEncryptInfo->KeyEncryptionAlgorithm=(null)."));
  LocalFree(output.EncryptedKey.pbData);
}

TEST_F(ExportForMessageTest, ReportsAFailedRecipientImport) {
  provider.FailCall("ImportKey", 1, 0x80090007);
  ExpectFailure([&] { return Call(); }, 0x80090007,
                "EXT : ZarMsgExportKeyTrans : CryptImportKey = 80090007.");
  EXPECT_EQ(1u, provider.Calls().size());
}

TEST_F(ExportForMessageTest, ReportsAFailedExport) {
  output.EncryptedKey = {5, publicKey.data()};
  provider.FailCall("ExportKey", 2, 0x80090003);
  ExpectFailure([&] { return Call(); }, 0x80090003,
                "EXT : ZarMsgExportKeyTrans : CryptExportKey = 80090003.");
  EXPECT_EQ(5u, output.EncryptedKey.cbData);
  EXPECT_EQ(publicKey.data(), output.EncryptedKey.pbData);
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

TEST_F(ExportForMessageTest, ReportsARefusedAllocation) {
  for (const std::size_t failing : {std::size_t{1}, std::size_t{2}}) {
    allocator.failing = failing;
    allocator.sizes.clear();
    EXPECT_EQ(FALSE, Call());
    EXPECT_EQ(0x8009000Eu, GetLastError());
    EXPECT_EQ(failing, allocator.sizes.size());
    EXPECT_EQ(nullptr, output.EncryptedKey.pbData);
    EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
  }
}

// The keys are destroyed after the failure has become the last error, so that a failing destruction
// shows in its place.
TEST_F(ExportForMessageTest, DestroysTheKeysAfterTheFailureIsReported) {
  provider.FailCall("ExportKey", 2, 0x80090003);
  provider.FailCall("DestroyKey", 2, 0x5A5A);
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x5A5Au, GetLastError());
  EXPECT_EQ("DestroyKey(1001, 2001) ! 5a5a", provider.Calls().back());
}

}  // namespace
}  // namespace zarext::test
