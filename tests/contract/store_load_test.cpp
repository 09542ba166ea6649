// The walk over the provider's containers, and what reaches the store from it.
#include <algorithm>

#include "store_load_fixture.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(StoreLoad, CallsTheProviderInThisOrder) {
  TestKey withChain = KeyWith(0x11, MakeCertificate({}), {1, 2});
  withChain.chain = MakeChain({MakeCertificate({})});
  TestKey withoutChain = KeyWith(0x12, {}, {});
  withoutChain.hasChain = false;
  AddContainer("alpha", {withChain, withoutChain});
  AddContainer("beta", {KeyWith(0, MakeCertificate({.serial = {7}}), {7}), KeyWith(0x31, {}, {})});
  Load();
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 1",              //
                          "GetProvParam(1, 57, 260, 1) = alpha",             //
                          "GetProvParam(1, 64, 1456, 0) = profile://alpha",  //
                          "AcquireContext(profile://alpha, 40) = 2",         //
                          "GetProvParam(2, 45, 88, 1)",                      //
                          "GetKeyParam(2, 11, 69, 32784, 0)",                //
                          "GetProvParam(2, 45, 88, 0)",                      //
                          "GetKeyParam(2, 12, 69, 32784, 0) ! 80090011",     //
                          "GetProvParam(2, 45, 88, 0) ! 103",                //
                          "ReleaseContext(2, 0)",                            //
                          "GetProvParam(1, 57, 260, 0) = beta",              //
                          "GetProvParam(1, 64, 1456, 0) = profile://beta",   //
                          "AcquireContext(profile://beta, 40) = 3",          //
                          "GetProvParam(3, 45, 88, 1)",                      //
                          "ReleaseContext(3, 0)",                            //
                          "GetProvParam(1, 57, 260, 0) ! 103",               //
                          "ReleaseContext(1, 0)"));
}

TEST_F(StoreLoad, TracesEveryStep) {
  const Octets root = MakeCertificate({.serial = {0x51, 0x52, 0x53},
                                       .issuer = "Root A",
                                       .subject = "Root A",
                                       .signatureOid = "1.2.643.2.2.3"});
  const Octets leaf = MakeCertificate({.serial = {0x7E}, .issuer = "Root A"});
  TestKey key = KeyWith(0x11, leaf, {0xAB, 0x01, 0xC0}, 0x2E23);
  // The platform enumerates a message's certificates from the last to the first.
  key.chain = MakeChain({leaf, root});
  AddContainer("alpha", {key, KeyWith(0, {}, {}, 0x77)});
  provider.containers[0].kind = "kztoken";
  provider.containers[0].thirdText = "third";
  Load();
  const std::string size = std::to_string(key.chain.size());
  const std::string certificateSize = std::to_string(leaf.size());
  EXPECT_THAT(
      LoadLines(),
      ElementsAre(
          "EXT : load_certs_from_CSP : URL = profile://alpha (kztoken : third).",
          "EXT : load_certs_from_CSP : size=88 (" + certificateSize + ").",
          "EXT : load_certs_from_CSP : algID=2e23 (alpha).",
          "EXT : load_certs_from_CSP [CertEnumCertificatesInStore : size = " + size +
              ", oid = 1.2.643.2.2.3, s/n= 53 52...]",
          "EXT : load_certs_from_CSP [CertEnumCertificatesInStore : size = " + size +
              ", oid = 1.2.398.3.10.1.1.1.2, s/n= 7e 0...]",
          "EXT : load_certs_from_CSP : size=88 (0).",
          "EXT : load_certs_from_CSP : algID=77 (alpha).",
          "EXT : load_certs_from_CSP_CACHE : dwKeySpec = 2 (2e23), dwProvType = 19, size = " +
              certificateSize +
              ", szwContainer = profile://alpha/?sn=AB01C0 (1.2.398.3.10.1.1.1.1)."));
  EXPECT_TRUE(RootStoreHolds(root));
  EXPECT_FALSE(RootStoreHolds(leaf));
}

TEST_F(StoreLoad, TiesEachCertificateToItsKey) {
  const Octets first = MakeCertificate({.serial = {1}});
  const Octets second = MakeCertificate({.serial = {2}});
  AddContainer("alpha", {KeyWith(0x11, first, {0x00, 0x9F, 0xA0})});
  AddContainer("beta", {KeyWith(0x21, second, {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(2));
  // The memory store lists the newest first.
  const StoredCertificate& one = content[0].encoded == first ? content[0] : content[1];
  const StoredCertificate& other = content[0].encoded == first ? content[1] : content[0];
  EXPECT_EQ(first, one.encoded);
  EXPECT_TRUE(one.hasProperty);
  EXPECT_EQ(L"profile://alpha/?sn=009FA0", one.container);
  EXPECT_EQ(L"Zarvel CSP", one.provider);
  EXPECT_EQ(25u, one.providerType);
  EXPECT_EQ(1u, one.flags);
  EXPECT_EQ(0u, one.parameterCount);
  EXPECT_EQ(second, other.encoded);
  EXPECT_EQ(L"profile://beta/?sn=02", other.container);
}

TEST_F(StoreLoad, PutsTheCertificatesInInTheOrderOfTheList) {
  AddContainer("a", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(2, MakeCertificate({.serial = {2}}), {2})});
  AddContainer("b", {KeyWith(3, MakeCertificate({.serial = {3}}), {3})});
  Load();
  std::vector<std::string> urls;
  for (const std::string& line : LoadLines()) {
    const auto start = line.find("szwContainer = ");
    if (start != std::string::npos) {
      urls.push_back(line.substr(start + 15, line.find(' ', start + 15) - start - 15));
    }
  }
  EXPECT_THAT(urls, ElementsAre("profile://a/?sn=01", "profile://a/?sn=02", "profile://b/?sn=03"));
}

struct KindCase {
  const char* kind;
  const char* secondText;
  bool isOpened;
};

TEST_F(StoreLoad, OpensContainersByTheirKind) {
  const KindCase cases[] = {
      {"kztoken", "", true},  {"javatoken", "", true}, {"idcard", "", true},  {"file", "", true},
      {"File", "", false},    {"files", "", false},    {"fil", "", false},    {"", "", false},
      {"idcard2", "", false}, {"etoken", "", false},   {"etoken", "x", true}, {"", "x", true},
      {"kztoken", "x", true},
  };
  for (const KindCase& test : cases) {
    SCOPED_TRACE(std::string(test.kind) + "|" + test.secondText);
    provider.containers.clear();
    AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
    provider.containers[0].kind = test.kind;
    provider.containers[0].secondText = test.secondText;
    provider.ClearCalls();
    trace.Clear();
    EXPECT_THAT(Load(), SizeIs(test.isOpened ? 1 : 0));
    EXPECT_EQ(test.isOpened ? 1 : 0, provider.CountCalls("AcquireContext(profile://c, 40)"));
    EXPECT_THAT(LoadLines(), Contains("EXT : load_certs_from_CSP : URL = profile://c (" +
                                      std::string(test.kind) + " : )."));
    Advance(100);
  }
}

struct KeySpecCase {
  std::uint32_t algorithm;
  DWORD keySpec;
};

TEST_F(StoreLoad, TakesTheKeySpecificationFromTheAlgorithm) {
  const KeySpecCase cases[] = {
      {0, 2},      {1, 1},      {0x200, 2},  {0x400, 2},      {0x800, 2}, {0x1000, 2},
      {0x2000, 1}, {0xA000, 1}, {0x2400, 2}, {0x80000000, 1}, {0x1FF, 1}, {0xAA3A, 2},
  };
  for (const KeySpecCase& test : cases) {
    provider.containers.clear();
    AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1}, test.algorithm)});
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(1));
    EXPECT_EQ(test.keySpec, content[0].keySpec) << test.algorithm;
    Advance(100);
  }
}

struct ProviderCase {
  const char* oid;
  const wchar_t* provider;
  DWORD type;
  const char* shownType;
};

TEST_F(StoreLoad, ChoosesTheProviderByThePublicKey) {
  const ProviderCase cases[] = {
      {"1.2.398.3.10.1.1.1.1", L"Zarvel CSP", 25, "19"},
      {"1.2.398.3.10.1", L"Zarvel CSP", 25, "19"},
      {"1.2.398.3.10.10", L"Zarvel CSP", 25, "19"},
      {"1.3.6.1.4.1.32473.1.5.8", L"Zarvel CSP", 25, "19"},
      {"1.2.643.2.2.19", L"Zarvel CSP", 25, "19"},
      {"1.2.643.2.2", L"(null)", 0, "0"},
      {"1.2.643.7.1.1.1.1", L"(null)", 0, "0"},
      {"1.2.840.113549.1.1.1", L"Zarvel CSP RSA", 1, "1"},
      {"1.2.840.113549.1.1.10", L"Zarvel CSP RSA", 1, "1"},
      {"1.2.840.113549.1.1", L"(null)", 0, "0"},
      {"1.2.840.10045.2.1", L"(null)", 0, "0"},
  };
  for (const ProviderCase& test : cases) {
    SCOPED_TRACE(test.oid);
    provider.containers.clear();
    AddContainer("c", {KeyWith(0x11, MakeCertificate({.publicKeyOid = test.oid}), {1})});
    trace.Clear();
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(1));
    EXPECT_EQ(test.provider, content[0].provider);
    EXPECT_EQ(test.type, content[0].providerType);
    EXPECT_EQ(L"profile://c/?sn=01", content[0].container);
    EXPECT_THAT(LoadLines().back(), HasSubstr(std::string("dwProvType = ") + test.shownType + ","));
    EXPECT_THAT(LoadLines().back(), HasSubstr(std::string(" (") + test.oid + ")."));
    Advance(100);
  }
}

TEST_F(StoreLoad, ConvertsTheAddressFromTheAnsiCodePage) {
  AddContainer("\xE9", {KeyWith(0x11, MakeCertificate({}), {1})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  ASSERT_TRUE(GetACP() == 1252 || GetACP() == 1251) << GetACP();
  EXPECT_EQ(GetACP() == 1252 ? L"profile://\x00E9/?sn=01" : L"profile://\x0439/?sn=01",
            content[0].container);
}

// Upper-case hexadecimal of `count` octets 0xA5.
std::wstring A5Text(std::size_t count) {
  std::wstring text;
  for (std::size_t i = 0; i < count; ++i) {
    text += L"A5";
  }
  return text;
}

TEST_F(StoreLoad, CutsALongSerialNumberToWhatFitsInto519Characters) {
  // 519 - 10 - 1 - 5 = 503 characters: 251 pairs.
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), Octets(300, 0xA5))});
  auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=" + A5Text(251), content[0].container);
  Advance(100);
  // 519 - 10 - 258 - 5 = 246 characters: 123 pairs, and the address is full.
  provider.containers[0].name = std::string(258, 'n');
  content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://" + std::wstring(258, L'n') + L"/?sn=" + A5Text(123), content[0].container);
  Advance(100);
  provider.containers[0].keys[0].serial = Octets(123, 0xA5);
  content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(519u, content[0].container.size());
}

TEST_F(StoreLoad, ANameOf259OctetsIsReadAndALongerOnePassedOver) {
  AddContainer(std::string(260, 'x'), {KeyWith(0x11, MakeCertificate({.serial = {1}}), {1})});
  AddContainer(std::string(259, 'y'), {KeyWith(0x12, MakeCertificate({.serial = {2}}), {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://" + std::wstring(259, L'y') + L"/?sn=02", content[0].container);
  // The first was not asked about.
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(1, 64"));
}

TEST_F(StoreLoad, PassesAContainerWithAnUnendedTextOver) {
  struct Field {
    std::size_t offset;
    std::size_t size;
  };
  for (const Field field : {Field{128, 192}, Field{320, 128}, Field{448, 496}}) {
    provider.containers.clear();
    AddContainer("bad", {KeyWith(0x11, MakeCertificate({.serial = {1}}), {1})});
    AddContainer("good", {KeyWith(0x12, MakeCertificate({.serial = {2}}), {2})});
    int profiles = 0;
    provider.alterProfile = [&](BYTE* record) {
      if (++profiles == 1) std::memset(record + field.offset, 'f', field.size);
    };
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(1)) << field.offset;
    EXPECT_EQ(L"profile://good/?sn=02", content[0].container);
    Advance(100);
  }
}

TEST_F(StoreLoad, ATextThatFillsItsFieldButForTheTerminatorIsRead) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
  provider.containers[0].kind = std::string(191, 'k');
  provider.containers[0].secondText = std::string(127, 's');
  provider.containers[0].thirdText = std::string(495, 't');
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_EQ("EXT : load_certs_from_CSP : URL = profile://c (" + std::string(191, 'k') + " : " +
                std::string(495, 't') + ").",
            LoadLines()[0]);
}

TEST_F(StoreLoad, AContextWhoseHandleIs0IsUsedAndReleased) {
  AddContainer("c", {KeyWith(0, MakeCertificate({}), {1})});
  // Of the verify context, and of the container's.
  for (const HCRYPTPROV first : {HCRYPTPROV{0}, ~HCRYPTPROV{0}}) {
    SCOPED_TRACE(first);
    provider.nextContext = first;
    provider.ClearCalls();
    EXPECT_THAT(Load(), SizeIs(1));
    const std::string verify = std::to_string(first);
    const std::string container = std::to_string(first + 1);
    EXPECT_THAT(provider.Calls(),
                ElementsAre("AcquireContext(null, f0000000) = " + verify,
                            "GetProvParam(" + verify + ", 57, 260, 1) = c",
                            "GetProvParam(" + verify + ", 64, 1456, 0) = profile://c",
                            "AcquireContext(profile://c, 40) = " + container,
                            "GetProvParam(" + container + ", 45, 88, 1)",
                            "ReleaseContext(" + container + ", 0)",
                            "GetProvParam(" + verify + ", 57, 260, 0) ! 103",
                            "ReleaseContext(" + verify + ", 0)"));
    Advance(100);
  }
}

TEST_F(StoreLoad, WithoutAVerifyContextTheStoreIsEmpty) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
  provider.FailCall("AcquireContext", 1, 0x80090016);
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_THAT(provider.Calls(), ElementsAre("AcquireContext(null, f0000000) ! 80090016"));
  EXPECT_THAT(LoadLines(), IsEmpty());
}

TEST_F(StoreLoad, GoesOnWithTheNextContainerWhereOneFails) {
  for (const char* const failing : {"GetProvParam 64", "AcquireContext", "GetProvParam 45"}) {
    SCOPED_TRACE(failing);
    ContainerProvider fresh;
    UseScript(&fresh);
    for (std::uint8_t number = 1; number <= 3; ++number) {
      fresh.containers.push_back(
          {"c" + std::to_string(number),
           "file",
           "",
           "",
           {KeyWith(number, MakeCertificate({.serial = {number}}), {number})}});
    }
    fresh.FailCall(failing, std::string(failing) == "AcquireContext" ? 3 : 2, 5);
    // The second listing call of a container is its end, so the second container's first is third.
    if (std::string(failing) == "GetProvParam 45") fresh.FailCall(failing, 3, 5);
    trace.Clear();
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(2));
    std::vector<std::wstring> addresses = {content[0].container, content[1].container};
    std::sort(addresses.begin(), addresses.end());
    EXPECT_THAT(addresses, ElementsAre(L"profile://c1/?sn=01", L"profile://c3/?sn=03"));
    EXPECT_EQ(0u, fresh.OpenContexts());
    UseScript(&provider);
    Advance(100);
  }
}

TEST_F(StoreLoad, ListsOnlyRecordsWithCertificateAndSerialNumber) {
  const Octets certificate = MakeCertificate({});
  std::vector<TestKey> keys = {KeyWith(1, {}, {1}), KeyWith(2, certificate, {})};
  TestKey lengthWithoutSerial = KeyWith(3, certificate, {1});
  lengthWithoutSerial.alter = [](KeyRecord& record) { record.serial = nullptr; };
  TestKey lengthWithoutCertificate = KeyWith(4, certificate, {1});
  lengthWithoutCertificate.alter = [](KeyRecord& record) { record.certificate = nullptr; };
  TestKey noSerialLength = KeyWith(5, certificate, {1});
  noSerialLength.alter = [](KeyRecord& record) { record.serialSize = 0; };
  TestKey noCertificateLength = KeyWith(6, certificate, {1});
  noCertificateLength.alter = [](KeyRecord& record) { record.certificateSize = 0; };
  keys.insert(keys.end(),
              {lengthWithoutSerial, lengthWithoutCertificate, noSerialLength, noCertificateLength});
  AddContainer("c", keys);
  EXPECT_THAT(Load(), IsEmpty());
  // Their chains were read all the same.
  EXPECT_EQ(6, provider.CountCalls("GetKeyParam(2, "));
  EXPECT_EQ(0u, SharedSection().Size());
}

TEST_F(StoreLoad, ReadsNothingBehindWhatAProviderReallyHas) {
  const Octets certificate = MakeCertificate({});
  const GuardedMemory guardedCertificate(certificate);
  const GuardedMemory guardedSerial(Octets{1, 2});
  const auto with = [&](std::uint32_t certificateSize, std::uint32_t serialSize) {
    TestKey key = KeyWith(0x11, certificate, {1});
    key.alter = [&, certificateSize, serialSize](KeyRecord& record) {
      record.certificate = guardedCertificate.Data();
      record.certificateSize = certificateSize;
      record.serial = guardedSerial.Data();
      record.serialSize = serialSize;
    };
    return key;
  };
  const auto size = static_cast<std::uint32_t>(certificate.size());
  AddContainer("c", {with(size + 1, 2), with(size, 3), with(0xFFFFFFFF, 2), with(size, 0xFFFFFFFF),
                     with(size, 2)});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=0102", content[0].container);
}

TEST_F(StoreLoad, ARecordWithoutAHandleIsListedAndEndsItsContainer) {
  AddContainer("c", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(0, MakeCertificate({.serial = {2}}), {2}),
                     KeyWith(3, MakeCertificate({.serial = {3}}), {3})});
  AddContainer("d", {KeyWith(4, MakeCertificate({.serial = {4}}), {4})});
  EXPECT_THAT(Load(), SizeIs(3));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(2, 45"));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam(2, "));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam(3, 4, 69"));
}

TEST_F(StoreLoad, SkipsACertificateThatDoesNotDecode) {
  AddContainer(
      "c", {KeyWith(1, {0x30, 0x03, 0x02, 0x01, 0x05}, {1}), KeyWith(2, MakeCertificate({}), {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=02", content[0].container);
}

TEST_F(StoreLoad, AddsTheSameCertificateOnce) {
  AddContainer("c", {KeyWith(1, MakeCertificate({}), {1}), KeyWith(2, MakeCertificate({}), {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=01", content[0].container);
}

TEST_F(StoreLoad, TracesACertificateBeforeItsPropertyIsSetAndItIsAdded) {
  const RecordedImport<"CertSetCertificateContextProperty",
                       decltype(CertSetCertificateContextProperty)>
      set(Module(), "CRYPT32.dll");
  const RecordedImport<"CertAddCertificateContextToStore",
                       decltype(CertAddCertificateContextToStore)>
      add(Module(), "CRYPT32.dll");
  AddContainer("c", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(2, MakeCertificate({.serial = {2}}), {2})});
  Load();
  auto lines =
      LinesOf(events.Lines(),
              {"trace: EXT : load_certs_from_CSP_CACHE : ", "platform: ", "trace: EXT : ZarOpen"});
  for (std::string& line : lines) {
    line = line.substr(0, line.find_first_of("[=("));
  }
  EXPECT_THAT(lines, ElementsAre("trace: EXT : ZarOpenStoreProv ",
                                 "trace: EXT : load_certs_from_CSP_CACHE : dwKeySpec ",
                                 "platform: CertSetCertificateContextProperty",
                                 "platform: CertAddCertificateContextToStore",
                                 "trace: EXT : load_certs_from_CSP_CACHE : dwKeySpec ",
                                 "platform: CertSetCertificateContextProperty",
                                 "platform: CertAddCertificateContextToStore",
                                 "trace: EXT : ZarOpenStoreProv : FINISH"));
}

TEST_F(StoreLoad, TracesAContainerBehindItsProfileAndAKeyAroundItsListing) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1}, 0x2E23)});
  provider.containers[0].keys[0].hasChain = false;
  Load();
  EXPECT_THAT(
      events.Lines(),
      HasInOrder(std::vector<std::string>{
          "trace: EXT : ZarOpenStoreProv [", "provider: AcquireContext(null, f0000000) = 1",
          "provider: GetProvParam(1, 57, 260, 1) = c",
          "provider: GetProvParam(1, 64, 1456, 0) = profile://c",
          "trace: EXT : load_certs_from_CSP : URL = profile://c (file : ).",
          "provider: AcquireContext(profile://c, 40) = 2", "provider: GetProvParam(2, 45, 88, 1)",
          "trace: EXT : load_certs_from_CSP : size=88 (",
          "trace: EXT : load_certs_from_CSP : algID=2e23 (c).",
          "provider: GetKeyParam(2, 11, 69, 32784, 0) ! ",
          "provider: GetProvParam(2, 45, 88, 0) ! 103", "provider: ReleaseContext(2, 0)",
          "provider: GetProvParam(1, 57, 260, 0) ! 103", "provider: ReleaseContext(1, 0)",
          "trace: EXT : load_certs_from_CSP_CACHE : ", "trace: EXT : ZarOpenStoreProv : FINISH"}));
}

TEST_F(StoreLoad, DecodesAsX509AndPkcs7AndLeavesTheParametersOfThePropertyNull) {
  static int contexts;
  static int properties;
  contexts = properties = 0;
  const ImportPatch create(
      Module(), "CRYPT32.dll", "CertCreateCertificateContext",
      +[](DWORD encoding, const BYTE* octets, DWORD size) WINAPI -> PCCERT_CONTEXT {
        EXPECT_EQ(0x10001u, encoding);
        ++contexts;
        return CertCreateCertificateContext(encoding, octets, size);
      });
  const ImportPatch set(
      Module(), "CRYPT32.dll", "CertSetCertificateContextProperty",
      +[](PCCERT_CONTEXT context, DWORD property, DWORD flags, const void* data) WINAPI -> BOOL {
        EXPECT_EQ(2u, property);
        EXPECT_EQ(0u, flags);
        const auto& keyInfo = *static_cast<const CRYPT_KEY_PROV_INFO*>(data);
        EXPECT_EQ(1u, keyInfo.dwFlags);
        EXPECT_EQ(0u, keyInfo.cProvParam);
        EXPECT_EQ(nullptr, keyInfo.rgProvParam);
        ++properties;
        return CertSetCertificateContextProperty(context, property, flags, data);
      });
  AddContainer("c", {KeyWith(1, MakeCertificate({}), {1})});
  Load();
  EXPECT_EQ(1, contexts);
  EXPECT_EQ(1, properties);
}

TEST_F(StoreLoad, LeavesAListOfContainersThatDoesNotEnd) {
  AddContainer("c", {});
  provider.containers[0].kind = "unlisted";
  provider.endlessContainers = true;
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(1, 57"));
}

TEST_F(StoreLoad, LeavesAListOfKeysThatDoesNotEnd) {
  TestKey key = KeyWith(1, {}, {});
  key.hasChain = false;
  AddContainer("c", {key});
  provider.endlessKeys = true;
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(2, 45"));
}

}  // namespace
}  // namespace zarext::test
