// What the framework still finds after regsvr32 /u, seen by a process that starts then.
#include <stdexcept>

#include "contract/provider_fixture.h"
#include "contract/store_fixture.h"
#include "support/issued_certificate.h"
#include "support/openssl_fixtures.h"
#include "support/prepared_process.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;

void RegisterAndRemove() {
  RegisterPatchedModule();
  if (Regsvr32("/u " + PatchedModule()) != 0) {
    throw std::runtime_error("regsvr32 failed");
  }
}
const PreparedProcess prepared(&RegisterAndRemove);

class Unregistered : public ProviderTest {
 protected:
  Unregistered() { Module(); }
};

TEST_F(Unregistered, TheStoreCannotBeOpened) {
  TraceCapture trace;
  EXPECT_EQ(nullptr, CertOpenStore(kProviderStore, 0, 0, 0, nullptr));
  EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(Unregistered, OpensslsGostCertificatesAreNotChecked) {
  const auto certificate = CertificateContext(FromHex(openssl::kGost2001ACertificate));
  TraceCapture trace;
  EXPECT_EQ(0x80090008u, CertificateSignatureCode(certificate.Get(), certificate.Get()));
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

// The code that the framework gives for the import of a public key of this form.
DWORD ImportCode(const Context& context, const SubjectKey& key) {
  CERT_PUBLIC_KEY_INFO info = key.Info();
  Key imported;
  return CodeOf(CryptImportPublicKeyInfo(context.Get(), X509_ASN_ENCODING, &info, imported.Out()));
}

// Four national keys stay bound, as after every removal.
TEST_F(Unregistered, NationalKeysAreStillImported) {
  const Context context = NewContainer("national");
  const SubjectKey key = SubjectKey::National("1.2.398.3.10.1.1.2.1.1", Generate(context, 0x2A4A));
  TraceCapture trace;
  EXPECT_EQ(0u, ImportCode(context, key));
  EXPECT_THAT(trace.Messages(), testing::SizeIs(4));
}

TEST_F(Unregistered, MakersKeysAreNot) {
  const Context context = NewContainer("maker");
  const SubjectKey key = SubjectKey::Makers("1.3.6.1.4.1.32473.1.5.8", Generate(context, 0xAA3A));
  TraceCapture trace;
  EXPECT_NE(0u, ImportCode(context, key));
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

}  // namespace
}  // namespace zarext::test
