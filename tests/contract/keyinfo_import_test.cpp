// ZarImportPublicKeyInfo and ZarImportPublicKeyInfoEx: the blob that each form of key becomes.
#include <cstring>

#include "asn1/tasn1.h"
#include "contract/keyinfo_import_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

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

}  // namespace
}  // namespace zarext::test
