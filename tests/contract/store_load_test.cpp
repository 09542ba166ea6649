// The walk over the provider's containers, and what reaches the store from it.
#include "store_load_fixture.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
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

}  // namespace
}  // namespace zarext::test
