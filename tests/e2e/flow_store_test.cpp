// From certificates in containers to a signed message: written through the provider store, found
// there again, used with the key that they point to. And what becomes of it where a container goes
// away on the way.
#include <functional>

#include "e2e/flow_setup.h"
#include "support/openssl_fixtures.h"
#include "support/platform.h"
#include "support/signed_message.h"

namespace zarext::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kNationalHash[] = "1.2.398.3.10.1.3.2";
constexpr auto kNoContainer = static_cast<DWORD>(NTE_BAD_KEYSET);
const std::string kWalk = "EXT : load_certs_from_CSP : ";
const std::string kListing = "EXT : load_certs_from_CSP_CACHE : ";
const std::string kWrite = "EXT : CertStoreProvWriteCertCallback ";

BOOL AddTo(const UniqueCertStore<0>& store, const UniqueCertContext& certificate) {
  return CertAddCertificateContextToStore(store.Get(), certificate.Get(), CERT_STORE_ADD_NEW,
                                          nullptr);
}

void DeleteContainer(const char* name) {
  HCRYPTPROV none = 0;
  Must(CryptAcquireContextA(&none, name, "Zarvel CSP", 25, CRYPT_DELETEKEYSET),
       "CryptAcquireContext");
}

// An authority, and two owners whose certificates are in their containers; the last listing is old.
class StoreFlow : public FlowTest {
 protected:
  StoreFlow() {
    const auto store = OpenStore();
    Must(AddTo(store, alices) && AddTo(store, bobs), "CertAddCertificateContextToStore");
    ModuleClock::Advance(100);
  }

  [[nodiscard]] UniqueCertContext Issue(const Person& owner, const char* name,
                                        std::uint8_t serial) const {
    return CertificateContext(
        IssueCertificate(authority.AsSigner(), name, owner.Subject(), serial));
  }

  Person authority{"authority", kMakersKey};
  Person alice{"alice", kNationalKey};
  Person bob{"bob", kMakersKey};
  const UniqueCertContext alices = Issue(alice, "Alice", 2);
  const UniqueCertContext bobs = Issue(bob, "Bob", 3);
  const std::string alicesSize = std::to_string(alices.Get()->cbCertEncoded);
  const std::string bobsSize = std::to_string(bobs.Get()->cbCertEncoded);
  const std::string alicesEntry =
      kListing + "dwKeySpec = 2 (2a4a), dwProvType = 19, size = " + alicesSize +
      ", szwContainer = profile://alice/?sn=175A02 (1.2.398.3.10.1.1.2.1.1).";
  const std::string bobsEntry =
      kListing + "dwKeySpec = 2 (aa3a), dwProvType = 19, size = " + bobsSize +
      ", szwContainer = profile://bob/?sn=175A03 (1.3.6.1.4.1.32473.1.5.8).";
  const Octets content = {'c', 'o', 'n', 't', 'e', 'n', 't'};
};

// What registration is for: the user's own store shows the certificates of the containers. Wine
// does not open physical stores; of Windows it is known from its documentation.
TEST_F(StoreFlow, TheUsersMyShowsThemWherePhysicalStoresAreOpened) {
  const UniqueCertStore<0> my(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0,
                    CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG, L"MY"));
  ASSERT_NE(nullptr, my.Get());
  EXPECT_EQ(!IsWine(), static_cast<bool>(Find(my, L"Alice")));
}

TEST_F(StoreFlow, AnOpenWalksTheContainersAndListsTheirCertificates) {
  TraceCapture trace;
  const auto store = OpenStore();
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(StartsWith("EXT : ZarOpenStoreProv [lpszStoreProvider = Zarvel Store Provider] "
                             "[hCryptProv = 0] [dwFlags = 0] [hCertStore = "),
                  kWalk + "URL = profile://alice (file : ).",
                  kWalk + "size=88 (" + alicesSize + ").", kWalk + "algID=2a4a (alice).",
                  kWalk + "URL = profile://authority (file : ).", kWalk + "size=88 (0).",
                  kWalk + "algID=aa3a (authority).", kWalk + "URL = profile://bob (file : ).",
                  kWalk + "size=88 (" + bobsSize + ").", kWalk + "algID=aa3a (bob).", alicesEntry,
                  bobsEntry, "EXT : ZarOpenStoreProv : FINISH"));
  const StoredCertificate found = Describe(Find(store, L"Alice").Get());
  EXPECT_EQ(Encoded(alices), found.encoded);
  EXPECT_EQ(L"profile://alice/?sn=175A02", found.container);
  EXPECT_EQ(L"Zarvel CSP", found.provider);
  EXPECT_EQ(25u, found.providerType);
  EXPECT_EQ(2u, found.keySpec);
  EXPECT_EQ(Encoded(bobs), Describe(Find(store, L"Bob").Get()).encoded);
  EXPECT_THAT(Content(store.Get()), SizeIs(2));
}

TEST_F(StoreFlow, ACertificateIsOfferedToEachKeyUntilOneTakesIt) {
  const Person carol("carol", kMakersKey);
  const auto carols = Issue(carol, "Carol", 4);
  const auto store = OpenStore();
  TraceCapture trace;
  EXPECT_TRUE(AddTo(store, carols));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(AllOf(StartsWith(kWrite + "[hStoreProv = "), EndsWith("[dwFlags = 1]")),
                  kWrite + "[Algorithm.pszObjId = 1.3.6.1.4.1.32473.1.5.8][s/n= 4 5a...]",
                  kWrite + "[URL = profile://alice]", kWrite + "[URL = profile://authority]",
                  kWrite + "[URL = profile://bob]", kWrite + "[URL = profile://carol]"));
  // It is in its container, not in any before it.
  ModuleClock::Advance(100);
  EXPECT_EQ(L"profile://carol/?sn=175A04", Describe(Find(OpenStore(), L"Carol").Get()).container);
  EXPECT_THAT(Content(OpenStore().Get()), SizeIs(3));
}

TEST_F(StoreFlow, ACertificateOfNoOnesKeyIsRefused) {
  const Person carol("carol", kMakersKey);
  const auto carols = Issue(carol, "Carol", 4);
  DeleteContainer("carol");
  const auto store = OpenStore();
  EXPECT_FALSE(AddTo(store, carols));
  ModuleClock::Advance(100);
  EXPECT_THAT(Content(OpenStore().Get()), SizeIs(2));
}

TEST_F(StoreFlow, TheFoundCertificateSignsAndItsMessageIsVerified) {
  const auto store = OpenStore();
  const auto signer = Find(store, L"Alice");
  ASSERT_TRUE(signer);
  Octets message = SignMessage(signer.Get(), kNationalHash, content);
  TraceCapture trace;
  Octets read;
  EXPECT_EQ(0u, VerifyMessage(message, &read));
  EXPECT_EQ(content, read);
  EXPECT_THAT(trace.Messages(),
              ElementsAre(AllOf(StartsWith("EXT : ZarImportPublicKeyInfoEx : hCryptProv = "),
                                EndsWith(", aiKeyAlg = 0, dwFlags = 0.")),
                          "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.398.3.10.1.1.2.1.1.",
                          StartsWith("EXT : ZarImportPublicKeyInfoEx : PublicKey[66] = 4 40 "),
                          StartsWith("EXT : ZarImportPublicKeyInfoEx : Data[64]=")));
  message.back() ^= 1;
  EXPECT_EQ(kBadSignature, VerifyMessage(message, &read));
}

// Runs `act` once, as soon as a line with `part` in it is traced.
class OnTrace {
 public:
  OnTrace(std::string part, std::function<void()> act)
      : handler_(AddVectoredExceptionHandler(1, &OnException)) {
    part_ = std::move(part);
    act_ = std::move(act);
  }
  ~OnTrace() { RemoveVectoredExceptionHandler(handler_); }
  OnTrace(const OnTrace&) = delete;
  OnTrace& operator=(const OnTrace&) = delete;

 private:
  static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
    constexpr DWORD kDebugPrintException = 0x40010006;
    const EXCEPTION_RECORD* record = exception->ExceptionRecord;
    if (record->ExceptionCode == kDebugPrintException && act_ &&
        std::string(reinterpret_cast<const char*>(record->ExceptionInformation[1])).find(part_) !=
            std::string::npos) {
      const auto act = std::exchange(act_, nullptr);
      act();
    }
    return EXCEPTION_CONTINUE_SEARCH;
  }

  static inline std::string part_;
  static inline std::function<void()> act_;
  void* handler_;
};

// The listing has named the container, and it goes away before it is opened.
TEST_F(StoreFlow, AContainerThatGoesAwayInTheMiddleOfTheWalkIsPassedOver) {
  TraceCapture trace;
  const OnTrace gone("URL = profile://alice ", [] { DeleteContainer("alice"); });
  const auto store = OpenStore();
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(StartsWith("EXT : ZarOpenStoreProv [lpszStoreProvider"),
                  kWalk + "URL = profile://alice (file : ).",
                  kWalk + "URL = profile://authority (file : ).", kWalk + "size=88 (0).",
                  kWalk + "algID=aa3a (authority).", kWalk + "URL = profile://bob (file : ).",
                  kWalk + "size=88 (" + bobsSize + ").", kWalk + "algID=aa3a (bob).", bobsEntry,
                  "EXT : ZarOpenStoreProv : FINISH"));
  EXPECT_FALSE(Find(store, L"Alice"));
  EXPECT_TRUE(Find(store, L"Bob"));
}

// For a minute the listing outlives the container, and the key is missed only
// where it is needed.
TEST_F(StoreFlow, AContainerThatGoesAwayAfterTheWalkStaysListedForAMinute) {
  { const auto store = OpenStore(); }
  DeleteContainer("alice");
  ModuleClock::Advance(60);
  TraceCapture trace;
  {
    const auto store = OpenStore();
    EXPECT_THAT(trace.Messages(),
                ElementsAre(StartsWith("EXT : ZarOpenStoreProv [lpszStoreProvider"), alicesEntry,
                            bobsEntry, "EXT : ZarOpenStoreProv : FINISH"));
    const auto signer = Find(store, L"Alice");
    ASSERT_TRUE(signer);
    const StoredCertificate described = Describe(signer.Get());
    Context context;
    EXPECT_EQ(kNoContainer,
              CodeOf(CryptAcquireContextW(context.Out(), described.container.c_str(),
                                          described.provider.c_str(), described.providerType, 0)));
    EXPECT_THROW(SignMessage(signer.Get(), kNationalHash, content), CallFailed);
  }
  ModuleClock::Advance(1);
  trace.Clear();
  EXPECT_FALSE(Find(OpenStore(), L"Alice"));
  EXPECT_THAT(trace.Messages(), Contains(kWalk + "URL = profile://bob (file : )."));
  EXPECT_THAT(trace.Messages(), Not(Contains(alicesEntry)));
}

// A key that no provider of ours has: nothing is walked for it.
TEST_F(StoreFlow, ACertificateOfAForeignAlgorithmIsRefused) {
  const auto foreign = CertificateContext(FromHex(openssl::kGost2012TcACertificate));
  const auto store = OpenStore();
  TraceCapture trace;
  EXPECT_FALSE(AddTo(store, foreign));
  EXPECT_THAT(trace.Messages(),
              ElementsAre(StartsWith(kWrite + "[hStoreProv = "),
                          kWrite + "[Algorithm.pszObjId = 1.2.643.7.1.1.1.1][s/n= 3d 2c...]"));
  EXPECT_THAT(Content(store.Get()), SizeIs(2));
  // Nor is the module asked to check it.
  trace.Clear();
  EXPECT_NE(0u, CertificateSignatureCode(foreign.Get(), foreign.Get()));
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

}  // namespace
}  // namespace zarext::test
