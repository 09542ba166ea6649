// The write callback: its order, the containers that it passes over, and what is thrown.
#include <chrono>
#include <future>

#include "contract/store_write_fixture.h"
#include "support/import_patch.h"
#include "support/store_recording.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string LowHex(const void* pointer, bool upper) {
  char text[20] = {};
  snprintf(text, sizeof text, upper ? "%X" : "%x",
           static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pointer)));
  return text;
}

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

// The debugger's output, in a handler of the host: from the first line on.
TEST_F(StoreWrite, AnythingThrownOutOfATraceLineLeavesTheLastErrorAlone) {
  AddThree();
  static int line = 0;
  static int throwing = 0;
  const ImportPatch output(
      Module(), "KERNEL32.dll", "OutputDebugStringA", +[](LPCSTR) WINAPI {
        if (++line == throwing) {
          SetLastError(0x5EED);
          throw 5;
        }
      });
  for (throwing = 1; throwing <= 3; ++throwing) {
    line = 0;
    EXPECT_EQ(0, Write(leaf)) << throwing;
    EXPECT_EQ(throwing, line);
    EXPECT_EQ(4711u, lastError) << throwing;
  }
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
