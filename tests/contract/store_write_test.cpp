// The write callback: where an added certificate goes.
#include <chrono>
#include <future>

#include "store_fixture.h"
#include "support/guarded_memory.h"
#include "support/recorded_import.h"
#include "support/store_recording.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using WriteFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD);

std::string LowHex(const void* pointer, bool upper) {
  char text[20] = {};
  snprintf(text, sizeof text, upper ? "%X" : "%x",
           static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pointer)));
  return text;
}

class StoreWrite : public StoreTest {
 public:
  StoreWrite() {
    EXPECT_EQ(1, Open(store));
    provider.ClearCalls();
    trace.Clear();
  }
  BOOL Write(const Octets& certificate) {
    const UniqueCertContext context = MakeContext(certificate);
    EXPECT_TRUE(context);
    SetLastError(4711);
    const BOOL written = Callback<WriteFunction>(2)(store.Get(), context.Get(), 1);
    lastError = GetLastError();
    return written;
  }
  // Three containers with a key each, without certificates; chains are empty.
  void AddThree() {
    AddContainer("c1", {KeyWith(0x11, {}, {})});
    AddContainer("c2", {KeyWith(0x21, {}, {})});
    AddContainer("c3", {KeyWith(0x31, {}, {})});
  }
  int Opened(const std::string& url) const {
    return provider.CountCalls("AcquireContext(" + url + ",");
  }
  MemoryStore store;
  DWORD lastError = 0;  // behind the last Write, which starts with 4711
  const Octets leaf = MakeCertificate({.serial = {0x12, 0x34, 0x56}});
  const Octets root = MakeCertificate({.serial = {0x77}, .issuer = "Root", .subject = "Root"});
};

TEST_F(StoreWrite, TracesTheCertificateAndCallsInThisOrder) {
  AddContainer("alpha", {KeyWith(0x11, {}, {})});
  EXPECT_EQ(1, Write(leaf));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : CertStoreProvWriteCertCallback [hStoreProv = " +
                              LowHex(store.Get(), false) + "] [dwFlags = 1]",
                          "EXT : CertStoreProvWriteCertCallback [Algorithm.pszObjId = "
                          "1.2.398.3.10.1.1.1.1][s/n= 56 34...]",
                          "EXT : CertStoreProvWriteCertCallback [URL = profile://alpha]"));
  EXPECT_THAT(
      provider.Calls(),
      ElementsAre("AcquireContext(null, f0000000) = 2", "GetProvParam(2, 57, 1024, 1) = alpha",
                  "GetProvParam(2, 64, 1456, 0) = profile://alpha",
                  "AcquireContext(profile://alpha, 40) = 3", "GetProvParam(3, 45, 88, 1)",
                  "GetKeyParam(3, 11, 26, 32784, 0) ! 80090011", "SetKeyParam(3, 11, 26, 0)",
                  "ReleaseContext(3, 0)", "ReleaseContext(2, 0)"));
  EXPECT_THAT(provider.written, ElementsAre(leaf));
}

TEST_F(StoreWrite, TracesAContainerBeforeItAsksForItsProfile) {
  AddContainer("alpha", {});
  AddContainer("beta", {});
  events.Clear();
  EXPECT_EQ(0, Write(leaf));
  EXPECT_THAT(
      LinesOf(events.Lines(), {"trace: EXT : CertStoreProvWriteCertCallback [URL", "provider: "}),
      ElementsAre("provider: AcquireContext(null, f0000000) = 2",
                  "provider: GetProvParam(2, 57, 1024, 1) = alpha",
                  "trace: EXT : CertStoreProvWriteCertCallback [URL = profile://alpha]",
                  "provider: GetProvParam(2, 64, 1456, 0) = profile://alpha",
                  "provider: AcquireContext(profile://alpha, 40) = 3",
                  "provider: GetProvParam(3, 45, 88, 1) ! 103", "provider: ReleaseContext(3, 0)",
                  "provider: GetProvParam(2, 57, 1024, 0) = beta",
                  "trace: EXT : CertStoreProvWriteCertCallback [URL = profile://beta]",
                  "provider: GetProvParam(2, 64, 1456, 0) = profile://beta",
                  "provider: AcquireContext(profile://beta, 40) = 4",
                  "provider: GetProvParam(4, 45, 88, 1) ! 103", "provider: ReleaseContext(4, 0)",
                  "provider: GetProvParam(2, 57, 1024, 0) ! 103",
                  "provider: ReleaseContext(2, 0)"));
}

TEST_F(StoreWrite, WritesWhileAnotherThreadHasTheSectionAndAnotherProcessTheMutex) {
  AddContainer("alpha", {KeyWith(0x11, {}, {})});
  const StoreRecording recording(Module());
  SectionKeeper section(StoreRecording::OpenSection());
  MutexKeeper mutex;
  std::future<BOOL> write = std::async(std::launch::async, [this] { return Write(leaf); });
  const bool ended = write.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
  section.Leave();
  mutex.Release();
  EXPECT_TRUE(ended);
  EXPECT_EQ(1, write.get());
  EXPECT_THAT(LinesOf(events.Lines(), {"platform: "}), IsEmpty());
}

TEST_F(StoreWrite, ShowsMissingSerialOctetsAsZero) {
  EXPECT_EQ(0, Write(root));
  EXPECT_THAT(trace.Messages(), Contains(HasSubstr("[s/n= 77 0...]")));
}

TEST_F(StoreWrite, WithoutContextStoreOrInformationDoesNothing) {
  auto* const write = Callback<WriteFunction>(2);
  const UniqueCertContext context = MakeContext(leaf);
  CERT_CONTEXT empty = {};
  SetLastError(4711);
  EXPECT_EQ(0, write(store.Get(), nullptr, 0xAB));
  EXPECT_EQ(0, write(nullptr, context.Get(), 0));
  EXPECT_EQ(0, write(store.Get(), &empty, 0));
  EXPECT_EQ(4711u, GetLastError());
  EXPECT_THAT(trace.Messages(), SizeIs(3));
  EXPECT_EQ("EXT : CertStoreProvWriteCertCallback [hStoreProv = " + LowHex(store.Get(), false) +
                "] [dwFlags = AB]",
            trace.Messages()[0]);
  EXPECT_EQ("EXT : CertStoreProvWriteCertCallback [hStoreProv = 0] [dwFlags = 0]",
            trace.Messages()[1]);
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(StoreWrite, ServesTheFamiliesAndRsaOnly) {
  struct Case {
    const char* oid;
    bool isServed;
  };
  const Case cases[] = {
      {"1.2.398.3.10.1.1.1.1", true}, {"1.3.6.1.4.1.32473.1.5.8", true},
      {"1.2.643.2.2.19", true},       {"1.2.840.113549.1.1.1", true},
      {"1.2.840.10045.2.1", false},   {"1.2.643.7.1.1.1.1", false},
      {"1.2.840.113549.1.1", false},
  };
  AddThree();
  provider.keepsWritten = false;
  for (const Case& test : cases) {
    provider.ClearCalls();
    EXPECT_EQ(test.isServed ? 1 : 0, Write(MakeCertificate({.publicKeyOid = test.oid})))
        << test.oid;
    if (!test.isServed) {
      EXPECT_THAT(provider.Calls(), IsEmpty()) << test.oid;
      EXPECT_EQ(4711u, lastError);
    }
  }
}

TEST_F(StoreWrite, ACertificateWithoutAKeyAlgorithmIsNotServed) {
  const UniqueCertContext context = MakeContext(leaf);
  CERT_INFO information = *context.Get()->pCertInfo;
  information.SubjectPublicKeyInfo.Algorithm.pszObjId = nullptr;
  information.SerialNumber = {};
  CERT_CONTEXT altered = *context.Get();
  altered.pCertInfo = &information;
  EXPECT_EQ(0, Callback<WriteFunction>(2)(store.Get(), &altered, 0));
  EXPECT_EQ("EXT : CertStoreProvWriteCertCallback [Algorithm.pszObjId = (null)][s/n= 0 0...]",
            trace.Messages()[1]);
}

TEST_F(StoreWrite, WithoutAVerifyContextFails) {
  AddThree();
  provider.FailCall("AcquireContext", 1, 0x80090016);
  EXPECT_EQ(0, Write(leaf));
  EXPECT_THAT(provider.Calls(), SizeIs(1));
}

TEST_F(StoreWrite, AContextWhoseHandleIs0IsUsedAndReleased) {
  AddContainer("c", {KeyWith(0x11, {}, {})});
  // Of the verify context, and of the container's.
  for (const HCRYPTPROV first : {HCRYPTPROV{0}, ~HCRYPTPROV{0}}) {
    SCOPED_TRACE(first);
    provider.containers[0].keys[0].ownCertificate.clear();
    provider.nextContext = first;
    provider.ClearCalls();
    EXPECT_EQ(1, Write(leaf));
    EXPECT_EQ(1, provider.CountCalls("ReleaseContext(" + std::to_string(first) + ", 0)"));
    EXPECT_EQ(1, provider.CountCalls("ReleaseContext(" + std::to_string(first + 1) + ", 0)"));
  }
}

TEST_F(StoreWrite, WhatARefusedContextLeavesBehindIsNotReleased) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.leavesBehind = 0x77;
  provider.FailCall("AcquireContext", 1, 0x80090016);
  provider.FailCall("AcquireContext", 3, 0x80090016);
  EXPECT_EQ(0, Write(leaf));
  EXPECT_THAT(provider.Calls(), ElementsAre("AcquireContext(null, f0000000) ! 80090016"));
  provider.ClearCalls();
  EXPECT_EQ(0, Write(leaf));
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 2", "GetProvParam(2, 57, 1024, 1) = c1",
                          "GetProvParam(2, 64, 1456, 0) = profile://c1",
                          "AcquireContext(profile://c1, 40) ! 80090016",
                          "GetProvParam(2, 57, 1024, 0) ! 103", "ReleaseContext(2, 0)"));
}

TEST_F(StoreWrite, WithoutContainersFails) { EXPECT_EQ(0, Write(leaf)); }

TEST_F(StoreWrite, GoesOnWithTheNextContainerWhereOneFails) {
  struct Case {
    const char* call;
    int count;
  };
  for (const Case& test : {Case{"GetProvParam 64", 1}, Case{"AcquireContext", 2},
                           Case{"GetProvParam 45", 1}, Case{"SetKeyParam", 1}}) {
    ContainerProvider fresh;
    UseScript(&fresh);
    fresh.containers = {{"c1", "file", "", "", {KeyWith(0x11, {}, {})}},
                        {"c2", "file", "", "", {KeyWith(0x21, {}, {})}}};
    fresh.FailCall(test.call, test.count, 5);
    EXPECT_EQ(1, Write(leaf)) << test.call;
    EXPECT_EQ(leaf, fresh.containers[1].keys[0].ownCertificate) << test.call;
    EXPECT_THAT(fresh.containers[0].keys[0].ownCertificate, IsEmpty());
    EXPECT_EQ(0u, fresh.OpenContexts());
    UseScript(&provider);
  }
}

TEST_F(StoreWrite, PassesNamesAndProfilesOverThatDoNotEnd) {
  AddContainer(std::string(1024, 'x'), {KeyWith(0x11, {}, {})});
  // Its address has no room in the profile record: 10 + 502 characters and the terminator.
  AddContainer(std::string(502, 'y'), {KeyWith(0x12, {}, {})});
  AddContainer("bad", {KeyWith(0x13, {}, {})});
  AddContainer(std::string(501, 'z'), {KeyWith(0x14, {}, {})});
  int profiles = 0;
  provider.alterProfile = [&](BYTE* record) {
    if (++profiles == 1) std::memset(record + 128, 'k', 192);
  };
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam(3, 14, 26, 0)"));
  // The name that is only too long for the record is still traced.
  EXPECT_THAT(trace.Messages(), Contains("EXT : CertStoreProvWriteCertCallback [URL = profile://" +
                                         std::string(502, 'y') + "]"));
  EXPECT_THAT(trace.Messages(), SizeIs(5));
}

TEST_F(StoreWrite, OfTheListedKindsOnlyAFileIsWrittenUnderItsOwnAddress) {
  struct Case {
    const char* kind;
    const char* secondText;
    bool isOpened;
  };
  const Case cases[] = {{"file", "", true},     {"file", "x", true},   {"kztoken", "", false},
                        {"kztoken", "x", true}, {"idcard", "", false}, {"javatoken", "", false},
                        {"other", "x", true},   {"other", "", false},  {"FILE", "", false}};
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.kind) + "|" + test.secondText);
    provider.containers.clear();
    AddContainer("c", {KeyWith(0x11, {}, {})});
    provider.containers[0].kind = test.kind;
    provider.containers[0].secondText = test.secondText;
    provider.ClearCalls();
    EXPECT_EQ(test.isOpened ? 1 : 0, Write(leaf));
    EXPECT_EQ(test.isOpened ? 1 : 0, Opened("profile://c"));
  }
}

// Certificates that others issued.

TEST_F(StoreWrite, AnEndCertificateGoesToTheFirstKeyWithoutOne) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  provider.containers[0].keys[0].ownCertificate = MakeCertificate({.serial = {1}});
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(leaf, provider.containers[0].keys[1].ownCertificate);
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  // The whole walk stops.
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(2, 57"));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(3, 45"));
}

TEST_F(StoreWrite, AKeyWithAnEmptyCertificateHasNone) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].ownCertificate = {1};
  provider.alterKeyParam = [](BYTE*, DWORD* size) { *size = 0; };
  EXPECT_EQ(1, Write(leaf));
  EXPECT_THAT(provider.written, ElementsAre(leaf));
}

TEST_F(StoreWrite, AKeyThatRefusesIsFollowedByTheNext) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(leaf, provider.containers[0].keys[1].ownCertificate);
}

TEST_F(StoreWrite, TheSameEndCertificateIsFoundAndNotWrittenAgain) {
  AddThree();
  EXPECT_EQ(1, Write(leaf));
  provider.ClearCalls();
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(4, 57"));
}

TEST_F(StoreWrite, AKeyWhoseCertificateDiffersInOneOctetIsPassedOver) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  for (Octets other : {leaf, leaf, leaf}) {
    static int round = 0;
    if (round == 0) other.back() ^= 1;
    if (round == 1) other.pop_back();
    if (round == 2) other.push_back(0);
    ++round;
    provider.containers[0].keys[0].ownCertificate = other;
    EXPECT_EQ(0, Write(leaf));
  }
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, AKeyWhoseCertificateIsLongerThanItsBufferIsLeftAlone) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].ownCertificate = leaf;
  provider.alterKeyParam = [](BYTE*, DWORD* size) { *size = 0xFFFFFFFF; };
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(0, Write(root));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, ARecordWithoutAHandleEndsTheKeysOfItsContainer) {
  AddContainer("c1", {KeyWith(0, {}, {}), KeyWith(0x12, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  EXPECT_EQ(1, Write(leaf));
  EXPECT_THAT(provider.containers[0].keys[1].ownCertificate, IsEmpty());
  EXPECT_EQ(leaf, provider.containers[1].keys[0].ownCertificate);
}

// Self-signed certificates.

TEST_F(StoreWrite, ARootGoesIntoTheChainOfOneKeyOfEveryContainer) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  EXPECT_EQ(1, Write(root));
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 2",           //
                          "GetProvParam(2, 57, 1024, 1) = c1",            //
                          "GetProvParam(2, 64, 1456, 0) = profile://c1",  //
                          "AcquireContext(profile://c1, 40) = 3",         //
                          "GetProvParam(3, 45, 88, 1)",                   //
                          "GetKeyParam(3, 11, 69, 32784, 0)",             //
                          "SetKeyParam(3, 11, 68, 0)",                    //
                          "ReleaseContext(3, 0)",                         //
                          "GetProvParam(2, 57, 1024, 0) = c2",            //
                          "GetProvParam(2, 64, 1456, 0) = profile://c2",  //
                          "AcquireContext(profile://c2, 40) = 4",         //
                          "GetProvParam(4, 45, 88, 1)",                   //
                          "GetKeyParam(4, 21, 69, 32784, 0)",             //
                          "SetKeyParam(4, 21, 68, 0)",                    //
                          "ReleaseContext(4, 0)",                         //
                          "GetProvParam(2, 57, 1024, 0) ! 103",           //
                          "ReleaseContext(2, 0)"));
  EXPECT_THAT(provider.written, ElementsAre(root, root));
}

TEST_F(StoreWrite, ARootThatTheChainHoldsIsNotWrittenAndTheNextKeyIsTried) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  // Another certificate of the same holder is enough.
  const Octets same =
      MakeCertificate({.serial = {0x78, 0x79}, .issuer = "Root", .subject = "Root"});
  provider.containers[0].keys[0].chain = MakeChain({leaf, same});
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam(3, 12, 68, 0)"));
  const std::string size = std::to_string(provider.containers[0].keys[0].chain.size());
  const std::string start =
      "EXT : CertStoreProvWriteCertCallback : CertEnumCertificatesInStore : size = " + size +
      ", oid = 1.2.398.3.10.1.1.1.2, [s/n= ";
  EXPECT_THAT(trace.Messages(), Contains(start + "79 78...]"));
  EXPECT_THAT(trace.Messages(), Contains(start + "56 34...]"));
}

TEST_F(StoreWrite, ReadsAChainAsX509AndPkcs7AndClosesItByForce) {
  using Open = RecordedImport<"CryptGetMessageCertificates", decltype(CryptGetMessageCertificates)>;
  const Open open(Module(), "CRYPT32.dll",
                  [](DWORD encoding, HCRYPTPROV_LEGACY context, DWORD flags, const BYTE*, DWORD) {
                    EXPECT_EQ(0x10001u, encoding);
                    EXPECT_EQ(0u, context);
                    EXPECT_EQ(0u, flags);
                    return std::string();
                  });
  const RecordedImport<"CertCloseStore", decltype(CertCloseStore)> close(
      Module(), "CRYPT32.dll", [](HCERTSTORE closed, DWORD flags) {
        EXPECT_EQ(Open::LastResult(), closed);
        return std::to_string(flags);
      });
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].chain = MakeChain({root});
  EXPECT_EQ(1, Write(root));
  // Open while the certificates are traced, and no longer.
  auto lines = LinesOf(events.Lines(), {"platform: ",
                                        "trace: EXT : CertStoreProvWriteCertCallback : "
                                        "CertEnum"});
  for (std::string& line : lines) {
    line = line.substr(0, line.find(" : size"));
  }
  EXPECT_THAT(lines, ElementsAre("platform: CryptGetMessageCertificates()",
                                 "trace: EXT : CertStoreProvWriteCertCallback : "
                                 "CertEnumCertificatesInStore",
                                 "platform: CertCloseStore(1)"));
}

TEST_F(StoreWrite, ARootThatEveryChainHoldsIsTrue) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].chain = MakeChain({root});
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(3, 45"));
}

TEST_F(StoreWrite, OtherCertificatesInTheChainDoNotCount) {
  const std::vector<Octets> others = {
      MakeCertificate({.issuer = "Root", .subject = "Subj"}),        // the issuer's name only
      MakeCertificate({.issuer = "Issu", .subject = "Root"}),        // the subject's name only
      MakeCertificate({.issuer = "Rooz", .subject = "Rooz"}),        // another root, same length
      MakeCertificate({.issuer = "R", .subject = "R"}),              // a shorter one
      MakeCertificate({.issuer = "Root CA", .subject = "Root CA"}),  // a longer one
      MakeCertificate({.issuer = "Root C", .subject = "Root"}),
  };
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  for (const Octets& other : others) {
    provider.containers[0].keys[0].chain = MakeChain({other});
    provider.ClearCalls();
    EXPECT_EQ(1, Write(root));
    EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  }
}

TEST_F(StoreWrite, ARootIsOfferedWhereTheChainCannotBeRead) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].hasChain = false;
  EXPECT_EQ(1, Write(root));
  provider.containers[0].keys[0].hasChain = true;
  provider.containers[0].keys[0].chain = {0x04, 0x01, 0x00};
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(2, provider.CountCalls("SetKeyParam("));
  EXPECT_THAT(trace.Messages(), Not(Contains(HasSubstr("CertEnumCertificatesInStore"))));
}

TEST_F(StoreWrite, AKeyThatRefusesARootIsFollowedByTheNext) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(2, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(0, provider.CountCalls("GetKeyParam(3, 13"));
}

TEST_F(StoreWrite, ARootThatOneKeyHasIsTrueWhateverALaterOneSays) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {}), KeyWith(0x22, {}, {})});
  // Taken in the first container, refused by both keys of the second.
  provider.FailCall("SetKeyParam", 2, 5);
  provider.FailCall("SetKeyParam", 3, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(3, provider.CountCalls("SetKeyParam("));
  // Held by the first key, refused by the next one of the same container.
  provider.containers.erase(provider.containers.begin());
  provider.containers[0].keys[0].chain = MakeChain({root});
  provider.FailCall("SetKeyParam", 4, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(4, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, ARootThatNobodyTakesIsFalse) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(0, Write(root));
}

TEST_F(StoreWrite, IssuerAndSubjectOfDifferentLengthsAreNotSelfSigned) {
  AddThree();
  EXPECT_EQ(1, Write(MakeCertificate({.issuer = "Root", .subject = "Root 2"})));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam(3, 11, 26"));
}

// Thrown failures.

TEST_F(StoreWrite, AThrownCodeIsTheLastErrorAndContextsAreReleased) {
  AddThree();
  provider.onCall = [](const std::string& call) {
    if (call.rfind("GetKeyParam", 0) == 0) throw static_cast<unsigned long>(0x4321);
  };
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(0x4321u, lastError);
  EXPECT_EQ(2, provider.CountCalls("ReleaseContext"));
}

TEST_F(StoreWrite, AnythingElseThrownLeavesTheLastErrorAlone) {
  AddThree();
  provider.onCall = [](const std::string& call) {
    if (call.rfind("GetKeyParam", 0) == 0) {
      throw 5;
    }
    SetLastError(0x5EED);
  };
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(0x5EEDu, lastError);
  EXPECT_EQ(2, provider.CountCalls("ReleaseContext"));
}

TEST_F(StoreWrite, ReleasesEverythingWhicheverCallFails) {
  int releases = 0;
  for (int failing = 1;; ++failing) {
    ContainerProvider fresh;
    UseScript(&fresh);
    fresh.containers = {{"c1", "file", "", "", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {})}},
                        {"c2", "file", "", "", {KeyWith(0x21, {}, {})}}};
    int calls = 0;
    std::string thrown;
    fresh.onCall = [&](const std::string& call) {
      if (++calls == failing) {
        thrown = call.substr(0, call.find('('));
        throw static_cast<unsigned long>(7);
      }
    };
    const BOOL written = Write(root);
    UseScript(&provider);
    if (thrown == "ReleaseContext") {
      // The context that it was for stays with the provider; everything else goes on.
      ++releases;
      EXPECT_EQ(1, written) << failing;
      EXPECT_NE(7u, lastError) << failing;
      EXPECT_EQ(1u, fresh.OpenContexts()) << failing;
      EXPECT_EQ(2, fresh.CountCalls("SetKeyParam(")) << failing;
      continue;
    }
    EXPECT_EQ(0u, fresh.OpenContexts()) << failing;
    if (calls < failing) break;
    EXPECT_EQ(0, written) << failing;
    EXPECT_EQ(7u, lastError) << failing;
  }
  EXPECT_EQ(3, releases);
}

// A second thing that is thrown while the first is on its way would end the host.
TEST_F(StoreWrite, AReleaseThatThrowsOnTheWayOutChangesNothing) {
  AddThree();
  ContainerProvider fresh;
  UseScript(&fresh);
  fresh.containers = provider.containers;
  fresh.onCall = [](const std::string& call) {
    if (call.rfind("GetKeyParam", 0) == 0) throw static_cast<unsigned long>(0x4321);
    if (call.rfind("ReleaseContext", 0) == 0) throw 5;
  };
  EXPECT_EQ(0, Write(leaf));
  UseScript(&provider);
  EXPECT_EQ(0x4321u, lastError);
  EXPECT_EQ(2u, fresh.OpenContexts());
}

TEST_F(StoreWrite, LeavesListsThatDoNotEnd) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].ownCertificate = root;
  provider.endlessKeys = true;
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(3, 45"));
  provider.ClearCalls();
  provider.endlessKeys = false;
  provider.endlessContainers = true;
  provider.containers[0].kind = "unlisted";
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(4, 57"));
}

}  // namespace
}  // namespace zarext::test
