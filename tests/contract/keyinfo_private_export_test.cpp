// ZarExportPrivKeyFunc.
#include "contract/private_key_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ExportPrivate = BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, CRYPT_PRIVATE_KEY_INFO*,
                                  DWORD*);

class PrivateKeyExport : public KeyInfoTest {
 protected:
  PrivateKeyExport() { provider_.blobs[0x30] = PrivateKeyInfo(kSecret); }
  ExportPrivate* export_ = Export<ExportPrivate>("ZarExportPrivKeyFunc");
};

TEST_F(PrivateKeyExport, LaysOutStructureOidAndKey) {
  // 56 octets of structure, 32 for the OID, 32 of key, and nothing behind.
  const GuardedMemory block(Octets(120, 0xCC));
  auto* info = block.As<CRYPT_PRIVATE_KEY_INFO>();
  DWORD size = 7;
  char oid[] = "1.2.3";
  TraceCapture trace;
  ASSERT_EQ(TRUE, export_(Provider(), 1, oid, 0xFF, &size, info, &size));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarExportPrivKeyFunc : hCryptProv = " + H(Provider()) +
                              ", dwKeySpec = 1, pszPrivateKeyObjId = 1.2.3.",
                          "EXT : ZarExportPrivKeyFunc : Algorithm.pszObjId = 1.2.643.2.2.19, "
                          "Parameters.cbData = 0."));
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("GetUserKey(1001, 1) = 2001", "ExportKey(1001, 2001, 0, 48, 0, 4096)",
                          "DestroyKey(1001, 2001)"));
  EXPECT_EQ(0u, info->Version);
  EXPECT_EQ(reinterpret_cast<char*>(block.Data()) + 56, info->Algorithm.pszObjId);
  EXPECT_STREQ("1.2.643.2.2.19", info->Algorithm.pszObjId);
  EXPECT_EQ(0u, info->Algorithm.Parameters.cbData);
  EXPECT_EQ(reinterpret_cast<BYTE*>(0xCCCCCCCCCCCCCCCC), info->Algorithm.Parameters.pbData);
  EXPECT_EQ(32u, info->PrivateKey.cbData);
  EXPECT_EQ(block.Data() + 88, info->PrivateKey.pbData);
  EXPECT_EQ(kSecret, Octets(block.Data() + 88, block.Data() + 120));
  EXPECT_EQ(reinterpret_cast<CRYPT_ATTRIBUTES*>(0xCCCCCCCC00000000), info->pAttributes)
      << "only the low half is written";
  EXPECT_EQ(Octets(17, 0xCC), Octets(block.Data() + 71, block.Data() + 88));
  EXPECT_EQ(7u, size);
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_F(PrivateKeyExport, TheVersionIsNotTheDocuments) {
  provider_.blobs[0x30] =
      Element(0x30, Join({{0x02, 0x01, 0x01}, kCryptoProAlgorithm, Element(0x04, kSecret)}));
  const GuardedMemory block(Octets(120, 0xCC));
  ASSERT_EQ(TRUE, export_(Provider(), 1, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(),
                          nullptr));
  EXPECT_EQ(0u, block.As<CRYPT_PRIVATE_KEY_INFO>()->Version);
  EXPECT_EQ(kSecret, Octets(block.Data() + 88, block.Data() + 120));
}

TEST_F(PrivateKeyExport, TracesNumbersAsTheyAlwaysWere) {
  const std::pair<DWORD, const char*> rows[] = {{17, "17"}, {0xFFFFFFFE, "-2"}};
  for (const auto& [number, text] : rows) {
    char empty[] = "";
    TraceCapture trace;
    EXPECT_EQ(TRUE, export_(Provider(), number, empty, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ("EXT : ZarExportPrivKeyFunc : hCryptProv = " + H(Provider()) +
                  ", dwKeySpec = " + text + ", pszPrivateKeyObjId = .",
              trace.Messages().front());
  }
}

TEST_F(PrivateKeyExport, ASizeQueryAnswers2048) {
  for (const std::size_t size : {0u, 100u, 4096u}) {
    provider_.blobs[0x30] = Octets(size, 0x11);
    DWORD reported = 7;
    TraceCapture trace;
    EXPECT_EQ(TRUE, export_(Provider(), 2, nullptr, 0, nullptr, nullptr, &reported));
    EXPECT_EQ(2048u, reported);
    EXPECT_THAT(trace.Messages(),
                ElementsAre("EXT : ZarExportPrivKeyFunc : hCryptProv = " + H(Provider()) +
                            ", dwKeySpec = 2, pszPrivateKeyObjId = (null)."));
  }
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_F(PrivateKeyExport, SucceedsWithoutAnyOutput) {
  EXPECT_EQ(TRUE, export_(Provider(), 2, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_F(PrivateKeyExport, OtherBlobsAreTheKeyUnderTheDefaultOid) {
  const std::vector<Octets> rows = {
      {},
      {0x07},
      {0x07, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00},
      // Not quite a PrivateKeyInfo: no private key, and another tag.
      {0x30, 0x0F, 0x02, 0x01, 0x00, 0x30, 0x0A, 0x06, 0x06, 0x2A, 0x85, 0x03, 0x02, 0x02, 0x13,
       0x05, 0x00},
      Element(0x31, Join({{0x02, 0x01, 0x00}, kCryptoProAlgorithm, Element(0x04, kSecret)})),
      Octets(4096, 0x30),
  };
  for (const Octets& blob : rows) {
    provider_.blobs[0x30] = blob;
    const GuardedMemory block(88 + blob.size());
    auto* info = block.As<CRYPT_PRIVATE_KEY_INFO>();
    TraceCapture trace;
    ASSERT_EQ(TRUE, export_(Provider(), 2, nullptr, 0, nullptr, info, nullptr));
    EXPECT_STREQ("1.3.6.1.4.1.32473.1.5.8", info->Algorithm.pszObjId);
    EXPECT_EQ(blob.size(), info->PrivateKey.cbData);
    EXPECT_EQ(blob, Octets(block.Data() + 88, block.Data() + 88 + blob.size()));
    EXPECT_EQ(
        "EXT : ZarExportPrivKeyFunc : Algorithm.pszObjId = 1.3.6.1.4.1.32473.1.5.8, "
        "Parameters.cbData = 0.",
        trace.Messages().back());
  }
}

// In BER, with an indefinite length: read if it is a PrivateKeyInfo, else handed out octet for
// octet.
TEST_F(PrivateKeyExport, IndefiniteDocumentsAreReadOrHandedOutUnchanged) {
  const Octets content = Join({{0x02, 0x01, 0x00}, kCryptoProAlgorithm, Element(0x04, kSecret)});
  const Octets document = Join({{0x30, 0x80}, content, {0x00, 0x00}});
  const Octets other = Join({{0x30, 0x80}, kCryptoProAlgorithm, content, {0x00, 0x00}});
  for (const auto& [blob, key] : {std::pair{document, kSecret}, std::pair{other, other}}) {
    provider_.blobs[0x30] = blob;
    const GuardedMemory block(88 + key.size());
    ASSERT_EQ(TRUE, export_(Provider(), 1, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(),
                            nullptr));
    EXPECT_EQ(key.size(), block.As<CRYPT_PRIVATE_KEY_INFO>()->PrivateKey.cbData);
    EXPECT_EQ(key, Octets(block.Data() + 88, block.Data() + block.Size()));
  }
}

// The area of 32 octets holds 31 characters and their end.
TEST_F(PrivateKeyExport, AnOidIsCutToItsArea) {
  const Octets arc = {0xFF, 0xFF, 0xFF, 0x7F};  // 268435455
  const struct {
    const char* name;
    Octets last;
  } rows[] = {
      {"1.2.268435455.268435455.268435455.268435455: 43 characters", Join({arc, arc})},
      {"1.2.268435455.268435455.2684354: 31 characters", {0x81, 0xA3, 0xEB, 0x42}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Octets algorithm = Element(0x30, Element(0x06, Join({{0x2A}, arc, arc, row.last})));
    provider_.blobs[0x30] = PrivateKeyInfo(kSecret, algorithm);
    const GuardedMemory block(Octets(120, 0xCC));
    TraceCapture trace;
    ASSERT_EQ(TRUE, export_(Provider(), 2, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(),
                            nullptr));
    EXPECT_STREQ("1.2.268435455.268435455.2684354",
                 block.As<CRYPT_PRIVATE_KEY_INFO>()->Algorithm.pszObjId);
    EXPECT_EQ(kSecret, Octets(block.Data() + 88, block.Data() + 120));
    EXPECT_EQ(
        "EXT : ZarExportPrivKeyFunc : Algorithm.pszObjId = 1.2.268435455.268435455.2684354, "
        "Parameters.cbData = 0.",
        trace.Messages().back());
  }
}

TEST_F(PrivateKeyExport, ANullProviderIsRefusedByThePlatform) {
  TraceCapture trace;
  EXPECT_EQ(FALSE, export_(0, 1, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarExportPrivKeyFunc : CryptGetUserKey = 57.", trace.Messages().back());
}

// A call into the provider that fails, and what is seen of it.
struct FailedCall {
  const char* name;
  const char* function;  // the provider's
  DWORD error;
  const char* line;
  std::vector<std::string> calls;
  friend void PrintTo(const FailedCall& row, std::ostream* out) { *out << row.name; }
};

class FailedPrivateKeyExport : public PrivateKeyExport,
                               public testing::WithParamInterface<FailedCall> {};

INSTANTIATE_TEST_SUITE_P(Calls, FailedPrivateKeyExport,
                         testing::Values(FailedCall{"NoUserKey",
                                                    "GetUserKey",
                                                    0x8009000D,
                                                    "CryptGetUserKey = 8009000d.",
                                                    {"GetUserKey(1001, 1) ! 8009000d"}},
                                         FailedCall{
                                             "FailedExportDestroysTheKeyOnce",
                                             "ExportKey",
                                             0x8009000B,
                                             "CryptExportKey = 8009000b.",
                                             {"GetUserKey(1001, 1) = 2001",
                                              "ExportKey(1001, 2001, 0, 48, 0, 4096) ! 8009000b",
                                              "DestroyKey(1001, 2001)"}},
                                         FailedCall{"FailedExportWithoutAnError",
                                                    "ExportKey",
                                                    0,
                                                    "CryptExportKey = 0.",
                                                    {"GetUserKey(1001, 1) = 2001",
                                                     "ExportKey(1001, 2001, 0, 48, 0, 4096) ! 0",
                                                     "DestroyKey(1001, 2001)"}}),
                         [](const auto& variant) { return std::string(variant.param.name); });

TEST_P(FailedPrivateKeyExport, TracesItsCodeAndWritesNothing) {
  const FailedCall& row = GetParam();
  provider_.FailCall(row.function, 1, row.error);
  const GuardedMemory block(Octets(120, 0xCC));
  TraceCapture trace;
  EXPECT_EQ(FALSE, export_(Provider(), 1, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(),
                           nullptr));
  EXPECT_EQ(row.error, GetLastError());
  EXPECT_EQ(std::string("EXT : ZarExportPrivKeyFunc : ") + row.line, trace.Messages().back());
  EXPECT_EQ(2u, trace.Messages().size());
  EXPECT_EQ(row.calls, provider_.KeyCalls());
  EXPECT_EQ(Octets(120, 0xCC), block.Content());
}

TEST_F(PrivateKeyExport, BlobsOf4096OctetsPassLongerOnesFail) {
  provider_.blobs[0x30] = PrivateKeyInfo(Counted(4096 - 23));
  ASSERT_EQ(4096u, provider_.blobs[0x30].size());
  const GuardedMemory block(88 + 4096 - 23);
  ASSERT_EQ(TRUE, export_(Provider(), 1, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(),
                          nullptr));
  EXPECT_EQ(Counted(4096 - 23), Octets(block.Data() + 88, block.Data() + block.Size()));
  provider_.blobs[0x30].push_back(0);
  EXPECT_EQ(FALSE, export_(Provider(), 1, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(234u, GetLastError());
  provider_.blobs[0x30].pop_back();
  provider_.claimedExportSize = 4097;
  EXPECT_EQ(FALSE, export_(Provider(), 1, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(234u, GetLastError());
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_F(PrivateKeyExport, LeavesNoKeyInFreedMemory) {
  const FreeSearch search;
  for (const Octets& key : {kSecret, Join({kSecret, kSecret})}) {
    for (const Octets& blob : {PrivateKeyInfo(key), key, Element(0x30, Element(0x04, key))}) {
      provider_.blobs[0x30] = blob;
      EXPECT_EQ(TRUE, export_(Provider(), 1, nullptr, 0, nullptr, nullptr, nullptr));
      EXPECT_EQ(0, search.Leaks()) << HexText(blob);
      EXPECT_LT(0, search.Frees());
    }
  }
}

TEST_F(PrivateKeyExport, EveryAllocationMayFail) {
  const FreeSearch search;
  const AllocationLimit limit;
  int failures = 0;
  for (int n = 0; n < 1000; ++n) {
    const GuardedMemory block(Octets(120, 0xCC));
    SetLastError(kUntouchedError);
    limit.Allow(n);
    const BOOL done =
        export_(Provider(), 1, nullptr, 0, nullptr, block.As<CRYPT_PRIVATE_KEY_INFO>(), nullptr);
    const bool failed = limit.End();
    ASSERT_EQ(0, search.Leaks()) << n;
    ASSERT_THAT(provider_.OpenKeys(), IsEmpty());
    if (!failed) {
      EXPECT_EQ(TRUE, done);
      break;
    }
    ++failures;
    ASSERT_EQ(FALSE, done) << n;
    ASSERT_EQ(0x8009000Eu, GetLastError()) << n;
    ASSERT_EQ(Octets(120, 0xCC), block.Content()) << n;
  }
  EXPECT_LT(1, failures);
}

}  // namespace
}  // namespace zarext::test
