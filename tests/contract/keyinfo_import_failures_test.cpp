// ZarImportPublicKeyInfo and ZarImportPublicKeyInfoEx: what is refused, and by whom.
#include <cstdlib>
#include <cstring>

#include "asn1/tasn1.h"
#include "contract/keyinfo_import_fixture.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

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
