// ZarImportPublicKeyInfo and ZarImportPublicKeyInfoEx.
#include <cstdlib>
#include <cstring>

#include "asn1/tasn1.h"
#include "keyinfo_fixture.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using PlainImport = BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*);
using ExtendedImport = BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID, DWORD, void*,
                                   HCRYPTKEY*);

constexpr char kMaker[] = "1.3.6.1.4.1.32473.1.5.8";
constexpr char kNational512[] = "1.2.398.3.10.1.1.2.1.1";

// A key whose octets end at a page that nobody may touch.
class PublicKey {
 public:
  PublicKey(const char* oid, const Octets& bits) : bits_(bits) {
    info_.Algorithm.pszObjId = const_cast<char*>(oid);
    // Neither is looked at.
    info_.Algorithm.Parameters = {0xFFFFFFFF, reinterpret_cast<BYTE*>(1)};
    info_.PublicKey = {static_cast<DWORD>(bits.size()), bits_.Data(), 5};
    bits_.MakeReadOnly();
  }
  CERT_PUBLIC_KEY_INFO* Info() { return &info_; }

 private:
  GuardedMemory bits_;
  CERT_PUBLIC_KEY_INFO info_ = {};
};

// Runs each test with both exports.
class PublicKeyImport : public KeyInfoTest, public testing::WithParamInterface<bool> {
 protected:
  [[nodiscard]] static bool Extended() { return GetParam(); }
  [[nodiscard]] static std::string Prefix() {
    return Extended() ? "EXT : ZarImportPublicKeyInfoEx : " : "EXT : ZarImportPublicKeyInfo : ";
  }
  [[nodiscard]] static std::string Spelling() { return Extended() ? "CryptoPro" : "CRyptoPro"; }

  [[nodiscard]] std::string EntryLine() const {
    return Prefix() + "hCryptProv = " + H(Provider()) +
           (Extended() ? ", aiKeyAlg = aa3a, dwFlags = 0." : ".");
  }

  BOOL Call(CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key, DWORD encodingType = 1) {
    return CallWith(Provider(), info, key, encodingType);
  }
  static BOOL CallWith(HCRYPTPROV provider, CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key,
                       DWORD encodingType = 1) {
    return Extended()
               ? Export<ExtendedImport>("ZarImportPublicKeyInfoEx")(provider, encodingType, info,
                                                                    0xAA3A, 0, nullptr, key)
               : Export<PlainImport>("ZarImportPublicKeyInfo")(provider, encodingType, info, key);
  }

  // Imports and gives the blob that reached the provider, in hexadecimal.
  std::string ImportedBlob(const char* oid, const Octets& bits) {
    PublicKey key(oid, bits);
    HCRYPTKEY handle = 0;
    provider_.ClearCalls();
    if (!Call(key.Info(), &handle)) {
      return "failed with " + H(GetLastError());
    }
    const std::string call = provider_.Calls().back();
    EXPECT_EQ(0u, call.find("ImportKey(1001, [")) << call;
    const std::size_t end = call.find("], 0, 0) = " + H(OwnKey(handle)));
    EXPECT_NE(std::string::npos, end) << call;
    CryptDestroyKey(handle);
    return call.substr(17, end - 17);
  }
};

INSTANTIATE_TEST_SUITE_P(Variants, PublicKeyImport, testing::Bool(), [](const auto& variant) {
  return variant.param ? std::string("Extended") : std::string("Plain");
});

TEST_P(PublicKeyImport, TheMakersKeysGoThroughAsTheyStand) {
  PublicKey key(kMaker, {0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00, 0x11, 0xFE});
  HCRYPTKEY handle = 0;
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call(key.Info(), &handle));
  EXPECT_THAT(trace.Messages(),
              ElementsAre(EntryLine(), Prefix() + "Algorithm = 1.3.6.1.4.1.32473.1.5.8.",
                          Prefix() + (Extended() ? "PublicKey[10] = 6 2 0 0 3a  ...11 fe."
                                                 : "PublicKey[10] = ... 0 11 fe.")));
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)",
                          "ImportKey(1001, [060200003aaa000011fe], 0, 0) = 3001"));
  EXPECT_EQ(0x3001u, OwnKey(handle));
  CryptDestroyKey(handle);
}

TEST_P(PublicKeyImport, AnOctetStringBecomesTheImportBlob) {
  const Octets bits = Join({{0x04, 0x40}, Counted(64, 0xA1)});
  PublicKey key(kNational512, bits);
  HCRYPTKEY handle = 0;
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call(key.Info(), &handle));
  Lines expected = {EntryLine(), Prefix() + "Algorithm = 1.2.398.3.10.1.1.2.1.1.",
                    Prefix() + (Extended() ? "PublicKey[66] = 4 40 a1 a2 a3  ...df e0."
                                           : "PublicKey[66] = ... de df e0.")};
  if (Extended()) {
    expected.push_back("EXT : ZarImportPublicKeyInfoEx : Data[64]=a1 a2 a3 a4 a5 ....");
  }
  EXPECT_EQ(expected, trace.Messages());
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("GetProvParam(1001, 16, 4, 0)",
                          "ImportKey(1001, [060200004a2a00000045433100020000" +
                              HexText(Counted(64, 0xA1)) + "], 0, 0) = 3001"));
  EXPECT_EQ(0x3001u, OwnKey(handle));
  CryptDestroyKey(handle);
}

TEST_P(PublicKeyImport, ChoosesAlgorithmAndBitLengthByTheFirstHit) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"1.2.398.3.10.1.1.2.1",
       "4a2a0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.2.1.1",
       "4a2a0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.4.1.1.1",
       "55a00000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.2.2.1",
       "4c2a0000"
       "00454331"
       "00040000"},
      {"1.2.398.3.10.1.4.1.2.1",
       "4ba00000"
       "00454331"
       "00040000"},
      {"1.2.398.3.10.1.1.1.1",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.1.1.1",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.1.1.2",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.1.1.3",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.10",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.643.2.2.19",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.2.643.2.2.98",
       "3aaa0000"
       "00454331"
       "00020000"},
      // Anywhere in the text, and several arcs at once: the order of the rules decides.
      {"9.1.2.398.3.10.1.1.2.1",
       "4a2a0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.2.2.1.2.398.3.10.1.1.2.1",
       "4a2a0000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.1.2.2.1.2.398.3.10.1.4.1.1",
       "55a00000"
       "00454331"
       "00020000"},
      {"1.2.398.3.10.1.4.1.2.1.2.398.3.10.1.1.2.2",
       "4c2a0000"
       "00454331"
       "00040000"},
      {"1.3.6.1.4.1.32473.1.2.643.2.2",
       "3aaa0000"
       "00454331"
       "00020000"},
      {"1.3.6.1.4.1.32473.1.2.398.3.10.1",
       "3aaa0000"
       "00454331"
       "00020000"},
  };
  for (const auto& [oid, words] : rows) {
    EXPECT_EQ(std::string("06020000") + words + "c0c1", ImportedBlob(oid, {0x04, 0x02, 0xC0, 0xC1}))
        << oid;
  }
}

TEST_P(PublicKeyImport, OctetStringForms) {
  const std::string head = "060200003aaa00000045433100020000";
  const Octets key128 = Counted(128);
  const std::vector<std::pair<Octets, std::string>> rows = {
      // Read as a document: any tag, the value as the tree gives it.
      {Join({{0x04, 0x81, 0x80}, key128}), HexText(key128)},
      {Join({{0x04, 0x82, 0x00, 0x80}, key128}), HexText(key128)},
      {{0x04, 0x00}, ""},
      {{0x04, 0x01, 0x7F}, "7f"},
      {{0x03, 0x03, 0x00, 0xAA, 0xBB}, "aabb"},
      {{0x03, 0x00}, ""},
      {{0x02, 0x01, 0x05}, "05000000"},
      {{0x05, 0x00}, ""},
      {{0x06, 0x02, 0x2A, 0x03}, HexText({'1', '.', '2', '.', '3'})},
      {{0x80, 0x02, 0xAA, 0xBB}, "aabb"},
      {{0x24, 0x80, 0x04, 0x02, 0xAA, 0xBB, 0x04, 0x01, 0xCC, 0x00, 0x00}, "aabbcc"},
      {{0x24, 0x06, 0x04, 0x01, 0xAA, 0x04, 0x01, 0xBB}, "aabb"},
      // A constructed root has no value.
      {{0x30, 0x04, 0x04, 0x02, 0xAA, 0xBB}, ""},
      {{0x30, 0x00}, ""},
      {{0x24, 0x03, 0x02, 0x01, 0x05}, ""},
      // Refused as a document, read directly: the second octet completes the length,
      {Join({{0x04, 0x85}, Counted(0x85)}), HexText(Counted(0x85))},
      {Join({{0x04, 0xFF}, Counted(0xFF)}), HexText(Counted(0xFF))},
      // (also where both would fit)
      {Join({{0x04, 0x85, 0x84}, Counted(0x84)}), HexText(Join({{0x84}, Counted(0x84)}))},
      // or the third, whatever the second is.
      {{0x04, 0x41, 0x03, 0xAA, 0xBB, 0xCC}, "aabbcc"},
      {{0x04, 0x85, 0x02, 0xAA, 0xBB}, "aabb"},
      {{0x04, 0x01, 0x00}, "00"},
      {{0x04, 0x05, 0x00}, ""},
      {Join({{0x04, 0x00, 0xFF}, Counted(0xFF)}), HexText(Counted(0xFF))},
  };
  for (const auto& [bits, content] : rows) {
    EXPECT_EQ(head + content, ImportedBlob("1.2.643.2.2.19", bits)) << HexText(bits);
  }
}

TEST_P(PublicKeyImport, KeysLongerThanAnySupportedOneGoThroughWhole) {
  const Octets key = Counted(70000);
  EXPECT_EQ("060200004c2a00000045433100040000" + HexText(key),
            ImportedBlob("1.2.398.3.10.1.1.2.2.1", Join({{0x04, 0x83, 0x01, 0x11, 0x70}, key})));
}

TEST_P(PublicKeyImport, OtherKeyOctetsReportNoMemory) {
  const std::vector<Octets> rows = {
      {},
      {0x04},
      {0x03},
      {0x04, 0x01},
      {0x04, 0x03, 0xAA},
      {0x04, 0x40, 0xAA, 0xBB},
      {0x04, 0x04, 0x03, 0xAA, 0xBB},
      {0x03, 0x40, 0x01, 0x02},
      {0x03, 0x41, 0x03, 0xAA, 0xBB, 0xCC},
      {0x30, 0x03, 0x02, 0x01},
      {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFA},
      {0x30, 0x06, 0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFA},
      {0x24, 0x80},
      {0x04, 0x80},
  };
  for (const Octets& bits : rows) {
    PublicKey key(kNational512, bits);
    HCRYPTKEY handle = 77;
    provider_.ClearCalls();
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(key.Info(), &handle)) << HexText(bits);
    EXPECT_EQ(0x8009000Eu, GetLastError()) << HexText(bits);
    EXPECT_EQ(77u, handle);
    EXPECT_THAT(provider_.KeyCalls(), ElementsAre("GetProvParam(1001, 16, 4, 0)"));
    EXPECT_EQ(3u, trace.Messages().size()) << "the key line is the last one";
  }
}

TEST_P(PublicKeyImport, KeyLinesShowZeroForOctetsThatAreNotThere) {
  const std::vector<std::pair<Octets, Lines>> rows = {
      {{}, {"PublicKey[0] = ... 0 0 0.", "PublicKey[0] = 0 0 0 0 0  ...0 0."}},
      {{0xA1}, {"PublicKey[1] = ... 0 0 a1.", "PublicKey[1] = a1 0 0 0 0  ...0 a1."}},
      {{0xA1, 0xB2}, {"PublicKey[2] = ... 0 a1 b2.", "PublicKey[2] = a1 b2 0 0 0  ...a1 b2."}},
      {{0xA1, 0xB2, 0xC3},
       {"PublicKey[3] = ... a1 b2 c3.", "PublicKey[3] = a1 b2 c3 0 0  ...b2 c3."}},
      {{0xA1, 0xB2, 0xC3, 0xD4, 0xE5},
       {"PublicKey[5] = ... c3 d4 e5.", "PublicKey[5] = a1 b2 c3 d4 e5  ...d4 e5."}},
  };
  for (const auto& [bits, lines] : rows) {
    PublicKey key(kMaker, bits);
    HCRYPTKEY handle = 0;
    TraceCapture trace;
    Call(key.Info(), &handle);
    EXPECT_EQ(Prefix() + lines[Extended() ? 1 : 0], trace.Messages()[2]);
  }
}

TEST_P(PublicKeyImport, ANullKeyHasNoOctets) {
  for (const DWORD size : {0u, 5u, 17u, 0xFFFFFFEFu}) {
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(kNational512);
    info.PublicKey = {size, nullptr, 0};
    HCRYPTKEY handle = 77;
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(&info, &handle));
    EXPECT_EQ(0x8009000Eu, GetLastError());
    EXPECT_EQ(Prefix() + "PublicKey[" + std::to_string(static_cast<int>(size)) +
                  "] = " + (Extended() ? "0 0 0 0 0  ...0 0." : "... 0 0 0."),
              trace.Messages().back());
    info.Algorithm.pszObjId = const_cast<char*>(kMaker);
    EXPECT_EQ(FALSE, Call(&info, &handle));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(Prefix() + "CryptImportKey = 57.", trace.Messages().back());
  }
}

TEST_P(PublicKeyImport, RefusesOtherEncodingTypes) {
  PublicKey key(kMaker, {1, 2, 3});
  HCRYPTKEY handle = 77;
  for (const DWORD type : {0u, 2u, 0x10002u, 0x20001u}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(key.Info(), &handle, type));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), ElementsAre(EntryLine()));
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
  for (const DWORD type : {0x1u, 0x10000u, 0x10001u}) {
    EXPECT_EQ(TRUE, Call(key.Info(), &handle, type));
    CryptDestroyKey(handle);
  }
}

TEST_P(PublicKeyImport, RefusesNoKeyInformation) {
  HCRYPTKEY handle = 77;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(nullptr, &handle));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre(EntryLine()));
}

TEST_P(PublicKeyImport, RefusesForeignAlgorithms) {
  for (const char* oid : {"1.2.840.113549.1.1.1", "1.2.643.2.2", "1.2.643.7.1.1.1.1", "", "%n"}) {
    PublicKey key(oid, {0x04, 0x01, 0xAA});
    HCRYPTKEY handle = 77;
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(key.Info(), &handle));
    EXPECT_EQ(0x80090008u, GetLastError());
    EXPECT_THAT(trace.Messages(),
                ElementsAre(EntryLine(), Prefix() + "Algorithm = " + oid + ".",
                            Prefix() + "pszObjId = " + oid + ", error = 80090008."));
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

TEST_P(PublicKeyImport, ANullOidIsForeign) {
  PublicKey key(nullptr, {0x04, 0x01, 0xAA});
  HCRYPTKEY handle = 77;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(key.Info(), &handle));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre(EntryLine(), Prefix() + "Algorithm = (null).",
                                            Prefix() + "pszObjId = (null), error = 80090008."));
}

TEST_P(PublicKeyImport, UnreadableProviderType) {
  provider_.FailCall("GetProvParam", 1, 0x80090020);
  PublicKey key(kMaker, {1, 2, 3});
  HCRYPTKEY handle = 77;
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(key.Info(), &handle));
  EXPECT_EQ(0x80090020u, GetLastError());
  EXPECT_EQ(Prefix() + "CryptGetProvParam hProv=" + H(Provider()) + ", error = 80090020.",
            trace.Messages().back());
  EXPECT_EQ(4u, trace.Messages().size());
  EXPECT_THAT(provider_.KeyCalls(), ElementsAre("GetProvParam(1001, 16, 4, 0) ! 80090020"));
  EXPECT_EQ(77u, handle);
}

TEST_P(PublicKeyImport, ANullProviderIsRefusedByThePlatform) {
  PublicKey key(kMaker, {1, 2, 3});
  HCRYPTKEY handle = 77;
  TraceCapture trace;
  EXPECT_EQ(FALSE, CallWith(0, key.Info(), &handle));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(Prefix() + "CryptGetProvParam hProv=0, error = 57.", trace.Messages().back());
}

// The type changes neither the way that a key takes nor the blob.
TEST_P(PublicKeyImport, OtherProviderTypesOnlyAddALine) {
  struct Row {
    const char* oid;
    Octets bits;
    std::string blob;
    std::size_t lines;  // with a type that is expected
  };
  const Row rows[] = {
      {kMaker, {1, 2, 3}, "010203", 3},
      {kNational512,
       {0x04, 0x02, 0xC0, 0xC1},
       "060200004a2a00000045433100020000c0c1",
       Extended() ? 4u : 3u},
      {"1.2.643.2.2.19",
       {0x04, 0x02, 0xC0, 0xC1},
       "060200003aaa00000045433100020000c0c1",
       Extended() ? 4u : 3u},
  };
  for (const Row& row : rows) {
    for (const DWORD type : {1u, 25u, 24u, 0u, 2u, 26u, 0x80000019u}) {
      SCOPED_TRACE(std::string(row.oid) + " " + std::to_string(type));
      provider_.providerType = type;
      TraceCapture trace;
      EXPECT_EQ(row.blob, ImportedBlob(row.oid, row.bits));
      const bool expected = type == 1 || type == 25;
      ASSERT_EQ(row.lines + (expected ? 0 : 1), trace.Messages().size());
      if (!expected) {
        EXPECT_EQ(Prefix() + "CryptGetProvParam[" + H(GetCurrentThreadId()) +
                      "] : hProv=" + H(Provider()) + ", PP_PROVTYPE=" + H(type) + ".",
                  trace.Messages()[3]);
      }
    }
  }
}

TEST_P(PublicKeyImport, RefusedBlobs) {
  provider_.FailCall("ImportKey", 1, 0x80090005);
  provider_.FailCall("ImportKey", 2, 0x80090006);
  HCRYPTKEY handle = 77;
  {
    PublicKey key(kMaker, {1, 2, 3});
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(key.Info(), &handle));
    EXPECT_EQ(0x80090005u, GetLastError());
    EXPECT_EQ(Prefix() + "CryptImportKey = 80090005.", trace.Messages().back());
    EXPECT_EQ(4u, trace.Messages().size());
  }
  PublicKey key(kNational512, {0x04, 0x01, 0xAA});
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(key.Info(), &handle));
  EXPECT_EQ(0x80090006u, GetLastError());
  EXPECT_EQ(Prefix() + Spelling() + " : CryptImportKey = 80090006.", trace.Messages().back());
  EXPECT_EQ(Extended() ? 5u : 4u, trace.Messages().size());
  EXPECT_EQ(77u, handle);
}

// Made by the module itself: not every version of the platform survives the call.
TEST_P(PublicKeyImport, NoPlaceForTheHandleIsThePlatformsRefusal) {
  const RecordedImport<"CryptImportKey", decltype(CryptImportKey)> import(Module(), "ADVAPI32.dll");
  PublicKey maker(kMaker, {1, 2, 3});
  PublicKey national(kNational512, {0x04, 0x01, 0xAA});
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(maker.Info(), nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(Prefix() + "CryptImportKey = 57.", trace.Messages().back());
  SetLastError(kUntouchedError);
  EXPECT_EQ(FALSE, Call(national.Info(), nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(Prefix() + Spelling() + " : CryptImportKey = 57.", trace.Messages().back());
  EXPECT_THAT(LinesOf(events.Lines(), {"platform: "}), IsEmpty());
}

// malloc of the module, with the first block of one size refused.
std::size_t refusedSize = 0;
decltype(malloc)* realMalloc = nullptr;
void* RefusingMalloc(std::size_t size) {
  if (size == refusedSize) {
    refusedSize = 0;
    return nullptr;
  }
  return realMalloc(size);
}

TEST_P(PublicKeyImport, WithoutMemoryForTheDocumentTheProviderGetsAnEmptyBlob) {
  PublicKey key(kNational512, {0x04, 0x01, 0xAA});
  HCRYPTKEY handle = 77;
  const ImportPatch patch(Module(), "msvcrt.dll", "malloc", &RefusingMalloc);
  realMalloc = patch.Original<decltype(malloc)>();
  const RecordedImport<"CryptImportKey", decltype(CryptImportKey)> import(
      Module(), "ADVAPI32.dll",
      [](HCRYPTPROV, const BYTE* data, DWORD size, HCRYPTKEY, DWORD, HCRYPTKEY*) {
        return std::string(data != nullptr ? "blob" : "null") + ", " + std::to_string(size);
      });
  TraceCapture trace;
  refusedSize = sizeof(TASN1);
  EXPECT_EQ(FALSE, Call(key.Info(), &handle));
  EXPECT_THAT(events.Lines(), Contains("platform: CryptImportKey(blob, 0)"));
  EXPECT_EQ(0u, refusedSize);
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(4u, trace.Messages().size());
  EXPECT_EQ(Prefix() + Spelling() + " : CryptImportKey = 57.", trace.Messages().back());
}

TEST_P(PublicKeyImport, WithoutMemoryForTheBlob) {
  PublicKey key(kNational512, Join({{0x04, 0x7B}, Counted(0x7B)}));
  HCRYPTKEY handle = 77;
  const ImportPatch patch(Module(), "msvcrt.dll", "malloc", &RefusingMalloc);
  realMalloc = patch.Original<decltype(malloc)>();
  refusedSize = 0x7B + 16;
  EXPECT_EQ(FALSE, Call(key.Info(), &handle));
  EXPECT_EQ(0u, refusedSize);
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_EQ(77u, handle);
}

TEST_P(PublicKeyImport, ALengthThatLeavesNoRoomForTheBlobsHead) {
  PublicKey key(kNational512, {0x04, 0x01, 0xAA});
  for (const DWORD size : {0xFFFFFFF0u, 0xFFFFFFFFu}) {
    key.Info()->PublicKey.cbData = size;
    HCRYPTKEY handle = 77;
    SetLastError(kUntouchedError);
    EXPECT_EQ(FALSE, Call(key.Info(), &handle));
    EXPECT_EQ(0x8009000Eu, GetLastError());
    EXPECT_EQ(77u, handle);
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

class ExtendedPublicKeyImport : public KeyInfoTest {
 protected:
  ExtendedImport* import_ = Export<ExtendedImport>("ZarImportPublicKeyInfoEx");
};

TEST_F(ExtendedPublicKeyImport, RefusesFlagsAndAuxiliaryInformation) {
  PublicKey key(kMaker, {1, 2, 3});
  HCRYPTKEY handle = 77;
  char aux = 0;
  TraceCapture trace;
  EXPECT_EQ(FALSE, import_(Provider(), 1, key.Info(), 0x201D, 0x10, nullptr, &handle));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : ZarImportPublicKeyInfoEx : hCryptProv = " +
                                            H(Provider()) + ", aiKeyAlg = 201d, dwFlags = 10."));
  SetLastError(kUntouchedError);
  EXPECT_EQ(FALSE, import_(Provider(), 1, key.Info(), 0, 0, &aux, &handle));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
  EXPECT_EQ(77u, handle);
}

TEST_F(ExtendedPublicKeyImport, TheDataLineShowsZeroForOctetsThatAreNotThere) {
  const std::vector<std::pair<Octets, const char*>> rows = {
      {{0x04, 0x02, 0xAA, 0xBB}, "EXT : ZarImportPublicKeyInfoEx : Data[2]=aa bb 0 0 0 ...."},
      {{0x30, 0x03, 0x04, 0x01, 0xAA}, "EXT : ZarImportPublicKeyInfoEx : Data[0]=0 0 0 0 0 ...."},
  };
  for (const auto& [bits, line] : rows) {
    PublicKey key(kNational512, bits);
    HCRYPTKEY handle = 0;
    TraceCapture trace;
    EXPECT_EQ(TRUE, import_(Provider(), 1, key.Info(), 0, 0, nullptr, &handle));
    EXPECT_EQ(line, trace.Messages().back());
    CryptDestroyKey(handle);
  }
}

}  // namespace
}  // namespace zarext::test
