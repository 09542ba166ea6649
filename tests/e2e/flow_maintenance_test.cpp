// What installers call, and what a later process sees of it.
#include "e2e/flow_setup.h"
#include "support/child_process.h"
#include "support/openssl_fixtures.h"
#include "support/signed_message.h"

namespace zarext::test {
namespace {

using SetSelfCert = BOOL WINAPI(BOOL, const char*, DWORD, const BYTE*, DWORD);
using ChangeStore = BOOL WINAPI(BOOL, DWORD, const BYTE*, DWORD);

BOOL Change(const char* exportName, DWORD store, const Octets& certificate) {
  return test::Export<ChangeStore>(exportName)(FALSE, store, certificate.data(),
                                               static_cast<DWORD>(certificate.size()));
}

UniqueCertStore<0> OpenSystemStore(const wchar_t* name) {
  return UniqueCertStore<0>(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, name));
}

bool IsIn(const wchar_t* name, const Octets& certificate) {
  const auto all = Encodings(OpenSystemStore(name).Get());
  return std::find(all.begin(), all.end(), certificate) != all.end();
}

// One bit for each store that has the chain's authority.
ZAREXT_CHILD(SeesTheAuthority) {
  int seen = 0;
  int bit = 1;
  for (const wchar_t* name : {L"ROOT", L"TRUST", L"CA", L"Other People", L"MY", L"Personal"}) {
    seen |= IsIn(name, FromHex(openssl::kChainAuthorityCertificate)) ? bit : 0;
    bit <<= 1;
  }
  return seen;
}

DWORD Child(const char* name) { return ChildProcess(name).Wait().value_or(255); }

using Maintenance = FlowTest;

TEST_F(Maintenance, EveryStoreTakesACertificateAndGivesItBack) {
  const Octets authority = FromHex(openssl::kChainAuthorityCertificate);
  const auto changeAll = [&](const char* exportName, std::initializer_list<DWORD> stores) {
    for (const DWORD store : stores) {
      EXPECT_EQ(TRUE, Change(exportName, store, authority)) << store;
    }
  };
  EXPECT_EQ(0u, Child("SeesTheAuthority"));
  changeAll("SetOtherCert", {0, 1, 4});
  EXPECT_EQ(0b010011u, Child("SeesTheAuthority"));
  changeAll("SetOtherCert", {2, 3, 5});
  EXPECT_EQ(0b111111u, Child("SeesTheAuthority"));
  changeAll("DelOtherCert", {0, 2, 5});
  EXPECT_EQ(0b011010u, Child("SeesTheAuthority"));
  changeAll("DelOtherCert", {1, 3, 4});
  EXPECT_EQ(0u, Child("SeesTheAuthority"));
}

// The errors of the chain of OpenSSL's user, as far as they are about its issuers: 1 for an issuer
// that is not found, 2 for a root that is not trusted, 4 for a wrong signature.
ZAREXT_CHILD(JudgesTheUser) {
  UseDevProvider();
  Module();
  const auto user = CertificateContext(FromHex(openssl::kChainUserCertificate));
  CERT_CHAIN_PARA para = {};
  para.cbSize = sizeof para;
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  Must(CertGetCertificateChain(nullptr, user.Get(), nullptr, nullptr, &para, 0, nullptr, &chain),
       "CertGetCertificateChain");
  const DWORD errors = chain->TrustStatus.dwErrorStatus;
  CertFreeCertificateChain(chain);
  return ((errors & CERT_TRUST_IS_PARTIAL_CHAIN) != 0 ? 1 : 0) +
         ((errors & CERT_TRUST_IS_UNTRUSTED_ROOT) != 0 ? 2 : 0) +
         ((errors & CERT_TRUST_IS_NOT_SIGNATURE_VALID) != 0 ? 4 : 0);
}

TEST_F(Maintenance, AnInstalledRootAndAuthorityMakeAUserTrusted) {
  const Octets root = FromHex(openssl::kChainRootCertificate);
  const Octets authority = FromHex(openssl::kChainAuthorityCertificate);
  EXPECT_EQ(1u, Child("JudgesTheUser"));
  EXPECT_EQ(TRUE, Change("SetOtherCert", 2, authority));
  EXPECT_EQ(1u, Child("JudgesTheUser"));
  EXPECT_EQ(TRUE, Change("SetOtherCert", 0, root));
  EXPECT_EQ(0u, Child("JudgesTheUser"));
  EXPECT_EQ(TRUE, Change("DelOtherCert", 0, root));
  EXPECT_EQ(1u, Child("JudgesTheUser"));
  EXPECT_EQ(TRUE, Change("DelOtherCert", 2, authority));
}

// Signs with the certificate in "MY" and checks the message.
ZAREXT_CHILD(SignsWithItsOwn) {
  UseDevProvider();
  Module();
  const auto store = OpenSystemStore(L"MY");
  const UniqueCertContext signer(CertFindCertificateInStore(
      store.Get(), X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_W, L"Alice", nullptr));
  if (!signer) {
    return 2;
  }
  const Octets content = {1, 2, 3};
  Octets read;
  const Octets message = SignMessage(signer.Get(), "1.2.398.3.10.1.3.2", content);
  return VerifyMessage(message, &read) == 0 && read == content ? 0 : 1;
}

TEST_F(Maintenance, AnInstalledOwnCertificateSigns) {
  const Person alice("alice", kNationalKey);
  const Octets own = IssueCertificate(alice.AsSigner(), "Alice", alice.Subject(), 1);
  EXPECT_EQ(TRUE,
            test::Export<SetSelfCert>("SetSelfCert")(FALSE, "profile://alice", AT_SIGNATURE,
                                                     own.data(), static_cast<DWORD>(own.size())));
  EXPECT_EQ(0u, Child("SignsWithItsOwn"));
  EXPECT_EQ(TRUE, Change("DelOtherCert", 4, own));
  EXPECT_EQ(2u, Child("SignsWithItsOwn"));
}

}  // namespace
}  // namespace zarext::test
