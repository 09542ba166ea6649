// ZarMsgGenContentEncryptKey: the generated key, wrapped for the first recipient.
#include "contract/msgkeys_generate_fixture.h"
#include "contract/recorded_acquisitions.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The calls for one recipient, all of them in the structure's provider.
auto IsOneWrappedKey() {
  return ElementsAre("GetProvParam(1001, 16, 4, 0)", "GenKey(1001, 681f, 1) = 4001",
                     "ImportKey(1001, [0602abcd], 0, 0) = 3001",
                     "ExportKey(1001, 1001, 3001, 1, 0, 512)");
}

// The older form opens a container for an exchange key; this one does not.
TEST_F(GenerateForMessageTest, AcquiresAVerificationContextForAnExchangeKeyToo) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  keyTrans.KeyEncryptionAlgorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.4.4");
  const RecordedAcquisitions acquisitions;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(acquisitions.Calls(), ElementsAre("CryptAcquireContextA(null, null, 25, f0000000)"));
  LocalFree(info.pbContentEncryptKey);
  CryptDestroyKey(info.hContentEncryptKey);
  CryptReleaseContext(info.hCryptProv, 0);
}

// The key is imported where it is to be used, not where the recipient's record says.
TEST_F(GenerateForMessageTest, WrapsInTheProviderOfTheStructure) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseWrapping();
  const ProviderContext second;
  keyTrans.hCryptProv = second.Get();
  provider.ClearCalls();
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), IsOneWrappedKey());
}

TEST_F(GenerateForMessageTest, WithoutRecipientsLeavesTheWrappedKeyFieldsAlone) {
  BYTE octet = 0;
  info.hCryptProv = Context();
  info.pbContentEncryptKey = &octet;
  info.cbContentEncryptKey = 77;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(&octet, info.pbContentEncryptKey);
  EXPECT_EQ(77u, info.cbContentEncryptKey);
}

TEST_F(GenerateForMessageTest, OtherRecipientsZeroTheWrappedLength) {
  BYTE octet = 0;
  CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO keyAgree = {};
  for (const DWORD choice : {DWORD{2}, DWORD{3}, DWORD{0}, DWORD{9}}) {
    SCOPED_TRACE(choice);
    UseRecipient(choice);
    recipient.pKeyAgree = choice == 2 ? &keyAgree : nullptr;
    info.hCryptProv = Context();
    info.pbContentEncryptKey = &octet;
    info.cbContentEncryptKey = 77;
    provider.ClearCalls();
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(&octet, info.pbContentEncryptKey);
    EXPECT_EQ(0u, info.cbContentEncryptKey);
    EXPECT_EQ(2u, provider.Calls().size());
    EXPECT_EQ(choice == 2 ? 6u : 5u, trace.Messages().size());
    info.cbContentEncryptKey = 0;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(0u, info.cbContentEncryptKey);
  }
}

// The exported key is named by the provider's handle, and the recipient's key stays open.
TEST_F(GenerateForMessageTest, WrapsForAKeyTransportRecipient) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseWrapping();
  info.cbContentEncryptKey = 1;
  provider.ClearCalls();
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(), IsOneWrappedKey());
  EXPECT_THAT(allocator.sizes, ElementsAre(512u));
  EXPECT_EQ(allocator.Address(0), info.pbContentEncryptKey);
  EXPECT_EQ(60u, info.cbContentEncryptKey);
  Octets expected = Sequence(60, 0x10);
  expected.resize(512);
  EXPECT_EQ(expected, allocator.Block(0));
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x3001, 0x4001));
}

TEST_F(GenerateForMessageTest, WrapsUnderAContextOfItsOwn) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  info.cbContentEncryptKey = 9;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(0x8000u, info.dwFlags);
  EXPECT_EQ(60u, info.cbContentEncryptKey);
  EXPECT_EQ(Sequence(60, 0x10), Octets(info.pbContentEncryptKey, info.pbContentEncryptKey + 60));
  EXPECT_THAT(provider.KeyCalls(), ElementsAre("GenKey(1001, 681f, 1) = 4001",
                                               "ImportKey(1001, [0602abcd], 0, 0) = 3001",
                                               "ExportKey(1001, 1001, 3001, 1, 0, 512)"));
  LocalFree(info.pbContentEncryptKey);
  CryptReleaseContext(info.hCryptProv, 0);
}

TEST_F(GenerateForMessageTest, AWrappedKeyMayFillTheWholeBlock) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseWrapping();
  info.cbContentEncryptKey = 1;
  provider.blobs[SIMPLEBLOB] = Sequence(512, 0x20);
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(512u, info.cbContentEncryptKey);
  EXPECT_EQ(Sequence(512, 0x20), allocator.Block(0));
  provider.blobs[SIMPLEBLOB] = Sequence(513, 0x20);
  ExpectFailure([&] { return Call(); }, 234,
                "EXT : ZarMsgGenContentEncryptKey : CryptExportKey = ea.");
}

TEST_F(GenerateForMessageTest, AZeroWrappedLengthStaysZero) {
  const ProviderHandleAsKey providerHandleAsKey;
  RecordedLocalAlloc localAlloc;
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  info.hCryptProv = Context();
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(localAlloc.Calls(), ElementsAre("LocalAlloc(40, 512)"));
  ASSERT_NE(nullptr, info.pbContentEncryptKey);
  EXPECT_EQ(512u, LocalSize(info.pbContentEncryptKey));
  EXPECT_EQ(Sequence(60, 0x10), Octets(info.pbContentEncryptKey, info.pbContentEncryptKey + 60));
  EXPECT_EQ(0u, info.cbContentEncryptKey);
  LocalFree(info.pbContentEncryptKey);
}

// Older callers, and the framework of this test platform, pass a record of 104 octets, which ends
// before the wrapped key's pointer. What lies there is the caller's own.
TEST_F(GenerateForMessageTest, ARecordThatEndsBeforeTheWrappedKeyIsNotReadBehindItsEnd) {
  const ProviderHandleAsKey providerHandleAsKey;
  info.hCryptProv = Context();
  info.pfnAlloc = &RecordedAllocator::Allocate;
  CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO keyAgree = {};
  for (const DWORD choice : {DWORD{CMSG_KEY_TRANS_RECIPIENT}, DWORD{CMSG_KEY_AGREE_RECIPIENT}}) {
    SCOPED_TRACE(choice);
    UseRecipient(choice);
    if (choice == CMSG_KEY_AGREE_RECIPIENT) {
      recipient.pKeyAgree = &keyAgree;
    }
    const GuardedMemory shorter(104);
    auto* const record = reinterpret_cast<CMSG_CONTENT_ENCRYPT_INFO*>(shorter.Data());
    std::memcpy(shorter.Data(), &info, 104);
    record->cbSize = 104;
    provider.ClearCalls();
    EXPECT_EQ(TRUE, Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>(
                        "ZarMsgGenContentEncryptKey")(record, 0, nullptr));
    EXPECT_EQ(choice == CMSG_KEY_TRANS_RECIPIENT ? 4u : 2u, provider.Calls().size());
    EXPECT_NE(0u, record->hContentEncryptKey);
  }
  // The provider and the allocator see what they always see.
  EXPECT_THAT(allocator.sizes, ElementsAre(512u));
}

// Both fields count, or none. A size of 0 says nothing, and the record is taken for a whole one.
TEST_F(GenerateForMessageTest, TheSizeOfTheRecordDecidesAboutTheWrappedKeyFields) {
  const ProviderHandleAsKey providerHandleAsKey;
  info.hCryptProv = Context();
  info.pfnAlloc = &RecordedAllocator::Allocate;
  BYTE mark = 0;
  struct Row {
    DWORD size;
    bool present;
  };
  for (const Row& row : {Row{1, false}, Row{104, false}, Row{120, false}, Row{123, false},
                         Row{124, true}, Row{128, true}, Row{0, true}}) {
    SCOPED_TRACE(row.size);
    info.cbSize = row.size;
    info.pbContentEncryptKey = &mark;
    info.cbContentEncryptKey = 9;
    UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(row.present, info.pbContentEncryptKey != &mark);
    EXPECT_EQ(row.present ? 60u : 9u, info.cbContentEncryptKey);
    info.cbContentEncryptKey = 9;
    UseRecipient(CMSG_MAIL_LIST_RECIPIENT);
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ(row.present ? 0u : 9u, info.cbContentEncryptKey);
  }
}

TEST_F(GenerateForMessageTest, ReportsAFailedRecipientImport) {
  UseWrapping();
  provider.FailCall("ImportKey", 1, 0x80090007);
  ExpectFailure([&] { return Call(); }, 0x80090007,
                "EXT : ZarMsgGenContentEncryptKey : CryptImportKey = 80090007.");
  EXPECT_EQ(0x4001u, OwnKey(info.hContentEncryptKey));
  EXPECT_THAT(allocator.sizes, IsEmpty());
}

TEST_F(GenerateForMessageTest, StoresTheBlockBeforeTheExportThatFails) {
  const ProviderHandleAsKey providerHandleAsKey;
  UseWrapping();
  info.cbContentEncryptKey = 9;
  provider.FailCall("ExportKey", 1, 0x80090003);
  ExpectFailure([&] { return Call(); }, 0x80090003,
                "EXT : ZarMsgGenContentEncryptKey : CryptExportKey = 80090003.");
  EXPECT_EQ(allocator.Address(0), info.pbContentEncryptKey);
  EXPECT_EQ(9u, info.cbContentEncryptKey);
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x3001, 0x4001));
}

// Behind an unpatched advapi32 the provider's handle is no key.
TEST_F(GenerateForMessageTest, ThePlatformRefusesTheProviderHandleAsKey) {
  UseRecipient(CMSG_KEY_TRANS_RECIPIENT);
  info.hCryptProv = Context();
  ExpectFailure([&] { return Call(); }, 87,
                "EXT : ZarMsgGenContentEncryptKey : CryptExportKey = 57.");
  LocalFree(info.pbContentEncryptKey);
}

TEST_F(GenerateForMessageTest, ReportsARefusedAllocation) {
  allocator.failing = 1;
  UseWrapping();
  BYTE mark = 0;
  info.pbContentEncryptKey = &mark;
  provider.ClearCalls();
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_EQ(&mark, info.pbContentEncryptKey);
  EXPECT_EQ(3u, provider.Calls().size());
}

}  // namespace
}  // namespace zarext::test
