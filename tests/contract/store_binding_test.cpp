// Callbacks that are in no table, and those that need the provider's module: with none bound, with
// one that cannot be, and with the address of the last import.
#include <gmock/gmock.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "keyinfo/last_import.h"
#include "store/store_callbacks.h"
#include "store_fixture.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

TEST(CallbacksOutsideTheTable, TraceAndAnswer) {
  const UniqueCertContext context = MakeContext(MakeCertificate({}));
  auto* const store = reinterpret_cast<HCERTSTOREPROV>(0x12345678ABCDEF00);
  const TraceCapture trace;
  EXPECT_EQ(1, CertStoreProvSetCertPropertyCallback(store, context.Get(), 11, 0, nullptr));
  EXPECT_EQ(0, CertStoreProvWriteCRLCallback(store, nullptr, 0));
  EXPECT_EQ(1, CertStoreProvSetCertPropertyCallback(store, nullptr, 2, 0, nullptr));
  const std::string size = std::to_string(context.Get()->cbCertEncoded);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : CertStoreProvSetCertPropertyCallback [hCertStore = ABCDEF00] "
                          "[dwPropId = B] [pszObjId = 1.2.398.3.10.1.1.1.2, size = " +
                              size + "]",
                          "CertStoreProvWriteCRLCallback",
                          "EXT : CertStoreProvSetCertPropertyCallback [hCertStore = ABCDEF00] "
                          "[dwPropId = 2] [pszObjId = (null), size = 0]"));
}

// In a process of its own: a binding stays until the process ends.
ZAREXT_CHILD(CloseUnbound) {
  const TraceCapture trace;
  CertStoreProvCloseCallback(nullptr, 0);
  return trace.Messages() ==
                 std::vector<std::string>{
                     "EXT : CertStoreProvCloseCallback [hCertStore = 0] [dwFlags = 0, hLib = 0]"}
             ? 0
             : 1;
}

TEST(CloseWithoutProvider, ShowsNoLibrary) {
  EXPECT_EQ(0u, ChildProcess("CloseUnbound").Wait(60000).value_or(255));
}

// A write that has to bind the provider module first, in a process of its own.
int WriteUnbound(const std::string& providerPath, DWORD code,
                 const CertificateOrder& certificate = {}) {
  RegisterProvider("Zarvel CSP", 25, providerPath);
  const MemoryStore store;
  const UniqueCertContext context = MakeContext(MakeCertificate(certificate));
  SetLastError(4711);
  const BOOL written = CertStoreProvWriteCertCallback(store.Get(), context.Get(), 0);
  const DWORD error = GetLastError();
  if (written != FALSE) return 1;
  return error == code ? 0 : 2;
}

ZAREXT_CHILD(WriteWithoutProvider) { return WriteUnbound("c:\\no such file.dll", 126); }

ZAREXT_CHILD(WriteWithIncompleteProvider) {
  return WriteUnbound(ProgramFolder() + "provider_without_CPSetKeyParam.dll", 127);
}

// The algorithm is refused first, and no provider is looked for.
ZAREXT_CHILD(WriteOfAForeignKeyWithoutProvider) {
  return WriteUnbound("c:\\no such file.dll", 4711, {.publicKeyOid = "1.2.840.10045.2.1"});
}

TEST(WriteUnbound, FailsWithTheLastErrorOfTheBinding) {
  EXPECT_EQ(0u, ChildProcess("WriteWithoutProvider").Wait(60000).value_or(255));
  EXPECT_EQ(0u, ChildProcess("WriteWithIncompleteProvider").Wait(60000).value_or(255));
  EXPECT_EQ(0u, ChildProcess("WriteOfAForeignKeyWithoutProvider").Wait(60000).value_or(255));
  RegisterProvider("Zarvel CSP", 25, ScriptedProviderPath());
}

// The address of the last private-key import.

class LastImportAddress : public testing::Test {
 public:
  LastImportAddress() {
    UseScript(&provider);
    TestContainer container;
    container.name = "card7";
    container.kind = "idcard";
    container.keys = {KeyWith(0x11, {}, {})};
    provider.containers.push_back(container);
  }
  ~LastImportAddress() override {
    UseScript(nullptr);
    std::memset(LastContainerUrl, 0, kLastContainerUrlSize);
    EXPECT_EQ(0u, provider.OpenContexts());
  }
  // Whether the container is written under the address.
  bool IsWritten(const std::string& imported) {
    std::memset(LastContainerUrl, 0, kLastContainerUrlSize);
    std::copy(imported.begin(), imported.end(), LastContainerUrl);
    provider.aliases = {{imported, 0}};
    provider.containers[0].keys[0].ownCertificate.clear();
    provider.ClearCalls();
    const MemoryStore store;
    const UniqueCertContext context = MakeContext(MakeCertificate({}));
    const BOOL written = CertStoreProvWriteCertCallback(store.Get(), context.Get(), 0);
    EXPECT_EQ(written, provider.CountCalls("AcquireContext(" + imported + ", 40)"));
    EXPECT_EQ(0, provider.CountCalls("AcquireContext(profile://card7"));
    return written != FALSE;
  }
  ContainerProvider provider;
};

TEST_F(LastImportAddress, IsUsedIfItHoldsNameAndKind) {
  EXPECT_TRUE(IsWritten("profile://idcard/reader/card7?x"));
  EXPECT_TRUE(IsWritten("card7idcard"));
  EXPECT_FALSE(IsWritten("profile://idcard/reader/card8"));
  EXPECT_FALSE(IsWritten("profile://kztoken/card7"));
  EXPECT_FALSE(IsWritten("profile://IDCARD/card7"));
  EXPECT_FALSE(IsWritten(""));
}

TEST_F(LastImportAddress, AnEmptyKindIsPartOfEveryAddress) {
  provider.containers[0].kind = "";
  EXPECT_TRUE(IsWritten("profile://x/card7"));
  EXPECT_FALSE(IsWritten("profile://x/card8"));
}

// Without an import too, if the name is empty as well: the container "" is opened.
TEST_F(LastImportAddress, AnEmptyOneHoldsAnEmptyNameAndKind) {
  provider.containers[0].name = "";
  EXPECT_FALSE(IsWritten(""));
  provider.containers[0].kind = "";
  EXPECT_TRUE(IsWritten(""));
}

TEST_F(LastImportAddress, MayFillItsBuffer) {
  EXPECT_TRUE(IsWritten("card7idcard" + std::string(kLastContainerUrlSize - 11, 'x')));
}

}  // namespace
}  // namespace zarext::test
