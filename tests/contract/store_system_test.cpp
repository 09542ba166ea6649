// The exports that maintain the system stores, on the real stores of a throw-away prefix. In a
// program of its own: a log file that is missing costs the process its standard input.
#include "contract/store_system_fixture.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(SystemStores, EveryIndexAndLocationIsAStoreOfItsOwn) {
  for (const int machine : {0, 1, -1}) {
    for (DWORD store = 0; store < 6; ++store) {
      SCOPED_TRACE(testing::Message() << machine << " " << store);
      const Octets certificate =
          MakeCertificate({.serial = {static_cast<std::uint8_t>(machine + 3),
                                      static_cast<std::uint8_t>(store + 1)}});
      EXPECT_EQ(1, SetOther(machine, store, certificate));
      for (DWORD other = 0; other < 6; ++other) {
        EXPECT_EQ(machine == 0 && other == store, IsStored(0, other, certificate)) << other;
        EXPECT_EQ(machine != 0 && other == store, IsStored(1, other, certificate)) << other;
      }
      EXPECT_EQ(1, DelOther(machine, store, certificate));
      EXPECT_FALSE(IsStored(machine, store, certificate));
    }
  }
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(SystemStores, AnIndexAbove5IsRefusedInSilence) {
  const Octets certificate = MakeCertificate({});
  for (const DWORD store : {6u, 0x80000000u, 0xFFFFFFFFu}) {
    SetLastError(4711);
    const BOOL set = SetOther(0, store, certificate);
    const BOOL deleted = DelOther(0, store, certificate);
    const DWORD error = GetLastError();
    EXPECT_EQ(0, set);
    EXPECT_EQ(0, deleted);
    EXPECT_EQ(4711u, error);
  }
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(SystemStores, ASecondInstallationReplacesTheFirst) {
  const Octets certificate = MakeCertificate({.serial = {0x21}});
  EXPECT_EQ(1, SetOther(0, 4, certificate));
  EXPECT_EQ(1, SetOther(0, 4, certificate));
  EXPECT_THAT(Found(certificate), SizeIs(1));
  EXPECT_EQ(1, SetSelf(0, "one", 1, certificate));
  EXPECT_EQ(1, SetSelf(0, "two", 2, certificate));
  const auto found = Found(certificate);
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(L"two", found[0].container);
  EXPECT_EQ(2u, found[0].keySpec);
  EXPECT_EQ(1, DelOther(0, 4, certificate));
  EXPECT_THAT(Found(certificate), IsEmpty());
}

TEST_F(SystemStores, SelfTiesTheCertificateToItsContainerAsGiven) {
  struct Case {
    const char* oid;
    const wchar_t* provider;
    DWORD type;
  };
  const Case cases[] = {{"1.2.398.3.10.1.1.1.1", L"Zarvel CSP", 25},
                        {"1.2.643.2.2.19", L"Zarvel CSP", 25},
                        {"1.3.6.1.4.1.32473.1.5.8", L"Zarvel CSP", 25},
                        {"1.2.840.113549.1.1.1", L"Zarvel CSP RSA", 1},
                        {"1.2.840.10045.2.1", L"(null)", 0}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.oid);
    const Octets certificate = MakeCertificate({.serial = {0x31}, .publicKeyOid = test.oid});
    EXPECT_EQ(1, SetSelf(0, "file://key store\\7", 0xCAFE, certificate));
    const auto found = Found(certificate);
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_TRUE(found[0].hasProperty);
    EXPECT_EQ(L"file://key store\\7", found[0].container);
    EXPECT_EQ(test.provider, found[0].provider);
    EXPECT_EQ(test.type, found[0].providerType);
    EXPECT_EQ(0u, found[0].flags);
    EXPECT_EQ(0u, found[0].parameterCount);
    EXPECT_EQ(0xCAFEu, found[0].keySpec);
    EXPECT_EQ(1, DelOther(0, 4, certificate));
  }
}

TEST_F(SystemStores, SelfInstallsForTheMachineToo) {
  const Octets certificate = MakeCertificate({.serial = {0x32}});
  EXPECT_EQ(1, SetSelf(2, "c", 1, certificate));
  EXPECT_TRUE(IsStored(1, 4, certificate));
  EXPECT_FALSE(IsStored(0, 4, certificate));
  EXPECT_EQ(1, DelOther(1, 4, certificate));
}

TEST_F(SystemStores, AContainerNameThatDoesNotConvertFailsInSilence) {
  const Octets certificate = MakeCertificate({.serial = {0x33}});
  EXPECT_EQ(0, SetSelf(0, nullptr, 1, certificate));
  SetLastError(0);
  EXPECT_EQ(0, SetSelf(0, std::string(256, 'x').c_str(), 1, certificate));
  // The platform's word for a name that does not fit its buffer.
  EXPECT_EQ(122u, GetLastError());
  EXPECT_THAT(LogMessages(), IsEmpty());
  // The certificate has been installed by then, without the property.
  auto found = Found(certificate);
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_FALSE(found[0].hasProperty);
  EXPECT_EQ(1, SetSelf(0, std::string(255, 'x').c_str(), 1, certificate));
  found = Found(certificate);
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(std::wstring(255, L'x'), found[0].container);
  EXPECT_EQ(1, SetSelf(0, "", 1, certificate));
  EXPECT_EQ(1, DelOther(0, 4, certificate));
}

TEST_F(SystemStores, AProviderNameThatDoesNotConvertFailsInSilence) {
  static int conversions;
  conversions = 0;
  const ImportPatch patch(
      Module(), "KERNEL32.dll", "MultiByteToWideChar",
      +[](UINT page, DWORD flags, LPCCH text, int size, LPWSTR wide, int room) WINAPI -> int {
        EXPECT_EQ(0u, page);
        EXPECT_EQ(256, room);
        if (++conversions % 2 == 0) {
          SetLastError(0x5A6);
          return 0;
        }
        return MultiByteToWideChar(page, flags, text, size, wide, room);
      });
  const Octets certificate = MakeCertificate({.serial = {0x34}});
  SetLastError(0);
  EXPECT_EQ(0, SetSelf(0, "c", 1, certificate));
  EXPECT_EQ(0x5A6u, GetLastError());
  EXPECT_EQ(2, conversions);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_EQ(1, DelOther(0, 4, certificate));
}

TEST_F(SystemStores, DeleteRemovesEveryCertificateOfThatIssuerAndNumber) {
  const std::vector<Octets> same = {MakeCertificate({.serial = {0x41, 1}}),
                                    MakeCertificate({.serial = {0x41, 1}, .subject = "Other"}),
                                    MakeCertificate({.serial = {0x41, 1}, .keySize = 128})};
  const Octets otherNumber = MakeCertificate({.serial = {0x41, 2}});
  const Octets otherIssuer = MakeCertificate({.serial = {0x41, 1}, .issuer = "Issuez"});
  for (const Octets& certificate : {same[0], otherNumber, same[1], otherIssuer, same[2]}) {
    EXPECT_EQ(1, SetOther(0, 3, certificate));
  }
  // One that is not there itself finds them too.
  EXPECT_EQ(1, DelOther(0, 3, MakeCertificate({.serial = {0x41, 1}, .keySize = 32})));
  for (const Octets& certificate : same) {
    EXPECT_FALSE(IsStored(0, 3, certificate));
  }
  EXPECT_TRUE(IsStored(0, 3, otherNumber));
  EXPECT_TRUE(IsStored(0, 3, otherIssuer));
  EXPECT_EQ(1, DelOther(0, 3, otherNumber));
  EXPECT_EQ(1, DelOther(0, 3, otherIssuer));
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(SystemStores, DeleteOfWhatIsNotThereIsTrue) {
  EXPECT_EQ(1, DelOther(0, 1, MakeCertificate({.serial = {0x42}})));
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(SystemStores, ACertificateThatDoesNotDecodeIsLogged) {
  const Octets garbage = {0x30, 0x03, 0x02, 0x01, 0x05};
  EXPECT_EQ(0, SetOther(0, 4, garbage));
  EXPECT_EQ(0, SetSelf(0, "c", 1, garbage));
  EXPECT_EQ(0, DelOther(0, 4, garbage));
  const auto messages = LogMessages();
  ASSERT_THAT(messages, SizeIs(4));
  EXPECT_EQ(0u, messages[0].find("SetOtherCert : Error = 8009310"));
  EXPECT_EQ(0u, messages[1].find("SetSelfCert : Error = 8009310"));
  EXPECT_EQ(0u, messages[2].find("DelOtherCert : CertCreateCertificateContext error = 8009310"));
  EXPECT_EQ(0u, messages[3].find("SetOtherCert : Error = 8009310"));
  EXPECT_EQ('.', messages[2].back());
}

TEST_F(SystemStores, TheWholeCodeIsLogged) {
  const Octets garbage = {0x30, 0x03, 0x02, 0x01, 0x05};
  const ImportPatch add(
      Module(), "CRYPT32.dll", "CertAddEncodedCertificateToStore",
      +[](HCERTSTORE, DWORD, const BYTE*, DWORD, DWORD, PCCERT_CONTEXT*) WINAPI -> BOOL {
        SetLastError(0x8009310B);
        return FALSE;
      });
  const ImportPatch create(
      Module(), "CRYPT32.dll", "CertCreateCertificateContext",
      +[](DWORD encoding, const BYTE*, DWORD size) WINAPI -> PCCERT_CONTEXT {
        EXPECT_EQ(0x10001u, encoding);
        EXPECT_EQ(5u, size);
        SetLastError(0x80093102);
        return nullptr;
      });
  EXPECT_EQ(0, SetOther(0, 4, garbage));
  EXPECT_EQ(0, SetSelf(0, "c", 1, garbage));
  EXPECT_EQ(0, DelOther(0, 4, garbage));
  EXPECT_THAT(LogMessages(),
              ElementsAre("SetOtherCert : Error = 8009310b.", "SetSelfCert : Error = 8009310b.",
                          "DelOtherCert : CertCreateCertificateContext error = 80093102.",
                          "SetOtherCert : Error = 80093102."));
}

TEST_F(SystemStores, NoCertificateAtAllIsRefused) {
  EXPECT_EQ(0,
            Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("SetOtherCert")(0, 4, nullptr, 0));
  EXPECT_EQ(0,
            Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("DelOtherCert")(0, 4, nullptr, 0));
  EXPECT_EQ(0, Export<BOOL WINAPI(int, const char*, DWORD, const BYTE*, DWORD)>("SetSelfCert")(
                   0, "c", 1, nullptr, 0));
  EXPECT_THAT(LogMessages(), SizeIs(4));
}

TEST_F(SystemStores, WithoutALogFileFailuresAreSilent) {
  DeleteFileA(kLog);
  EXPECT_EQ(0, SetOther(0, 4, {0x30, 0x00}));
  EXPECT_EQ(0, SetSelf(0, "c", 1, {0x30, 0x00}));
  EXPECT_EQ(0, DelOther(0, 4, {0x30, 0x00}));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(kLog));
}

// Four processes write their lines at once; none is torn or lost.
ZAREXT_CHILD(LogFailures) {
  for (int call = 0; call < 25; ++call) {
    SetOther(0, 4, {0x30, 0x03, 0x02, 0x01, static_cast<std::uint8_t>(call)});
  }
  return 0;
}

TEST_F(SystemStores, FourProcessesShareTheLog) {
  std::vector<ChildProcess> children;
  for (int child = 0; child < 4; ++child) {
    children.emplace_back("LogFailures");
  }
  for (const ChildProcess& child : children) {
    EXPECT_EQ(0u, child.Wait(120000).value_or(255));
  }
  const auto messages = LogMessages();
  EXPECT_THAT(messages, SizeIs(100));
  for (const std::string& message : messages) {
    EXPECT_EQ(0u, message.find("SetOtherCert : Error = 8009310")) << message;
  }
}

}  // namespace
}  // namespace zarext::test
