// The provider store over the development provider's real containers: real keys, real certificates,
// written and found again through the framework.
#include <windows.h>

#include "contract/store_fixture.h"
#include "e2e/envelope_fixture.h"
#include "support/child_process.h"
#include "support/dev_provider.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class StoreContainers : public testing::Test {
 public:
  StoreContainers() {
    UseDevProvider();
    const std::string path = ProgramFolder() + "ZAREXT.dll";
    CryptRegisterOIDFunction(0, "CertDllOpenStoreProv", kProviderStore,
                             std::wstring(path.begin(), path.end()).c_str(), "ZarOpenStoreProv");
    SharedSection().Wipe();
  }
  // What a fresh walk finds.
  std::vector<StoredCertificate> Walk() {
    ModuleClock::Advance(100);
    const UniqueCertStore<0> store(CertOpenStore(kProviderStore, 0, 0, 0, nullptr));
    return Content(store.Get());
  }
  static BOOL AddToStore(PCCERT_CONTEXT certificate) {
    const UniqueCertStore<0> store(CertOpenStore(kProviderStore, 0, 0, 0, nullptr));
    return CertAddCertificateContextToStore(store.Get(), certificate, CERT_STORE_ADD_ALWAYS,
                                            nullptr);
  }
  static Octets Encoded(const UniqueCertContext& certificate) {
    return {certificate.Get()->pbCertEncoded,
            certificate.Get()->pbCertEncoded + certificate.Get()->cbCertEncoded};
  }

  DevHome home;
  StoreFixes fixes{Module()};
  ModuleClock clock{Module(), NextStart()};

 private:
  static long long NextStart() { return lastStart_ += 1000000; }
  static inline long long lastStart_ = 1700000000;
};

TEST_F(StoreContainers, AnAddedCertificateIsFoundWithItsKey) {
  const Issuer issuer;
  const Party alice("alice");
  const Party bob("bob");
  EXPECT_THAT(Walk(), IsEmpty());
  const UniqueCertContext bobs = issuer.Certify(bob, kExchangeOid);
  const UniqueCertContext alices = issuer.Certify(alice, kExchangeOid);
  // Each goes to the key that it is for: the provider refuses it elsewhere.
  EXPECT_EQ(1, AddToStore(bobs.Get()));
  EXPECT_EQ(1, AddToStore(alices.Get()));
  EXPECT_EQ(1, AddToStore(alices.Get()));

  const auto content = Walk();
  ASSERT_THAT(content, SizeIs(2));
  for (const StoredCertificate& certificate : content) {
    const bool isBobs = certificate.encoded == Encoded(bobs);
    EXPECT_TRUE(isBobs || certificate.encoded == Encoded(alices));
    EXPECT_EQ(isBobs ? L"profile://bob/?sn=175A01" : L"profile://alice/?sn=175A02",
              certificate.container);
    EXPECT_EQ(L"Zarvel CSP", certificate.provider);
    EXPECT_EQ(25u, certificate.providerType);
    EXPECT_EQ(1u, certificate.keySpec);
    // The address leads back to the private key.
    HCRYPTPROV context = 0;
    ASSERT_TRUE(CryptAcquireContextW(&context, certificate.container.c_str(),
                                     certificate.provider.c_str(), certificate.providerType,
                                     CRYPT_SILENT))
        << std::hex << GetLastError();
    HCRYPTKEY key = 0;
    EXPECT_TRUE(CryptGetUserKey(context, certificate.keySpec, &key));
    DWORD size = 0;
    CryptExportKey(key, 0, PUBLICKEYBLOB, 0, nullptr, &size);
    Octets blob(size);
    EXPECT_TRUE(CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob.data(), &size));
    EXPECT_EQ(isBobs ? bob.PublicBlob() : alice.PublicBlob(), blob);
    CryptDestroyKey(key);
    CryptReleaseContext(context, 0);
  }
}

TEST_F(StoreContainers, ARootGoesIntoTheChainsAndIsTrustedFromThenOn) {
  const Issuer issuer;
  const Party alice("alice");
  const UniqueCertContext alices = issuer.Certify(alice, kExchangeOid);
  EXPECT_EQ(1, AddToStore(alices.Get()));
  const Octets root = MakeCertificate(
      {.serial = {0x5E, 0x1F}, .issuer = "Root of the chain", .subject = "Root of the chain"});
  EXPECT_EQ(1, AddToStore(MakeContext(root).Get()));
  const auto isTrusted = [&] {
    const UniqueCertStore<0> store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"ROOT"));
    const auto all = Encodings(store.Get());
    return std::find(all.begin(), all.end(), root) != all.end();
  };
  EXPECT_FALSE(isTrusted());
  EXPECT_THAT(Walk(), SizeIs(1));
  EXPECT_TRUE(isTrusted());
  // A second time it is found in the chain and not written.
  EXPECT_EQ(1, AddToStore(MakeContext(root).Get()));
}

// A token is not written under its own address, only where the last import put its key.
TEST_F(StoreContainers, ATokenTakesACertificateAfterAnImport) {
  const Issuer issuer;
  const Party token("profile://card/?kind=idcard", kExchangeAlgId, 25, CRYPT_EXPORTABLE);
  const UniqueCertContext cards = issuer.Certify(token, kExchangeOid);
  EXPECT_EQ(0, AddToStore(cards.Get()));

  // The key is there already; its import is tolerated and leaves the address.
  Octets privateKey = test::Export(UserKey(token.Own(), AT_KEYEXCHANGE), 0x30);
  CRYPT_PRIVATE_KEY_INFO info = {};
  char oid[] = "1.3.6.1.4.1.32473.1.8.8";
  info.Algorithm.pszObjId = oid;
  info.PrivateKey = {static_cast<DWORD>(privateKey.size()), privateKey.data()};
  using ImportFunction = BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*);
  ASSERT_EQ(
      1, test::Export<ImportFunction>("ZarImportPrivKeyFunc")(token.Provider(), &info, 0, nullptr));
  EXPECT_EQ(1, AddToStore(cards.Get()));
  const auto content = Walk();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://card/?sn=175A01", content[0].container);
}

}  // namespace
}  // namespace zarext::test
