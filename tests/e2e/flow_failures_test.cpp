// A registered module without a provider, in processes of their own: a binding stays until the
// process ends.
#include <cstdio>

#include "e2e/flow_setup.h"
#include "support/child_process.h"
#include "support/openssl_fixtures.h"
#include "support/scripted_provider.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

// Names the provider's file while it lives; the real one comes back after it.
class ProviderFile {
 public:
  explicit ProviderFile(const std::string& path) { Register(path); }
  ~ProviderFile() { Register(DevProviderPath()); }
  ProviderFile(const ProviderFile&) = delete;
  ProviderFile& operator=(const ProviderFile&) = delete;

 private:
  static void Register(const std::string& path) {
    RegisterProvider("Zarvel CSP", 25, path);
    RegisterProvider("Zarvel CSP RSA", 1, path);
  }
};

constexpr char kMissingFile[] = "c:\\missing\\cpzarvel.dll";

// Prints what is not as expected; the exit code of a child that calls it.
template <typename Value, typename Matcher>
int Check(const char* what, const Value& value, const Matcher& matcher) {
  testing::StringMatchResultListener listener;
  if (testing::ExplainMatchResult(matcher, value, &listener)) {
    return 0;
  }
  std::printf("%s: %s, %s\n", what, testing::PrintToString(value).c_str(), listener.str().c_str());
  return 1;
}

int OpenFails(TraceCapture& trace) {
  trace.Clear();
  const HCERTSTORE store = CertOpenStore(kProviderStore, 0, 0, 0, nullptr);
  const DWORD code = CodeOf(store != nullptr);
  return Check("open", code, DWORD{ERROR_MOD_NOT_FOUND}) +
         Check(
             "trace of the open", trace.Messages(),
             ElementsAre(StartsWith("EXT : ZarOpenStoreProv [lpszStoreProvider"),
                         "EXT : ZarOpenStoreProv : ERROR = 7e", "EXT : ZarOpenStoreProv : FINISH"));
}

ZAREXT_CHILD(OpensWithoutAProvider) {
  Module();
  TraceCapture trace;
  int wrong = OpenFails(trace);
  // The failure is no lasting one: the thread may try again, and succeeds once the file is there.
  wrong += OpenFails(trace);
  RegisterProvider("Zarvel CSP", 25, DevProviderPath());
  const StoreFixes fixes(Module());
  const HCERTSTORE store = CertOpenStore(kProviderStore, 0, 0, 0, nullptr);
  wrong += Check("open with the provider", CodeOf(store != nullptr), DWORD{0});
  CertCloseStore(store, 0);
  return wrong;
}

// The framework finds no provider for the signature and hands none to the module.
ZAREXT_CHILD(VerifiesWithoutAProvider) {
  Module();
  const auto certificate = CertificateContext(FromHex(openssl::kChainRootCertificate));
  TraceCapture trace;
  const DWORD code = CertificateSignatureCode(certificate.Get(), certificate.Get());
  return Check("code", code, DWORD{ERROR_INVALID_PARAMETER}) +
         Check("trace", trace.Messages(),
               ElementsAre("EXT : ZarImportPublicKeyInfoEx : hCryptProv = 0, aiKeyAlg = 201d, "
                           "dwFlags = 0.",
                           "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.643.2.2.19.",
                           "EXT : ZarImportPublicKeyInfoEx : PublicKey[66] = 4 40 58 3c fd  ...ab "
                           "90.",
                           "EXT : ZarImportPublicKeyInfoEx : CryptGetProvParam hProv=0, error = "
                           "57."));
}

using MissingProvider = FlowTest;

TEST_F(MissingProvider, TheStoreDoesNotOpenUntilItIsThere) {
  const ProviderFile missing(kMissingFile);
  EXPECT_EQ(0u, ChildProcess("OpensWithoutAProvider").Wait().value_or(255));
}

TEST_F(MissingProvider, CertificatesAreNotChecked) {
  const ProviderFile missing(kMissingFile);
  EXPECT_EQ(0u, ChildProcess("VerifiesWithoutAProvider").Wait().value_or(255));
}

}  // namespace
}  // namespace zarext::test
