// ZarGenEncryptKey.
#include "contract/msgkeys_fixture.h"
#include "contract/recorded_acquisitions.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kAes[] = "2.16.840.1.101.3.4.1.2";
constexpr char kBlockCipher[] = "1.3.6.1.4.1.32473.1.2.4";
constexpr char kSecondBlockCipher[] = "1.3.6.1.4.1.32473.1.20.1";

class GenerateForPublicKeyTest : public MessageKeysTest {
 protected:
  GenerateForPublicKeyTest() {
    content.pszObjId = OidText(kAes);
    keyInfo.Algorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.3.4");
    keyInfo.PublicKey = {static_cast<DWORD>(publicKey.size()), publicKey.data(), 0};
    provider.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
  }

  using Generate = BOOL WINAPI(HCRYPTPROV*, CRYPT_ALGORITHM_IDENTIFIER*, void*,
                               CERT_PUBLIC_KEY_INFO*, PFN_CMSG_ALLOC, HCRYPTKEY*, BYTE**, DWORD*);

  BOOL Call() {
    SetLastError(0);
    // The auxiliary information is not looked at.
    return Export<Generate>("ZarGenEncryptKey")(&context, &content, reinterpret_cast<void*>(1),
                                                &keyInfo, &RecordedAllocator::Allocate, &key,
                                                &parameters, &parametersSize);
  }

  HCRYPTPROV context = 0;
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  CERT_PUBLIC_KEY_INFO keyInfo = {};
  HCRYPTKEY key = 0;
  BYTE* parameters = nullptr;
  DWORD parametersSize = 0;
  Octets publicKey = {0x06, 0x20, 0x12, 0x34};
  RecordedAllocator allocator;
};

TEST_F(GenerateForPublicKeyTest, GeneratesAndWraps) {
  context = Context();
  provider.ClearCalls();
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(provider.Calls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)", "GenKey(1001, 6611, 1) = 4001",
                          "ImportKey(1001, [06201234], 0, 0) = 3001",
                          "ExportKey(1001, 4001, 3001, 1, 0, 512)", "DestroyKey(1001, 3001)"));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarGenEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.3.4.",
                          "EXT : ZarGenEncryptKey : CryptAlgorithm = 2.16.840.1.101.3.4.1.2.",
                          "EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 6611."));
  EXPECT_THAT(allocator.sizes, ElementsAre(512u));
  EXPECT_EQ(allocator.Address(0), parameters);
  EXPECT_EQ(60u, parametersSize);
  Octets expected = Sequence(60, 0x10);
  expected.resize(512);
  EXPECT_EQ(expected, allocator.Block(0));
  EXPECT_EQ(0x4001u, OwnKey(key));
  EXPECT_THAT(provider.OpenKeys(), ElementsAre(0x4001));
}

TEST_F(GenerateForPublicKeyTest, ServesTheThreeContentAlgorithms) {
  context = Context();
  struct Row {
    const char* oid;
    const char* call;
    const char* line;
  };
  const Row rows[] = {
      {kAes, "GenKey(1001, 6611, 1) = 4001",
       "EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 6611."},
      {kBlockCipher, "GenKey(1001, 681f, 1) = 4002",
       "EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 681f."},
      {kSecondBlockCipher, "GenKey(1001, 6620, 1) = 4003",
       "EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 6620."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.oid);
    content.pszObjId = OidText(row.oid);
    provider.ClearCalls();
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    EXPECT_THAT(provider.Calls(), Contains(row.call));
    EXPECT_EQ(row.line, trace.Messages().back());
  }
}

TEST_F(GenerateForPublicKeyTest, OpensTheDefaultContainerForTheExchangeKey) {
  keyInfo.Algorithm.pszObjId = OidText("1.3.6.1.4.1.32473.1.4.4");
  const RecordedAcquisitions acquisitions;
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call());
  EXPECT_THAT(acquisitions.Calls(), ElementsAre("CryptAcquireContextA(null, null, 25, 0)"));
  EXPECT_EQ("EXT : ZarGenEncryptKey : Flags = 0, tempAlg = 6611.", trace.Messages().back());
  // The context is the caller's; nothing releases it here.
  EXPECT_THAT(provider.OpenContexts(), ElementsAre(0x1001));
  CryptDestroyKey(key);
  CryptReleaseContext(context, 0);
}

TEST_F(GenerateForPublicKeyTest, OpensAVerificationContextForOtherKeys) {
  for (const char* oid : {"1.3.6.1.4.1.32473.1.4.40", "1.3.6.1.4.1.32473.1.4",
                          "9.1.3.6.1.4.1.32473.1.4.4", "1.3.6.1.4.1.32473.1.3.4", "1.2.3", ""}) {
    SCOPED_TRACE(oid);
    keyInfo.Algorithm.pszObjId = OidText(oid);
    const RecordedAcquisitions acquisitions;
    context = 0;
    EXPECT_EQ(TRUE, Call());
    EXPECT_THAT(acquisitions.Calls(),
                ElementsAre("CryptAcquireContextA(null, null, 25, f0000000)"));
    CryptDestroyKey(key);
    CryptReleaseContext(context, 0);
  }
}

TEST_F(GenerateForPublicKeyTest, OutputsAreOptional) {
  context = Context();
  EXPECT_EQ(TRUE, Export<Generate>("ZarGenEncryptKey")(&context, &content, nullptr, &keyInfo,
                                                       &RecordedAllocator::Allocate, &key, nullptr,
                                                       &parametersSize));
  EXPECT_EQ(60u, parametersSize);
  EXPECT_EQ(TRUE, Export<Generate>("ZarGenEncryptKey")(&context, &content, nullptr, &keyInfo,
                                                       &RecordedAllocator::Allocate, &key,
                                                       &parameters, nullptr));
  EXPECT_EQ(allocator.Address(1), parameters);
  EXPECT_EQ(TRUE, Export<Generate>("ZarGenEncryptKey")(&context, &content, nullptr, &keyInfo,
                                                       &RecordedAllocator::Allocate, &key, nullptr,
                                                       nullptr));
  EXPECT_THAT(allocator.sizes, ElementsAre(512u, 512u, 512u));
}

TEST_F(GenerateForPublicKeyTest, WithoutAnAllocatorTheBlockIsLocalMemory) {
  RecordedLocalAlloc localAlloc;
  context = Context();
  EXPECT_EQ(TRUE,
            Export<Generate>("ZarGenEncryptKey")(&context, &content, nullptr, &keyInfo, nullptr,
                                                 &key, &parameters, &parametersSize));
  EXPECT_THAT(localAlloc.Calls(), ElementsAre("LocalAlloc(40, 512)"));
  EXPECT_EQ(512u, LocalSize(parameters));
  EXPECT_EQ(Sequence(60, 0x10), Octets(parameters, parameters + 60));
  EXPECT_EQ(0, parameters[511]);
  LocalFree(parameters);
}

TEST_F(GenerateForPublicKeyTest, RefusesMissingArguments) {
  auto* generate = Export<Generate>("ZarGenEncryptKey");
  context = Context();
  provider.ClearCalls();
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE,
              generate(&context, &content, nullptr, nullptr, nullptr, &key, nullptr, nullptr));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), IsEmpty());
  }
  {
    TraceCapture trace;
    EXPECT_EQ(FALSE,
              generate(&context, nullptr, nullptr, &keyInfo, nullptr, &key, nullptr, nullptr));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre("EXT : ZarGenEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.3.4."));
  }
  TraceCapture trace;
  SetLastError(0);
  EXPECT_EQ(FALSE, generate(nullptr, &content, nullptr, &keyInfo, nullptr, &key, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 6611.", trace.Messages().back());
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

// Behind the provider's type, in place of the call. Made by the module itself: not every version of
// the platform survives the call.
TEST_F(GenerateForPublicKeyTest, NoPlaceForTheHandleIsThePlatformsRefusal) {
  const RecordedImport<"CryptGenKey", decltype(CryptGenKey)> generation(Module(), "ADVAPI32.dll");
  context = Context();
  provider.ClearCalls();
  TraceCapture trace;
  SetLastError(0);
  EXPECT_EQ(FALSE, Export<Generate>("ZarGenEncryptKey")(&context, &content, nullptr, &keyInfo,
                                                        nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarGenEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.3.4.",
                          "EXT : ZarGenEncryptKey : CryptAlgorithm = 2.16.840.1.101.3.4.1.2.",
                          "EXT : ZarGenEncryptKey : Flags = f0000000, tempAlg = 6611.",
                          "EXT : ZarGenEncryptKey : CryptGenKey = 57."));
  EXPECT_THAT(provider.Calls(), ElementsAre("GetProvParam(1001, 16, 4, 0)"));
  EXPECT_THAT(LinesOf(events.Lines(), {"platform: "}), IsEmpty());
}

TEST_F(GenerateForPublicKeyTest, SurvivesMissingTexts) {
  context = Context();
  keyInfo.Algorithm.pszObjId = nullptr;
  {
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call());
    EXPECT_EQ("EXT : ZarGenEncryptKey : Algorithm = (null).", trace.Messages().front());
  }
  content.pszObjId = nullptr;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : ZarGenEncryptKey : Algorithm = (null).",
                                            "EXT : ZarGenEncryptKey : CryptAlgorithm = (null).",
                                            "EXT : ZarGenEncryptKey : pszObjId error = 80090008."));
}

TEST_F(GenerateForPublicKeyTest, RefusesOtherContentAlgorithms) {
  content.pszObjId = OidText("2.16.840.1.101.3.4.1.42");
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarGenEncryptKey : Algorithm = 1.3.6.1.4.1.32473.1.3.4.",
                          "EXT : ZarGenEncryptKey : CryptAlgorithm = 2.16.840.1.101.3.4.1.42.",
                          "EXT : ZarGenEncryptKey : pszObjId error = 80090008."));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(GenerateForPublicKeyTest, RefusesOtherProviderTypesAsLackOfMemory) {
  context = Context();
  for (const DWORD type : {24u, 0u, 2u, 12u, 26u, 0x119u, 0x80000019u, 0xFFFFFFFFu}) {
    provider.providerType = type;
    ExpectFailure([&] { return Call(); }, 0x8009000E,
                  "EXT : ZarGenEncryptKey : CryptGetProvParam[" + Low(GetCurrentThreadId()) +
                      "] : PP_PROVTYPE=" + Low(type) + ".");
  }
  EXPECT_EQ(0u, key);
  provider.providerType = 1;
  EXPECT_EQ(TRUE, Call());
}

TEST_F(GenerateForPublicKeyTest, ReportsAFailedAcquisition) {
  provider.FailCall("AcquireContext", 1, 0x80090016);
  ExpectFailure([&] { return Call(); }, 0x80090016,
                "EXT : ZarGenEncryptKey : CryptAcquireContext = 80090016.");
  EXPECT_EQ(0u, context);
}

// Each call fails in turn: its own line is the last one, its own code is the caller's, and the
// recipient's key is closed wherever it was open.
TEST_F(GenerateForPublicKeyTest, ReportsTheCallThatFailed) {
  struct Row {
    const char* function;
    const char* line;
    std::size_t calls;
    std::size_t openKeys;
  };
  const Row rows[] = {
      {"GetProvParam", "EXT : ZarGenEncryptKey : CryptGetProvParam error = 80090020.", 1, 0},
      {"GenKey", "EXT : ZarGenEncryptKey : CryptGenKey = 80090020.", 2, 0},
      {"ImportKey", "EXT : ZarGenEncryptKey : CryptImportKey = 80090020.", 3, 1},
      {"ExportKey", "EXT : ZarGenEncryptKey : CryptExportKey = 80090020.", 5, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.function);
    RecordingProvider failing;
    failing.blobs[SIMPLEBLOB] = Sequence(60, 0x10);
    failing.FailCall(row.function, 1, 0x80090020);
    UseScript(&failing);
    {
      const ProviderContext own;
      context = own.Get();
      ExpectFailure([&] { return Call(); }, 0x80090020, row.line);
      EXPECT_EQ(row.calls, failing.KeyCalls().size());
      EXPECT_EQ(row.openKeys, failing.OpenKeys().size());
      EXPECT_THAT(failing.OpenKeys(), Not(Contains(0x3001)));
      EXPECT_EQ(nullptr, parameters);
      EXPECT_EQ(0u, parametersSize);
    }
    UseScript(&provider);
  }
}

TEST_F(GenerateForPublicKeyTest, AProviderThatClaimsMoreThanItsRoomHasFailed) {
  provider.claimedExportSize = 513;
  ExpectFailure([&] { return Call(); }, 0x80090004,
                "EXT : ZarGenEncryptKey : CryptExportKey = 80090004.");
  EXPECT_EQ(nullptr, parameters);
  EXPECT_EQ(0u, parametersSize);
  provider.claimedExportSize = 512;
  EXPECT_EQ(TRUE, Call());
  EXPECT_EQ(512u, parametersSize);
}

// The type of a context that the module acquires itself is not asked for, and the context stays
// with the caller when a later step fails.
TEST_F(GenerateForPublicKeyTest, KeepsAnAcquiredContextWhenGenerationFails) {
  provider.providerType = 24;
  provider.FailCall("GenKey", 1, 0x80090020);
  ExpectFailure([&] { return Call(); }, 0x80090020,
                "EXT : ZarGenEncryptKey : CryptGenKey = 80090020.");
  EXPECT_THAT(provider.KeyCalls(), ElementsAre("GenKey(1001, 6611, 1) ! 80090020"));
  EXPECT_NE(0u, context);
  EXPECT_THAT(provider.OpenContexts(), ElementsAre(0x1001));
  CryptReleaseContext(context, 0);
}

TEST_F(GenerateForPublicKeyTest, ReportsARefusedAllocation) {
  context = Context();
  allocator.failing = 1;
  provider.ClearCalls();
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_THAT(provider.Calls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)", "GenKey(1001, 6611, 1) = 4001",
                          "ImportKey(1001, [06201234], 0, 0) = 3001", "DestroyKey(1001, 3001)"));
}

// The recipient's key is destroyed after the failure has become the last error, so that a failing
// destruction shows in its place.
TEST_F(GenerateForPublicKeyTest, DestroysTheRecipientKeyAfterTheFailureIsReported) {
  context = Context();
  provider.FailCall("ExportKey", 1, 0x80090020);
  provider.FailCall("DestroyKey", 1, 0x5A5A);
  EXPECT_EQ(FALSE, Call());
  EXPECT_EQ(0x5A5Au, GetLastError());
}

}  // namespace
}  // namespace zarext::test
