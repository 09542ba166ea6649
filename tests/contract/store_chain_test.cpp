// The chains that containers have: what of them becomes a root, and what is passed over.
#include <algorithm>

#include "store_load_fixture.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

TEST_F(StoreLoad, ANewRootIsAddedOnceAndTracedAfterwards) {
  const Octets root =
      MakeCertificate({.serial = {9, 9}, .issuer = "Root once", .subject = "Root once"});
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({root});
  AddContainer("c", {key});
  Load();
  EXPECT_TRUE(RootStoreHolds(root));
  const std::string failure =
      "EXT : load_certs_from_CSP [CertAddEncodedCertificateToStore : error = 80092005]";
  EXPECT_THAT(LoadLines(), Not(Contains(failure)));
  Advance(61);
  trace.Clear();
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_THAT(LoadLines(), Contains(failure));
}

TEST_F(StoreLoad, ARootIsAddedWithItsOwnEncodingType) {
  static std::vector<DWORD> encodings;
  encodings.clear();
  const ImportPatch enumerate(
      Module(), "CRYPT32.dll", "CertEnumCertificatesInStore",
      +[](HCERTSTORE store, PCCERT_CONTEXT previous) WINAPI -> PCCERT_CONTEXT {
        const PCCERT_CONTEXT context = CertEnumCertificatesInStore(store, previous);
        if (context != nullptr) {
          const_cast<CERT_CONTEXT*>(context)->dwCertEncodingType = 0x40001;
        }
        return context;
      });
  const ImportPatch add(
      Module(), "CRYPT32.dll", "CertAddEncodedCertificateToStore",
      +[](HCERTSTORE, DWORD encoding, const BYTE*, DWORD, DWORD, PCCERT_CONTEXT*) WINAPI -> BOOL {
        encodings.push_back(encoding);
        return TRUE;
      });
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({MakeCertificate({.issuer = "R", .subject = "R"})});
  AddContainer("c", {key});
  Load();
  EXPECT_THAT(encodings, ElementsAre(0x40001u));
}

TEST_F(StoreLoad, ACertificateIssuedByAnotherIsNoRoot) {
  const Octets other =
      MakeCertificate({.serial = {8, 1}, .issuer = "Root X1", .subject = "Root X2"});
  const Octets longer =
      MakeCertificate({.serial = {8, 2}, .issuer = "Root X", .subject = "Root X1"});
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({other, longer});
  AddContainer("c", {key});
  Load();
  EXPECT_FALSE(RootStoreHolds(other));
  EXPECT_FALSE(RootStoreHolds(longer));
}

TEST_F(StoreLoad, TracesAChainThatIsEmptyOrUnreadable) {
  TestKey empty = KeyWith(1, {}, {});
  TestKey garbage = KeyWith(2, {}, {});
  garbage.chain = {0x04, 0x03, 1, 2, 3};
  AddContainer("c", {empty, garbage});
  // What was the last error before is what is shown for the empty one.
  provider.alterKeyParam = [](BYTE*, DWORD*) { SetLastError(0xABCD); };
  Load();
  const auto lines = LoadLines();
  EXPECT_THAT(lines, Contains("EXT : load_certs_from_CSP [cbCert = 0, "
                              "CryptGetMessageCertificates(hPKCS7Store) : error = ABCD]"));
  EXPECT_THAT(lines, Contains("EXT : load_certs_from_CSP [cbCert = 5, "
                              "CryptGetMessageCertificates(hPKCS7Store) : error = 8009310B]"));
  EXPECT_EQ(2, provider.CountCalls("GetKeyParam("));
}

TEST_F(StoreLoad, AChainThatFillsItsBufferIsRead) {
  TestKey key = KeyWith(1, {}, {});
  key.chain = MakeChain({MakeCertificate({})});
  // Zeros behind the message are tolerated.
  key.chain.resize(32784);
  AddContainer("c", {key});
  Load();
  EXPECT_THAT(LoadLines(), Contains(HasSubstr("CertEnumCertificatesInStore : size = 32784,")));
}

TEST_F(StoreLoad, AChainLongerThanItsBufferIsPassedOver) {
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({MakeCertificate({})});
  AddContainer("c", {key, KeyWith(0, MakeCertificate({.serial = {2}}), {2})});
  provider.alterKeyParam = [](BYTE*, DWORD* size) { *size = 32785; };
  EXPECT_THAT(Load(), SizeIs(2));
  EXPECT_THAT(LoadLines(), Not(Contains(HasSubstr("[CertEnum"))));
  EXPECT_THAT(LoadLines(), Not(Contains(HasSubstr("[cbCert"))));
}

TEST_F(StoreLoad, TracesARootStoreThatDoesNotOpen) {
  const RefusedSystemStore refused(0x10000, L"ROOT", 0xC0FE);
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({MakeCertificate({})});
  AddContainer("c", {key});
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_THAT(LoadLines(),
              Contains("EXT : load_certs_from_CSP [CertOpenStore(hRootStore) : error = C0FE]"));
  EXPECT_THAT(LoadLines(), Not(Contains(HasSubstr("[CertEnum"))));
}

TEST_F(StoreLoad, ClosesTheStoresOfAChainByForceAndRootFirst) {
  using MessageImport =
      RecordedImport<"CryptGetMessageCertificates", decltype(CryptGetMessageCertificates)>;
  using RootImport = RecordedImport<"CertOpenStore", decltype(CertOpenStore)>;
  const MessageImport message(
      Module(), "CRYPT32.dll",
      [](DWORD encoding, HCRYPTPROV_LEGACY context, DWORD flags, const BYTE*, DWORD) {
        EXPECT_EQ(0x10001u, encoding);
        EXPECT_EQ(0u, context);
        EXPECT_EQ(0u, flags);
        return std::string();
      });
  const RootImport root(Module(), "CRYPT32.dll",
                        [](LPCSTR storeProvider, DWORD, HCRYPTPROV_LEGACY, DWORD, const void*) {
                          EXPECT_EQ(CERT_STORE_PROV_SYSTEM_W, storeProvider);
                          return std::string();
                        });
  const auto name = [&](HCERTSTORE store) -> std::string {
    return store == RootImport::LastResult()
               ? "ROOT"
               : (store == MessageImport::LastResult() ? "message" : "another");
  };
  const RecordedImport<"CertAddEncodedCertificateToStore",
                       decltype(CertAddEncodedCertificateToStore)>
      add(Module(), "CRYPT32.dll",
          [&](HCERTSTORE store, DWORD, const BYTE*, DWORD, DWORD, PCCERT_CONTEXT*) {
            return name(store);
          });
  const RecordedImport<"CertCloseStore", decltype(CertCloseStore)> close(
      Module(), "CRYPT32.dll",
      [&](HCERTSTORE store, DWORD flags) { return name(store) + ", " + std::to_string(flags); });
  TestKey key = KeyWith(1, MakeCertificate({}), {1});
  key.chain = MakeChain({MakeCertificate({.issuer = "R", .subject = "R"})});
  AddContainer("c", {key});
  Load();
  const auto lines = events.Lines();
  const auto begin =
      std::find(lines.begin(), lines.end(), "provider: GetKeyParam(2, 1, 69, 32784, 0)");
  ASSERT_NE(lines.end(), begin);
  EXPECT_THAT(
      std::vector<std::string>(begin + 1, lines.end()),
      HasInOrder(std::vector<std::string>{
          "platform: CryptGetMessageCertificates()", "platform: CertOpenStore()",
          "trace: EXT : load_certs_from_CSP [CertEnumCertificatesInStore : ",
          "platform: CertAddEncodedCertificateToStore(ROOT)", "platform: CertCloseStore(ROOT, 1)",
          "platform: CertCloseStore(message, 1)", "provider: GetProvParam(2, 45, 88, 0) ! 103"}));
  EXPECT_THAT(LinesOf(lines, {"platform: "}), SizeIs(5));
}

}  // namespace
}  // namespace zarext::test
