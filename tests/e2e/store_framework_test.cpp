// The provider store as applications use it, and several threads and processes at once.
#include <windows.h>

#include <psapi.h>

#include <atomic>
#include <random>
#include <thread>

#include "contract/store_fixture.h"
#include "support/child_process.h"
#include "support/handle_count.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

void RegisterStore() {
  const std::string path = ProgramFolder() + "ZAREXT.dll";
  CryptRegisterOIDFunction(0, "CertDllOpenStoreProv", kProviderStore,
                           std::wstring(path.begin(), path.end()).c_str(), "ZarOpenStoreProv");
}

HCERTSTORE OpenProviderStore() { return CertOpenStore(kProviderStore, 0, 0, 0, nullptr); }

class StoreFramework : public StoreTest {
 public:
  StoreFramework() { RegisterStore(); }
  const Octets first = MakeCertificate({.serial = {1}, .subject = "First"});
  const Octets second = MakeCertificate({.serial = {2}, .subject = "Second"});
};

TEST_F(StoreFramework, OpensEnumeratesFindsAddsAndCloses) {
  AddContainer("alpha", {KeyWith(0x11, first, {0xAB}), KeyWith(0x12, second, {0xCD})});
  AddContainer("beta", {KeyWith(0x21, {}, {})});
  const HCERTSTORE store = OpenProviderStore();
  ASSERT_NE(nullptr, store) << GetLastError();
  EXPECT_THAT(Encodings(store), testing::UnorderedElementsAre(first, second));

  const UniqueCertContext found(CertFindCertificateInStore(
      store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_W, L"Second", nullptr));
  ASSERT_TRUE(found);
  EXPECT_EQ(store, found.Get()->hCertStore);
  const StoredCertificate described = Describe(found.Get());
  EXPECT_EQ(second, described.encoded);
  EXPECT_EQ(L"profile://alpha/?sn=CD", described.container);
  EXPECT_EQ(L"Zarvel CSP", described.provider);

  // An added certificate reaches a key; the store holds it too.
  const Octets added = MakeCertificate({.serial = {3}, .subject = "Third"});
  EXPECT_EQ(1, CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, added.data(),
                                                static_cast<DWORD>(added.size()),
                                                CERT_STORE_ADD_NEW, nullptr));
  EXPECT_THAT(provider.written, ElementsAre(added));
  EXPECT_THAT(Content(store), SizeIs(3));

  // One that no provider of ours serves is refused.
  const Octets other = MakeCertificate({.serial = {4}, .publicKeyOid = "1.2.840.10045.2.1"});
  EXPECT_EQ(0, CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, other.data(),
                                                static_cast<DWORD>(other.size()),
                                                CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_THAT(Content(store), SizeIs(3));

  // Nothing can be deleted.
  EXPECT_EQ(0, DeleteFromStore(CertDuplicateCertificateContext(found.Get())));
  EXPECT_THAT(Content(store), SizeIs(3));
  EXPECT_EQ(1, CertCloseStore(store, 0));
}

TEST_F(StoreFramework, AProviderOfAnotherTypeDoesNotOpenIt) {
  const ProviderContext context;
  provider.providerType = 24;
  EXPECT_EQ(nullptr, CertOpenStore(kProviderStore, 0, context.Get(), 0, nullptr));
  provider.providerType = 1;
  const HCERTSTORE store = CertOpenStore(kProviderStore, 0, context.Get(), 0, nullptr);
  ASSERT_NE(nullptr, store);
  EXPECT_EQ(1, CertCloseStore(store, 0));
}

// One round of everything that an application does with the store.
void UseStore(const Octets& refused) {
  const HCERTSTORE store = OpenProviderStore();
  ASSERT_NE(nullptr, store);
  EXPECT_THAT(Content(store), SizeIs(2));
  const UniqueCertContext found(CertFindCertificateInStore(
      store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_W, L"First", nullptr));
  ASSERT_TRUE(found);
  EXPECT_TRUE(Describe(found.Get()).hasProperty);
  EXPECT_EQ(0, CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, refused.data(),
                                                static_cast<DWORD>(refused.size()),
                                                CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(0, DeleteFromStore(CertDuplicateCertificateContext(found.Get())));
  EXPECT_EQ(1, CertCloseStore(store, 0));
}

struct Usage {
  std::size_t handles = 0;
  SIZE_T memory = 0;
  static Usage Now() {
    Usage usage;
    usage.handles = OpenHandleCount();
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    usage.memory = counters.PagefileUsage;
    return usage;
  }
};

TEST_F(StoreFramework, TwoThousandRoundsLeaveHandlesAndMemoryAsTheyWere) {
  AddContainer("alpha", {KeyWith(0x11, first, {0xAB}), KeyWith(0x12, second, {0xCD})});
  provider.records = false;
  const Octets refused = MakeCertificate({.publicKeyOid = "1.2.840.10045.2.1"});
  Usage start;
  for (int round = 0; round < 2000; ++round) {
    if (round == 200) start = Usage::Now();
    UseStore(refused);
    trace.Clear();
    events.Clear();
    // Every third open walks the provider.
    Advance(30);
  }
  const Usage end = Usage::Now();
  EXPECT_EQ(start.handles, end.handles);
  // Less than one leaked certificate of 300 octets in each round would show.
  EXPECT_LE(end.memory, start.memory + 524288) << start.memory << " octets grew to " << end.memory;
}

TEST_F(StoreFramework, EightThreadsOpenAtOnce) {
  AddContainer("alpha", {KeyWith(0x11, first, {0xAB}), KeyWith(0x12, second, {0xCD})});
  provider.records = false;
  std::atomic<int> opened{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        ModuleClock::Advance(20);
        const HCERTSTORE store = OpenProviderStore();
        if (store == nullptr) continue;
        opened += Content(store).size() == 2 ? 1 : 0;
        CertCloseStore(store, 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(1600, opened);
}

// Several processes. Children have the module, the same section and the same mutex.

ZAREXT_CHILD(ReadSection) {
  Module();
  const SharedSection section;
  return section.Stamp() == static_cast<DWORD>(std::stoll(arguments.at(0))) &&
                 section.Block() == (Octets{0x30, 0x11, 0x30, 0x0F, 0x04, 0x01, 'n', 0x04, 0x01,
                                            0xAB, 0x04, 0x01, 0xC5, 0x04, 0x04, 1, 0, 0, 0})
             ? 0
             : 1;
}

TEST_F(StoreFramework, AnotherProcessSeesTheListing) {
  AddContainer("n", {KeyWith(0x11, {0xC5}, {0xAB}, 1)});
  const MemoryStore store;
  ASSERT_EQ(1, Open(store));
  EXPECT_EQ(0u, ChildProcess("ReadSection", {std::to_string(now)}).Wait().value_or(255));
}

ZAREXT_CHILD(HoldMutex) {
  Module();
  const HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, "$zarvel_csp_store_mutex_name");
  WaitForSingleObject(mutex, INFINITE);
  SetEvent(OpenEventA(EVENT_MODIFY_STATE, FALSE, "zarext_test_held"));
  Sleep(60000);
  return 0;
}

TEST_F(StoreFramework, AProcessKilledWithTheMutexDoesNotBlockTheNext) {
  AddContainer("n", {KeyWith(0x11, first, {0xAB})});
  const UniqueKernelObject held(CreateEventA(nullptr, FALSE, FALSE, "zarext_test_held"));
  const ChildProcess child("HoldMutex");
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(held.Get(), 30000));
  // While it is held, an open waits.
  std::atomic<bool> opened{false};
  std::thread opener([&] {
    const MemoryStore store;
    opened = Open(store) != 0;
  });
  Sleep(300);
  EXPECT_FALSE(opened);
  child.Kill();
  opener.join();
  EXPECT_TRUE(opened);
  EXPECT_EQ(static_cast<DWORD>(now), SharedSection().Stamp());
}

// Writes whatever it likes into the section, without taking the mutex.
ZAREXT_CHILD(ScribbleSection) {
  Module();
  const SharedSection section;
  std::mt19937 random(static_cast<std::mt19937::result_type>(std::stoll(arguments.at(0))));
  const auto end = GetTickCount64() + 4000;
  SetEvent(OpenEventA(EVENT_MODIFY_STATE, FALSE, "zarext_test_scribbling"));
  while (GetTickCount64() < end) {
    const auto now = static_cast<DWORD>(std::stoll(arguments.at(1)));
    const auto size = static_cast<DWORD>(random() % 300000);
    std::memcpy(section.Data(), &now, 4);
    std::memcpy(section.Data() + 4, &size, 4);
    section.Data()[8] = 0x30;
    for (int i = 0; i < 64; ++i) {
      section.Data()[9 + random() % 2000] = static_cast<BYTE>(random());
    }
  }
  return 0;
}

TEST_F(StoreFramework, OpensGoOnWhileAnotherProcessScribblesInTheSection) {
  AddContainer("n", {KeyWith(0x11, first, {0xAB})});
  provider.records = false;
  const UniqueKernelObject started(CreateEventA(nullptr, FALSE, FALSE, "zarext_test_scribbling"));
  const ChildProcess child("ScribbleSection", {"7", std::to_string(now)});
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.Get(), 30000));
  int opens = 0;
  while (!child.Wait(0)) {
    const MemoryStore store;
    ASSERT_EQ(1, Open(store));
    ASSERT_THAT(Content(store.Get()), SizeIs(1));
    ++opens;
    trace.Clear();
    // Old enough to be read anew, while the scribbled stamp stays fresh.
    Advance(opens % 2 == 0 ? -61 : 61);
  }
  EXPECT_LT(10, opens);
  EXPECT_EQ(0u, child.Wait(0).value_or(255));
}

}  // namespace
}  // namespace zarext::test
