// The exports that maintain the system stores, where the platform fails as it does not by itself.
#include "contract/store_system_fixture.h"
#include "support/event_log.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(SystemStores, AStoreThatDoesNotOpenIsLogged) {
  const RefusedSystemStore refused(0x20000, L"MY", 0x5A5);
  const Octets certificate = MakeCertificate({});
  EXPECT_EQ(0, SetSelf(1, "c", 1, certificate));
  EXPECT_EQ(0, SetOther(1, 4, certificate));
  EXPECT_EQ(0, DelOther(1, 4, certificate));
  EXPECT_THAT(
      LogMessages(),
      ElementsAre("SetSelfCert : Error = 5a5.", "SetOtherCert : Error = 5a5.",
                  "DelOtherCert : CertOpenStore error = 5a5.", "SetOtherCert : Error = 5a5."));
}

std::vector<DWORD> closeFlags;
BOOL WINAPI RecordClose(HCERTSTORE store, DWORD flags) {
  closeFlags.push_back(flags);
  return CertCloseStore(store, flags);
}

TEST_F(SystemStores, StoresAreClosedWithACheckOnEveryPath) {
  const ImportPatch patch(Module(), "CRYPT32.dll", "CertCloseStore", &RecordClose);
  closeFlags.clear();
  const Octets certificate = MakeCertificate({.serial = {0x51}});
  SetOther(0, 5, certificate);
  SetOther(0, 5, {1});
  DelOther(0, 5, certificate);
  DelOther(0, 5, {1});
  SetSelf(0, "c", 1, {1});
  SetSelf(0, nullptr, 1, certificate);
  EXPECT_THAT(closeFlags, ElementsAre(2u, 2u, 2u, 2u, 2u, 2u));
  EXPECT_EQ(1, DelOther(0, 4, certificate));
}

TEST_F(SystemStores, SelfFreesTheCertificateBeforeItClosesTheStore) {
  const RecordedImport<"CertFreeCertificateContext", decltype(CertFreeCertificateContext)> free(
      Module(), "CRYPT32.dll");
  const RecordedImport<"CertCloseStore", decltype(CertCloseStore)> close(
      Module(), "CRYPT32.dll", [](HCERTSTORE, DWORD flags) { return std::to_string(flags); });
  const Octets certificate = MakeCertificate({.serial = {0x55}});
  for (const char* const container : {"c", static_cast<const char*>(nullptr)}) {
    const EventView events(EventKind::kPlatform);
    SetSelf(0, container, 1, certificate);
    EXPECT_THAT(events.Texts(), ElementsAre("CertFreeCertificateContext()", "CertCloseStore(2)"));
  }
  EXPECT_EQ(1, DelOther(0, 4, certificate));
}

std::vector<DWORD> dispositions;
BOOL WINAPI AddWithoutContext(HCERTSTORE, DWORD encoding, const BYTE*, DWORD, DWORD disposition,
                              PCCERT_CONTEXT* context) {
  EXPECT_EQ(0x10001u, encoding);
  dispositions.push_back(disposition);
  EXPECT_NE(nullptr, context);
  return TRUE;
}

TEST_F(SystemStores, SelfWithoutAContextFailsInSilence) {
  const ImportPatch patch(Module(), "CRYPT32.dll", "CertAddEncodedCertificateToStore",
                          &AddWithoutContext);
  dispositions.clear();
  EXPECT_EQ(0, SetSelf(0, "c", 1, MakeCertificate({})));
  EXPECT_THAT(dispositions, ElementsAre(3u));
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(SystemStores, OtherReplacesWhatIsThere) {
  static int additions;
  additions = 0;
  const ImportPatch patch(
      Module(), "CRYPT32.dll", "CertAddEncodedCertificateToStore",
      +[](HCERTSTORE, DWORD encoding, const BYTE*, DWORD, DWORD disposition,
          PCCERT_CONTEXT* context) WINAPI -> BOOL {
        EXPECT_EQ(0x10001u, encoding);
        EXPECT_EQ(3u, disposition);
        EXPECT_EQ(nullptr, context);
        ++additions;
        return TRUE;
      });
  EXPECT_EQ(1, SetOther(0, 4, MakeCertificate({})));
  EXPECT_EQ(1, additions);
}

TEST_F(SystemStores, APropertyThatIsRefusedIsLogged) {
  const ImportPatch patch(
      Module(), "CRYPT32.dll", "CertSetCertificateContextProperty",
      +[](PCCERT_CONTEXT, DWORD property, DWORD flags, const void* data) WINAPI -> BOOL {
        EXPECT_EQ(2u, property);
        EXPECT_EQ(0u, flags);
        const auto& info = *static_cast<const CRYPT_KEY_PROV_INFO*>(data);
        EXPECT_EQ(0u, info.dwFlags);
        EXPECT_EQ(0u, info.cProvParam);
        EXPECT_EQ(nullptr, info.rgProvParam);
        SetLastError(0xBAD);
        return FALSE;
      });
  const Octets certificate = MakeCertificate({.serial = {0x52}});
  EXPECT_EQ(0, SetSelf(0, "c", 1, certificate));
  EXPECT_THAT(LogMessages(), ElementsAre("SetSelfCert : Error = bad."));
  EXPECT_EQ(1, DelOther(0, 4, certificate));
}

TEST_F(SystemStores, ADeletionThatFailsIsLoggedAndTheWalkGoesOn) {
  const Octets one = MakeCertificate({.serial = {0x53}});
  const Octets other = MakeCertificate({.serial = {0x53}, .subject = "Other"});
  EXPECT_EQ(1, SetOther(0, 5, one));
  EXPECT_EQ(1, SetOther(0, 5, other));
  {
    const ImportPatch patch(
        Module(), "CRYPT32.dll", "CertDeleteCertificateFromStore",
        +[](PCCERT_CONTEXT context) WINAPI -> BOOL {
          CertFreeCertificateContext(context);
          SetLastError(0xD1);
          return FALSE;
        });
    EXPECT_EQ(1, DelOther(0, 5, one));
    EXPECT_THAT(LogMessages(),
                ElementsAre("DelOtherCert : CertDeleteCertificateFromStore error = d1.",
                            "DelOtherCert : CertDeleteCertificateFromStore error = d1."));
  }
  EXPECT_TRUE(IsStored(0, 5, one));
  const ImportPatch patch(
      Module(), "CRYPT32.dll", "CertDuplicateCertificateContext",
      +[](PCCERT_CONTEXT) WINAPI -> PCCERT_CONTEXT {
        SetLastError(0xD2);
        return nullptr;
      });
  EXPECT_EQ(1, DelOther(0, 5, one));
  const auto messages = LogMessages();
  ASSERT_THAT(messages, SizeIs(4));
  EXPECT_EQ("DelOtherCert : CertDuplicateCertificateContext error = d2.", messages[2]);
  EXPECT_EQ("DelOtherCert : CertDuplicateCertificateContext error = d2.", messages[3]);
}

TEST_F(SystemStores, DeleteComparesAsX509) {
  const Octets certificate = MakeCertificate({.serial = {0x54}});
  EXPECT_EQ(1, SetOther(0, 5, certificate));
  const ImportPatch patch(
      Module(), "CRYPT32.dll", "CertCompareCertificate",
      +[](DWORD encoding, PCERT_INFO left, PCERT_INFO right) WINAPI -> BOOL {
        EXPECT_EQ(1u, encoding);
        return CertCompareCertificate(encoding, left, right);
      });
  EXPECT_EQ(1, DelOther(0, 5, certificate));
  EXPECT_FALSE(IsStored(0, 5, certificate));
}

}  // namespace
}  // namespace zarext::test
