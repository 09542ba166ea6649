// ZarExportPublicKeyInfo and ZarExportPublicKeyInfoEx.
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "keyinfo_fixture.h"
#include "support/export_table.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PlainExport = BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, CERT_PUBLIC_KEY_INFO*, DWORD*);
using ExtendedExport = BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*,
                                   CERT_PUBLIC_KEY_INFO*, DWORD*);

// The key handle that the platform gave the module last.
HCRYPTKEY userKey = 0;
decltype(CryptGetUserKey)* realGetUserKey = nullptr;
BOOL WINAPI SpyGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) {
  const BOOL done = realGetUserKey(provider, keySpec, key);
  userKey = *key;
  return done;
}

// A PUBLICKEYBLOB of `size` octets.
Octets Blob(DWORD algorithm, std::size_t size) {
  Octets blob = Counted(size, 0x40);
  const Octets head = {0x06,
                       0x02,
                       0x00,
                       0x00,
                       static_cast<std::uint8_t>(algorithm),
                       static_cast<std::uint8_t>(algorithm >> 8),
                       static_cast<std::uint8_t>(algorithm >> 16),
                       static_cast<std::uint8_t>(algorithm >> 24)};
  std::copy_n(head.begin(), std::min(size, head.size()), blob.begin());
  return blob;
}

// One of the two exports.
class PublicKeyExportCall : public KeyInfoTest {
 protected:
  explicit PublicKeyExportCall(bool extended)
      : extended_(extended), spy_(Module(), "ADVAPI32.dll", "CryptGetUserKey", &SpyGetUserKey) {
    realGetUserKey = spy_.Original<decltype(CryptGetUserKey)>();
    provider_.blobs[PUBLICKEYBLOB] = Blob(0xAA3A, 100);
  }

  [[nodiscard]] bool Extended() const { return extended_; }
  [[nodiscard]] std::string Name() const {
    return extended_ ? "ZarExportPublicKeyInfoEx" : "ZarExportPublicKeyInfo";
  }

  BOOL Call(CERT_PUBLIC_KEY_INFO* info, DWORD* size, DWORD encodingType = 0x10001) {
    return CallWith(Provider(), encodingType, info, size);
  }
  BOOL CallWith(HCRYPTPROV provider, DWORD encodingType, CERT_PUBLIC_KEY_INFO* info,
                DWORD* size) const {
    return extended_ ? Export<ExtendedExport>("ZarExportPublicKeyInfoEx")(
                           provider, 2, encodingType, nullptr, 0, nullptr, info, size)
                     : Export<PlainExport>("ZarExportPublicKeyInfo")(provider, 2, encodingType,
                                                                     info, size);
  }

  const bool extended_;
  ImportPatch spy_;
};

std::string ExportName(bool extended) { return extended ? "Extended" : "Plain"; }

// Runs each test with both exports.
class PublicKeyExport : public PublicKeyExportCall, public testing::WithParamInterface<bool> {
 protected:
  PublicKeyExport() : PublicKeyExportCall(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Variants, PublicKeyExport, testing::Bool(),
                         [](const auto& variant) { return ExportName(variant.param); });

TEST_P(PublicKeyExport, LaysOutStructureOidAndBlobInOneBlock) {
  // 48 octets of structure, 32 for the OID, 100 of blob, and nothing behind.
  const GuardedMemory block(Octets(180, 0xCC));
  DWORD size = 7;
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), &size));
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : " + Name() + " : dwKeySpec = 2.",
                                            "EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=" +
                                                H(userKey) + ", ALG_ID = aa3a."));
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) = 2001",
                          "ExportKey(1001, 2001, 0, 6, 0, 1024)", "DestroyKey(1001, 2001)"));
  const auto* info = block.As<CERT_PUBLIC_KEY_INFO>();
  EXPECT_EQ(reinterpret_cast<char*>(block.Data()) + 48, info->Algorithm.pszObjId);
  EXPECT_EQ(0xCCCCCCCCu, info->Algorithm.Parameters.cbData);
  EXPECT_EQ(reinterpret_cast<BYTE*>(0xCCCCCCCCCCCCCCCC), info->Algorithm.Parameters.pbData);
  EXPECT_EQ(100u, info->PublicKey.cbData);
  EXPECT_EQ(block.Data() + 80, info->PublicKey.pbData);
  EXPECT_EQ(0u, info->PublicKey.cUnusedBits);
  EXPECT_STREQ("1.3.6.1.4.1.32473.1.5.8", info->Algorithm.pszObjId);
  EXPECT_EQ(Octets(8, 0xCC), Octets(block.Data() + 72, block.Data() + 80));
  EXPECT_EQ(Blob(0xAA3A, 100), Octets(block.Data() + 80, block.Data() + 180));
  EXPECT_EQ(7u, size) << "the size is not touched when the block is filled";
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_P(PublicKeyExport, ReportsItsOwnSizeRule) {
  DWORD size = 0;
  EXPECT_EQ(TRUE, Call(nullptr, &size));
  EXPECT_EQ(Extended() ? 256u : 156u, size);
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_P(PublicKeyExport, SucceedsWithoutAnyOutput) {
  EXPECT_EQ(TRUE, Call(nullptr, nullptr));
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_P(PublicKeyExport, MapsEveryAlgorithm) {
  std::vector<std::pair<DWORD, const char*>> rows(kExportTable.begin(), kExportTable.end());
  for (const DWORD unknown : {0x1234u, 0u, 0x1AA3Au, 0xAA3Eu}) {
    rows.emplace_back(unknown, kDefaultExportOid);
  }
  for (const auto& [algorithm, oid] : rows) {
    provider_.blobs[PUBLICKEYBLOB] = Blob(algorithm, 24);
    const GuardedMemory block(Octets(104, 0xCC));
    TraceCapture trace;
    ASSERT_EQ(TRUE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), nullptr)) << std::hex << algorithm;
    EXPECT_STREQ(oid, block.As<CERT_PUBLIC_KEY_INFO>()->Algorithm.pszObjId);
    EXPECT_EQ("EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=" + H(userKey) +
                  ", ALG_ID = " + H(algorithm) + ".",
              trace.Messages().back());
  }
}

TEST_P(PublicKeyExport, AcceptsThreeEncodingTypes) {
  for (const DWORD type : {0x1u, 0x10000u, 0x10001u}) {
    EXPECT_EQ(TRUE, Call(nullptr, nullptr, type)) << std::hex << type;
  }
}

TEST_P(PublicKeyExport, RefusesOtherEncodingTypesBeforeTheProvider) {
  for (const DWORD type : {0u, 2u, 3u, 0x10002u, 0x20000u, 0x20001u, 0x10010001u, 0xFFFFFFFFu}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(nullptr, nullptr, type)) << std::hex << type;
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), ElementsAre("EXT : " + Name() + " : dwKeySpec = 2."));
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

TEST_P(PublicKeyExport, RefusesANullProviderItself) {
  TraceCapture trace;
  DWORD size = 7;
  EXPECT_EQ(FALSE, CallWith(0, 1, nullptr, &size));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : " + Name() + " : dwKeySpec = 2."));
  EXPECT_EQ(7u, size);
}

TEST_P(PublicKeyExport, OtherProviderTypesOnlyAddALine) {
  for (const DWORD type : {24u, 0u, 2u, 26u, 0x80000019u}) {
    provider_.providerType = type;
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call(nullptr, nullptr));
    EXPECT_THAT(trace.Messages(),
                ElementsAre("EXT : " + Name() + " : dwKeySpec = 2.",
                            "EXT : " + Name() + " : CryptGetProvParam[" + H(GetCurrentThreadId()) +
                                "] : hProv=" + H(Provider()) + ", PP_PROVTYPE=" + H(type) + ".",
                            "EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=" + H(userKey) +
                                ", ALG_ID = aa3a."));
  }
}

TEST_P(PublicKeyExport, BothExpectedProviderTypesAreSilent) {
  for (const DWORD type : {1u, 25u}) {
    provider_.providerType = type;
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call(nullptr, nullptr));
    EXPECT_EQ(2u, trace.Messages().size()) << type;
  }
}

TEST_P(PublicKeyExport, FailedDestroyLeavesTheResultAlone) {
  provider_.FailCall("DestroyKey", 1, 0x80090003);
  provider_.FailCall("ExportKey", 2, 0x8009000B);
  EXPECT_EQ(TRUE, Call(nullptr, nullptr));
  provider_.FailCall("DestroyKey", 2, 0x80090003);
  EXPECT_EQ(FALSE, Call(nullptr, nullptr));
  EXPECT_EQ(0x8009000Bu, GetLastError());
}

TEST_P(PublicKeyExport, BlobsOf1024OctetsPassLongerOnesFail) {
  provider_.blobs[PUBLICKEYBLOB] = Blob(0xA045, 1024);
  const GuardedMemory block(1104);
  ASSERT_EQ(TRUE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), nullptr));
  EXPECT_EQ(Blob(0xA045, 1024), Octets(block.Data() + 80, block.Data() + 1104));
  DWORD size = 0;
  ASSERT_EQ(TRUE, Call(nullptr, &size));
  EXPECT_EQ(Extended() ? 2104u : 1080u, size);

  provider_.blobs[PUBLICKEYBLOB] = Blob(0xA045, 1025);
  EXPECT_EQ(FALSE, Call(nullptr, &size));
  EXPECT_EQ(234u, GetLastError());
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

TEST_P(PublicKeyExport, AnAlgorithmThatIsNotThereCountsAsZero) {
  for (const Octets& blob : {Octets{}, Octets{0x06, 0x02, 0x00}, Blob(0xAA3A, 7)}) {
    provider_.blobs[PUBLICKEYBLOB] = blob;
    const GuardedMemory block(80 + blob.size());
    TraceCapture trace;
    ASSERT_EQ(TRUE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), nullptr));
    EXPECT_STREQ("1.3.6.1.4.1.32473.1.2.2", block.As<CERT_PUBLIC_KEY_INFO>()->Algorithm.pszObjId);
    EXPECT_EQ(blob.size(), block.As<CERT_PUBLIC_KEY_INFO>()->PublicKey.cbData);
    EXPECT_EQ("EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=" + H(userKey) + ", ALG_ID = 0.",
              trace.Messages().back());
  }
}

// malloc of the module without memory for one size.
std::size_t refusedSize = 0;
decltype(malloc)* realMalloc = nullptr;
void* RefusingMalloc(std::size_t size) { return size == refusedSize ? nullptr : realMalloc(size); }

TEST_P(PublicKeyExport, WithoutMemoryForTheBlob) {
  const ImportPatch patch(Module(), "msvcrt.dll", "malloc", &RefusingMalloc);
  realMalloc = patch.Original<decltype(malloc)>();
  refusedSize = 1024;
  const GuardedMemory block(Octets(180, 0xCC));
  EXPECT_EQ(FALSE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), nullptr));
  refusedSize = 0;
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) = 2001",
                          "DestroyKey(1001, 2001)"));
  EXPECT_EQ(Octets(180, 0xCC), block.Content());
}

// A call into the provider that fails, and what is seen of it.
struct FailedCall {
  const char* name;
  void (*provoke)(RecordingProvider& provider);
  DWORD error;
  const char* function;  // of the last line, with the argument that it shows
  bool showsTheKey;      // of that argument: the user key's handle, or the provider's
  const char* code;      // of the last line
  std::vector<std::string> calls;
  friend void PrintTo(const FailedCall& row, std::ostream* out) { *out << row.name; }
};

const FailedCall kFailedCalls[] = {
    {"UnreadableProviderType",
     [](RecordingProvider& provider) { provider.FailCall("GetProvParam", 1, 0x80090001); },
     0x80090001,
     "CryptGetProvParam hProv=",
     false,
     "80090001",
     {"GetProvParam(1001, 16, 4, 0) ! 80090001"}},
    {"NoUserKey",
     [](RecordingProvider& provider) { provider.FailCall("GetUserKey", 1, 0x8009000D); },
     0x8009000D,
     "CryptGetUserKey hProv=",
     false,
     "8009000d",
     {"GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) ! 8009000d"}},
    {"FailedExportDestroysTheKeyOnce",
     [](RecordingProvider& provider) { provider.FailCall("ExportKey", 1, 0x8009000B); },
     0x8009000B,
     "CryptExportKey hKey=",
     true,
     "8009000b",
     {"GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) = 2001",
      "ExportKey(1001, 2001, 0, 6, 0, 1024) ! 8009000b", "DestroyKey(1001, 2001)"}},
    // A provider that sets no error has failed all the same.
    {"FailedExportWithoutAnError",
     [](RecordingProvider& provider) { provider.FailCall("ExportKey", 1, 0); },
     0,
     "CryptExportKey hKey=",
     true,
     "0",
     {"GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) = 2001",
      "ExportKey(1001, 2001, 0, 6, 0, 1024) ! 0", "DestroyKey(1001, 2001)"}},
    {"AProviderThatClaimsMoreThanItsRoom",
     [](RecordingProvider& provider) { provider.claimedExportSize = 1025; },
     234,
     "CryptExportKey hKey=",
     true,
     "ea",
     {"GetProvParam(1001, 16, 4, 0)", "GetUserKey(1001, 2) = 2001",
      "ExportKey(1001, 2001, 0, 6, 0, 1024)", "DestroyKey(1001, 2001)"}},
};

class FailedPublicKeyExport : public PublicKeyExportCall,
                              public testing::WithParamInterface<std::tuple<bool, FailedCall>> {
 protected:
  FailedPublicKeyExport() : PublicKeyExportCall(std::get<bool>(GetParam())) {}
};

INSTANTIATE_TEST_SUITE_P(Calls, FailedPublicKeyExport,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kFailedCalls)),
                         [](const auto& variant) {
                           return ExportName(std::get<bool>(variant.param)) +
                                  std::get<FailedCall>(variant.param).name;
                         });

TEST_P(FailedPublicKeyExport, TracesItsCodeAndWritesNothing) {
  const FailedCall& row = std::get<FailedCall>(GetParam());
  row.provoke(provider_);
  const GuardedMemory block(Octets(180, 0xCC));
  DWORD size = 7;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(block.As<CERT_PUBLIC_KEY_INFO>(), &size));
  EXPECT_EQ(row.error, GetLastError());
  const std::string handle = row.showsTheKey ? H(userKey) : H(Provider());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : " + Name() + " : dwKeySpec = 2.",
                                            "EXT : " + Name() + " : " + row.function + handle +
                                                ", error = " + row.code + "."));
  EXPECT_EQ(row.calls, provider_.KeyCalls());
  EXPECT_EQ(Octets(180, 0xCC), block.Content());
  EXPECT_EQ(7u, size);
  EXPECT_THAT(provider_.OpenKeys(), IsEmpty());
}

class ExtendedPublicKeyExport : public KeyInfoTest {
 protected:
  ExtendedPublicKeyExport() { provider_.blobs[PUBLICKEYBLOB] = Blob(0xAA3A, 100); }
  ExtendedExport* export_ = Export<ExtendedExport>("ZarExportPublicKeyInfoEx");
};

TEST_F(ExtendedPublicKeyExport, TracesTheOidInsteadOfTheKeySpecAndIgnoresIt) {
  const GuardedMemory block(180);
  char oid[] = "1.2.398.3.10.1.1.2.1.1";
  TraceCapture trace;
  ASSERT_EQ(TRUE,
            export_(Provider(), 1, 1, oid, 0, nullptr, block.As<CERT_PUBLIC_KEY_INFO>(), nullptr));
  EXPECT_EQ(2u, trace.Messages().size());
  EXPECT_EQ("EXT : ZarExportPublicKeyInfoEx : PublicKeyObjId = 1.2.398.3.10.1.1.2.1.1.",
            trace.Messages().front());
  EXPECT_STREQ("1.3.6.1.4.1.32473.1.5.8", block.As<CERT_PUBLIC_KEY_INFO>()->Algorithm.pszObjId);
}

TEST_F(ExtendedPublicKeyExport, TheOidNeverActsAsAFormat) {
  char oid[] = "%s%n%x%%";
  TraceCapture trace;
  ASSERT_EQ(TRUE, export_(Provider(), 1, 1, oid, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ("EXT : ZarExportPublicKeyInfoEx : PublicKeyObjId = %s%n%x%%.",
            trace.Messages().front());
}

TEST_F(ExtendedPublicKeyExport, RefusesFlagsAndAuxiliaryInformation) {
  char aux = 0;
  for (const DWORD flags : {1u, 0x80000000u}) {
    SetLastError(kUntouchedError);
    EXPECT_EQ(FALSE, export_(Provider(), 1, 1, nullptr, flags, nullptr, nullptr, nullptr));
    EXPECT_EQ(87u, GetLastError());
  }
  SetLastError(kUntouchedError);
  EXPECT_EQ(FALSE, export_(Provider(), 1, 1, nullptr, 0, &aux, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

// An empty text is a text.
TEST_F(ExtendedPublicKeyExport, AnEmptyOidIsNotANullOne) {
  char empty[] = "";
  TraceCapture trace;
  ASSERT_EQ(TRUE, export_(Provider(), 1, 1, empty, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ("EXT : ZarExportPublicKeyInfoEx : PublicKeyObjId = .", trace.Messages().front());
}

TEST_F(ExtendedPublicKeyExport, TheKeySpecIsTracedAsSigned) {
  const std::pair<DWORD, const char*> rows[] = {{17, "17"}, {0xFFFFFFFF, "-1"}};
  for (const auto& [keySpec, text] : rows) {
    TraceCapture trace;
    Export<PlainExport>("ZarExportPublicKeyInfo")(Provider(), keySpec, 1, nullptr, nullptr);
    EXPECT_EQ(std::string("EXT : ZarExportPublicKeyInfo : dwKeySpec = ") + text + ".",
              trace.Messages().front());
    trace.Clear();
    export_(Provider(), keySpec, 1, nullptr, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(std::string("EXT : ZarExportPublicKeyInfoEx : dwKeySpec = ") + text + ".",
              trace.Messages().front());
  }
}

}  // namespace
}  // namespace zarext::test
