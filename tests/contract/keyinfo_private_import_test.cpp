// ZarImportPrivKeyFunc.
#include <tuple>

#include "contract/private_key_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ImportPrivate = BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*);

class PrivateKeyImport : public KeyInfoTest {
 protected:
  PrivateKeyImport() {
    provider_.providerParameters[0x38] = {'p', 0};
    provider_.providerParameters[0x2E] = {'u', 0};
  }

  // Calls the export with a structure whose parts end at forbidden pages.
  BOOL Call(const char* oid, const Octets& key, const Octets& parameters = {}, DWORD flags = 0) {
    const GuardedMemory keyMemory(key);
    const GuardedMemory parameterMemory(parameters);
    keyMemory.MakeReadOnly();
    parameterMemory.MakeReadOnly();
    CRYPT_PRIVATE_KEY_INFO info = {};
    info.Version = 0x1F;
    info.Algorithm.pszObjId = const_cast<char*>(oid);
    if (!parameters.empty()) {
      info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameterMemory.Data()};
    }
    info.PrivateKey = {static_cast<DWORD>(key.size()), keyMemory.Data()};
    return import_(Provider(), &info, flags, nullptr);
  }
  // The document that reached the provider, in hexadecimal.
  std::string Imported(const char* oid, const Octets& key, const Octets& parameters = {}) {
    provider_.ClearCalls();
    if (Call(oid, key, parameters) != TRUE) {
      return "failed with " + H(GetLastError());
    }
    const std::string call = provider_.KeyCalls().front();
    EXPECT_EQ(0u, call.find("ImportKey(1001, [")) << call;
    return call.substr(17, call.find(']') - 17);
  }

  ImportPrivate* import_ = Export<ImportPrivate>("ZarImportPrivKeyFunc");
};

constexpr char kMaker[] = "1.3.6.1.4.1.32473.1.5.8";

TEST_F(PrivateKeyImport, ADocumentGoesThroughAsItStands) {
  const Octets document = PrivateKeyInfo(Counted(5));
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call(kMaker, document, {}, 5));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarImportPrivKeyFunc : hCryptProv = " + H(Provider()) + ", dwFlags = 5.",
                  "EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = "
                  "1.3.6.1.4.1.32473.1.5.8, Version = 1f, PrivateKey.cbData = 24, Attr = "
                  "0000000000000000."));
  EXPECT_THAT(provider_.KeyCalls(),
              ElementsAre("ImportKey(1001, [" + HexText(document) + "], 0, 5) = 3001",
                          "GetProvParam(1001, 56, 256, 0)", "GetProvParam(1001, 46, 1024, 0)"));
  EXPECT_THAT(provider_.OpenKeys(), ElementsAre(0x3001u)) << "the key stays open";
}

// Never encoded again, neither from BER nor because parameters are given beside it.
TEST_F(PrivateKeyImport, ADocumentIsNeverChanged) {
  const Octets content = Join({{0x02, 0x01, 0x00}, kCryptoProAlgorithm, {0x04, 0x01, 0xAA}});
  const Octets rows[] = {
      PrivateKeyInfo(Counted(5)),
      Join({{0x30, 0x80}, content, {0x00, 0x00}}),
      Join({{0x30, 0x82, 0x00, 0x12}, content}),
      // The key in two segments.
      Element(0x30, Join({{0x02, 0x01, 0x00},
                          kCryptoProAlgorithm,
                          {0x24, 0x06, 0x04, 0x01, 0xAA, 0x04, 0x01, 0xBB}})),
  };
  for (const Octets& document : rows) {
    EXPECT_EQ(HexText(document), Imported(kMaker, document));
    EXPECT_EQ(HexText(document), Imported(kMaker, document, {0x30, 0x03, 0x02, 0x01, 0x07}));
  }
}

// The provider decides about the rest: version, flags and the auxiliary information are not looked
// at, and a null provider is the platform's refusal.
TEST_F(PrivateKeyImport, ChecksNothingElse) {
  Octets key = PrivateKeyInfo(Counted(5));
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Version = 0xFFFFFFFF;
  info.Algorithm.pszObjId = const_cast<char*>(kMaker);
  info.PrivateKey = {static_cast<DWORD>(key.size()), key.data()};
  for (const DWORD flags : {0u, 0x1Du, 0x80000000u, 0xFFFFFFFFu}) {
    provider_.ClearCalls();
    TraceCapture trace;
    EXPECT_EQ(TRUE, import_(Provider(), &info, flags, reinterpret_cast<void*>(1)));
    EXPECT_THAT(provider_.KeyCalls().front(), testing::HasSubstr("], 0, " + H(flags) + ") = "));
    EXPECT_EQ("EXT : ZarImportPrivKeyFunc : hCryptProv = " + H(Provider()) +
                  ", dwFlags = " + H(flags) + ".",
              trace.Messages().front());
  }
  TraceCapture trace;
  EXPECT_EQ(FALSE, import_(0, &info, 0, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptImportKey = 57.", trace.Messages().back());
}

TEST_F(PrivateKeyImport, TracesNumbersAsTheyAlwaysWere) {
  Octets key = PrivateKeyInfo(Counted(5));
  CRYPT_ATTRIBUTES attributes = {};
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kMaker);
  info.PrivateKey = {static_cast<DWORD>(key.size()), key.data()};
  info.pAttributes = &attributes;
  const std::tuple<DWORD, DWORD, const char*> rows[] = {
      {17, 18, "cAttr = 17, Parameters.cbData = 18."},
      {0xFFFFFFFD, 0xFFFFFFFC, "cAttr = -3, Parameters.cbData = -4."},
  };
  for (const auto& [count, size, text] : rows) {
    attributes.cAttr = count;
    info.Algorithm.Parameters = {size, nullptr};
    TraceCapture trace;
    EXPECT_EQ(TRUE, import_(Provider(), &info, 0, nullptr));
    EXPECT_EQ(std::string("EXT : ZarImportPrivKeyFunc : ") + text, trace.Messages()[2]);
  }
}

TEST_F(PrivateKeyImport, OtherKeysAreWrapped) {
  // SEQUENCE { 0, SEQUENCE { OID, NULL }, OCTET STRING }
  EXPECT_EQ(
      "301b020100"
      "300f060b2b060104"
      "0181fd5901"
      "0508"
      "0500"
      "0405"
      "0102030405",
      Imported(kMaker, Counted(5)));
  EXPECT_EQ(
      "3011020100"
      "300a06062a85030202130500"
      "0400",
      Imported("1.2.643.2.2.19", {}));
}

TEST_F(PrivateKeyImport, ParametersAreTakenAsTheyAreEncoded) {
  const Octets parameters = {0x30, 0x03, 0x02, 0x01, 0x07};
  EXPECT_EQ(
      "3014020100"
      "300d06062a8503020213"
      "3003020107"
      "0400",
      Imported("1.2.643.2.2.19", {}, parameters));
}

TEST_F(PrivateKeyImport, OnlyTheFirstElementOfTheParametersCounts) {
  EXPECT_EQ(
      "3012020100"
      "300b06062a8503020213"
      "020107"
      "0400",
      Imported("1.2.643.2.2.19", {}, {0x02, 0x01, 0x07, 0x05, 0x00}));
  EXPECT_EQ(
      "3014020100"
      "300d06062a8503020213"
      "3003020107"
      "0400",
      Imported("1.2.643.2.2.19", {}, {0x30, 0x80, 0x02, 0x01, 0x07, 0x00, 0x00, 0xFF}));
}

TEST_F(PrivateKeyImport, ParametersThatDoNotEndAddNothing) {
  for (const Octets& parameters :
       {Octets{0x30}, Octets{0x30, 0x01}, Octets{0x04, 0x02, 0xAA}, Octets{0x30, 0x80},
        Octets{0x30, 0x80, 0x02, 0x01, 0x07, 0x00}, Octets{0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFA},
        Octets{0x30, 0x85, 0, 0, 0, 0, 1}, Octets{0x30, 0x82, 0x01},
        Join({{0x30, 0x80}, Octets(70000, 0x05)})}) {
    EXPECT_EQ(
        "300f020100"
        "300806062a8503020213"
        "0400",
        Imported("1.2.643.2.2.19", {}, parameters))
        << HexText(parameters).substr(0, 40);
  }
}

TEST_F(PrivateKeyImport, AlmostDocumentsAreWrapped) {
  // A document with an octet behind it, and one without a key.
  for (const Octets& key : {Join({PrivateKeyInfo(Counted(5)), {0x00}}), PrivateKeyInfo(Octets{})}) {
    const Octets wrapped = PrivateKeyInfo(key);
    EXPECT_EQ(HexText(wrapped), Imported("1.2.643.2.2.19", key));
  }
}

TEST_F(PrivateKeyImport, AttributesAreTracedAndNotTaken) {
  const GuardedMemory key(Counted(3));
  CRYPT_ATTRIBUTES attributes = {3, nullptr};
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  Octets parameters = {0x05, 0x00};
  info.Algorithm.Parameters = {2, parameters.data()};
  info.PrivateKey = {3, key.Data()};
  info.pAttributes = &attributes;
  char pointer[20] = {};
  snprintf(pointer, sizeof pointer, "%016llX",
           static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(&attributes)));
  TraceCapture trace;
  ASSERT_EQ(TRUE, import_(Provider(), &info, 0, nullptr));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarImportPrivKeyFunc : hCryptProv = " + H(Provider()) + ", dwFlags = 0.",
                  std::string("EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = "
                              "1.2.643.2.2.19, Version = 0, PrivateKey.cbData = 3, Attr = ") +
                      pointer + ".",
                  "EXT : ZarImportPrivKeyFunc : cAttr = 3, Parameters.cbData = 2."));
  EXPECT_EQ(
      "ImportKey(1001, [3014020100"
      "300a06062a85030202130500"
      "0403010203], 0, 0) = 3001",
      provider_.KeyCalls().front());
}

TEST_F(PrivateKeyImport, ForeignAlgorithmsAreTheResultItself) {
  for (const char* oid :
       {"1.2.840.113549.1.1.1", "1.2.840.10045.2.1", "", static_cast<const char*>(nullptr)}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(static_cast<BOOL>(0x80090008), Call(oid, Counted(5)));
    EXPECT_EQ(kUntouchedError, GetLastError());
    // The algorithm's line comes before the refusal.
    EXPECT_THAT(
        trace.Messages(),
        ElementsAre("EXT : ZarImportPrivKeyFunc : hCryptProv = " + H(Provider()) + ", dwFlags = 0.",
                    std::string("EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = ") +
                        (oid == nullptr ? "(null)" : oid) +
                        ", Version = 1f, PrivateKey.cbData = 5, Attr = 0000000000000000."));
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

TEST_F(PrivateKeyImport, RefusesNoStructure) {
  TraceCapture trace;
  EXPECT_EQ(FALSE, import_(Provider(), nullptr, 0, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarImportPrivKeyFunc : hCryptProv = " + H(Provider()) + ", dwFlags = 0."));
}

TEST_F(PrivateKeyImport, AKeyThatExistsIsAsGoodAsImported) {
  provider_.FailCall("ImportKey", 1, 0x8009000F);
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call(kMaker, Counted(5)));
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptImportKey = 8009000f.", trace.Messages().back());
  EXPECT_EQ(3u, provider_.KeyCalls().size());
  EXPECT_EQ("GetProvParam(1001, 56, 256, 0)", provider_.KeyCalls()[1]);
  EXPECT_EQ("GetProvParam(1001, 46, 1024, 0)", provider_.KeyCalls()[2]);
}

TEST_F(PrivateKeyImport, OtherErrorsEndTheImport) {
  provider_.FailCall("ImportKey", 1, 0x80090005);
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(kMaker, Counted(5)));
  EXPECT_EQ(0x80090005u, GetLastError());
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptImportKey = 80090005.", trace.Messages().back());
  EXPECT_EQ(1u, provider_.KeyCalls().size());
}

TEST_F(PrivateKeyImport, MissingParametersAreOnlyTraced) {
  provider_.FailCall("GetProvParam", 1, 0x80090011);
  provider_.FailCall("GetProvParam", 2, 0x80090012);
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call(kMaker, Counted(5)));
  const Lines lines = trace.Messages();
  ASSERT_EQ(4u, lines.size());
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_PROFILE) = 80090011.", lines[2]);
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_CNT_URL) = 80090012.", lines[3]);
}

TEST_F(PrivateKeyImport, ParametersThatFillOrExceedTheirBuffers) {
  provider_.providerParameters[0x38] = Octets(256, 'p');
  provider_.providerParameters[0x2E] = Octets(1024, 'u');
  TraceCapture trace;
  EXPECT_EQ(TRUE, Call(kMaker, Counted(5)));
  EXPECT_EQ(2u, trace.Messages().size());
  provider_.providerParameters[0x38] = Octets(257, 'p');
  provider_.providerParameters[0x2E] = Octets(1025, 'u');
  trace.Clear();
  EXPECT_EQ(TRUE, Call(kMaker, Counted(5)));
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_PROFILE) = ea.",
            trace.Messages()[2]);
  EXPECT_EQ("EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_CNT_URL) = ea.",
            trace.Messages()[3]);
}

TEST_F(PrivateKeyImport, KeysThatAreNotThereReportNoMemory) {
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kMaker);
  info.PrivateKey.cbData = 5;
  EXPECT_EQ(FALSE, import_(Provider(), &info, 0, nullptr));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

TEST_F(PrivateKeyImport, LengthsThatNoDocumentCanHold) {
  const GuardedMemory octets(Counted(16));
  for (const DWORD size : {0xFFFFFFFFu, 0xFFFFFFF0u, 0xFFFFF001u}) {
    CRYPT_PRIVATE_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(kMaker);
    info.PrivateKey = {size, octets.Data()};
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, import_(Provider(), &info, 0, nullptr));
    EXPECT_EQ(0x8009000Eu, GetLastError());
    EXPECT_THAT(trace.Messages()[1],
                testing::HasSubstr("PrivateKey.cbData = " + std::to_string(static_cast<int>(size)) +
                                   ", Attr"));
  }
  EXPECT_THAT(provider_.KeyCalls(), IsEmpty());
}

TEST_F(PrivateKeyImport, LeavesNoKeyInFreedMemory) {
  const FreeSearch search;
  for (const Octets& key : {kSecret, Join({kSecret, kSecret})}) {
    for (const Octets& given : {key, PrivateKeyInfo(key), Element(0x30, Element(0x04, key))}) {
      EXPECT_EQ(TRUE, Call(kMaker, given));
      EXPECT_EQ(0, search.Leaks()) << HexText(given);
      EXPECT_LT(0, search.Frees());
    }
  }
}

// Nor does a failure leave a part of the key in memory that is given back.
TEST_F(PrivateKeyImport, EveryAllocationMayFail) {
  const FreeSearch search;
  const AllocationLimit limit;
  const Octets longKey = Join({kSecret, Counted(136), kSecret});
  // With something behind the key, so that the document can fail when it holds the key already.
  const Octets withAttributes = Element(0x30, Join({{0x02, 0x01, 0x00},
                                                    kCryptoProAlgorithm,
                                                    Element(0x04, longKey),
                                                    {0xA0, 0x05, 0x30, 0x03, 0x02, 0x01, 0x05}}));
  for (const Octets& given :
       {longKey, PrivateKeyInfo(longKey), withAttributes, Element(0x30, longKey)}) {
    int failures = 0;
    for (int n = 0; n < 1000; ++n) {
      provider_.ClearCalls();
      SetLastError(kUntouchedError);
      limit.Allow(n);
      const BOOL done = Call(kMaker, given);
      const bool failed = limit.End();
      ASSERT_EQ(0, search.Leaks()) << n;
      if (!failed) {
        EXPECT_EQ(TRUE, done);
        break;
      }
      ++failures;
      ASSERT_EQ(FALSE, done) << n;
      ASSERT_EQ(0x8009000Eu, GetLastError()) << n;
      ASSERT_THAT(provider_.KeyCalls(), IsEmpty());
    }
    EXPECT_LT(1, failures);
  }
}

}  // namespace
}  // namespace zarext::test
