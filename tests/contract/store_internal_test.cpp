// What cannot be seen through the DLL: the reading side of the cache, the callbacks that are in no
// table, and the address of the last import. The store's own objects are linked in.
#include <gmock/gmock.h>
#include <windows.h>

#include <algorithm>
#include <random>

#include "keyinfo/last_import.h"
#include "store/cache_block.h"
#include "store/container_cache.h"
#include "store/load_certificates.h"
#include "store/readable_memory.h"
#include "store/store_callbacks.h"
#include "store_fixture.h"
#include "support/child_process.h"
#include "support/import_patch.h"
#include "support/platform.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

constexpr long long kNow = 1700000000;

// The time of the list in the process.
long long FilledAt() { return TContainerCache::CacheLoadTime(); }

// A handle of the cache, by the number of its field.
HANDLE CacheHandle(int field) {
  return reinterpret_cast<HANDLE const*>(&TContainerCache::Instance())[field];
}

// Taken before main, as the module has it when it is loaded.
const long long loadTimeAtStart = FilledAt();

class CacheReader : public testing::Test {
 public:
  CacheReader() { TContainerCache::MarkFilled(77); }
  ~CacheReader() override {
    TContainerCache::MarkFilled(0);
    TContainerCache::Instance().Clear();
  }
  // Whether a block with this header and content is taken: its stamp then is the time of loading.
  bool IsTaken(DWORD stamp, DWORD size, const Octets& content) {
    section.Put(stamp, size, content);
    TContainerCache::MarkFilled(77);
    cache.ReadShared();
    EXPECT_TRUE(cache.List().IsEmpty());
    EXPECT_TRUE(FilledAt() == 77 || FilledAt() == stamp);
    return FilledAt() == stamp;
  }
  static Octets Block(std::size_t length) {
    Octets block = {0x30, 0x83, static_cast<std::uint8_t>((length - 5) >> 16),
                    static_cast<std::uint8_t>((length - 5) >> 8),
                    static_cast<std::uint8_t>(length - 5)};
    block.resize(length);
    return block;
  }
  ModuleClock clock{GetModuleHandleA(nullptr), kNow};
  SharedSection section;
  TContainerCache& cache = TContainerCache::Instance();
};

TEST_F(CacheReader, HasNoTimeOfLoadingAtStart) { EXPECT_EQ(0, loadTimeAtStart); }

TEST_F(CacheReader, IgnoresAFreshSection) {
  section.Wipe();
  cache.ReadShared();
  EXPECT_EQ(77, FilledAt());
}

TEST_F(CacheReader, TakesABlockOfAtMost60Seconds) {
  const Octets block = {0x30, 0x00};
  EXPECT_TRUE(IsTaken(kNow, 2, block));
  EXPECT_TRUE(IsTaken(kNow - 60, 2, block));
  EXPECT_FALSE(IsTaken(kNow - 61, 2, block));
  EXPECT_FALSE(IsTaken(kNow + 1, 2, block));
  EXPECT_FALSE(IsTaken(0, 2, block));
}

TEST_F(CacheReader, ComputesTheAgeModulo32Bits) {
  ModuleClock::Set(0x100000005);
  EXPECT_TRUE(IsTaken(0xFFFFFFF0, 2, {0x30, 0x00}));
  EXPECT_TRUE(IsTaken(5, 2, {0x30, 0x00}));
  EXPECT_FALSE(IsTaken(6, 2, {0x30, 0x00}));
}

TEST_F(CacheReader, TakesABlockThatFitsBehindTheHeader) {
  EXPECT_TRUE(IsTaken(kNow, 262136, Block(262136)));
  EXPECT_FALSE(IsTaken(kNow, 262137, Block(262136)));
  EXPECT_FALSE(IsTaken(kNow, 0xFFFFFFFF, Block(262136)));
  EXPECT_FALSE(IsTaken(kNow, 0, Block(262136)));
}

TEST_F(CacheReader, SetsTheTimeAlsoForAMalformedBlock) {
  EXPECT_TRUE(IsTaken(kNow - 3, 4, {0x31, 0x02, 0x05, 0x00}));
  EXPECT_TRUE(IsTaken(kNow - 4, 1, {0x30}));
  EXPECT_TRUE(IsTaken(kNow - 5, 3, {0x30, 0x00, 0x00}));
  EXPECT_TRUE(IsTaken(kNow - 6, 2, {0x30, 0x80}));
}

TEST_F(CacheReader, EmptiesTheListFirst) {
  BYTE octet[] = {1};
  CNT_KEY_INFO record = {};
  record.cbSerial = record.cbCert = 1;
  record.pbSerial = record.pbCert = octet;
  cache.Add(record);
  ASSERT_FALSE(cache.List().IsEmpty());
  section.Wipe();
  cache.ReadShared();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
}

TEST_F(CacheReader, ABlockThatWasWrittenReadsAsAnEmptyList) {
  BYTE octet[] = {0xEE};
  char name[] = "n";
  CNT_KEY_INFO record = {};
  record.pszContainer = name;
  record.cbSerial = record.cbCert = 1;
  record.pbSerial = record.pbCert = octet;
  cache.Add(record);
  cache.WriteShared();
  EXPECT_EQ(static_cast<DWORD>(kNow), section.Stamp());
  EXPECT_EQ(19u, section.Size());
  ModuleClock::Set(kNow + 60);
  cache.ReadShared();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(kNow, FilledAt());
}

TEST_F(CacheReader, TheStampIsTheLow32BitsOfTheTime) {
  ModuleClock::Set(0x500000007);
  BYTE octet[] = {0xEE};
  CNT_KEY_INFO record = {};
  record.cbSerial = record.cbCert = 1;
  record.pbSerial = record.pbCert = octet;
  cache.Add(record);
  section.Wipe();
  cache.WriteShared();
  EXPECT_EQ(7u, section.Stamp());
  // No name, hence NULL.
  EXPECT_EQ((Octets{0x30, 0x10, 0x30, 0x0E, 0x05, 0x00, 0x04, 0x01, 0xEE, 0x04, 0x01, 0xEE, 0x04,
                    0x04, 0x00, 0x00, 0x00, 0x00}),
            section.Block());
}

// Without memory.

// One allocation of this program that fails: the `failing`-th from here on.
class OneFailingAllocation {
 public:
  explicit OneFailingAllocation(int failing)
      : patch_(GetModuleHandleA(nullptr), "msvcrt.dll", "malloc", &Allocate) {
    original_ = patch_.Original<void*(std::size_t)>();
    left_ = failing;
  }
  ~OneFailingAllocation() { left_ = 0; }
  OneFailingAllocation(const OneFailingAllocation&) = delete;
  OneFailingAllocation& operator=(const OneFailingAllocation&) = delete;
  // Whether there were as many allocations.
  [[nodiscard]] static bool HasFailed() { return left_ == 0; }

 private:
  static void* Allocate(std::size_t size) {
    return left_ > 0 && --left_ == 0 ? nullptr : original_(size);
  }
  static inline void* (*original_)(std::size_t);
  static inline int left_;
  ImportPatch patch_;
};

// The views of the section that are mapped, as long as the object lives.
class ViewCount {
 public:
  ViewCount()
      : map_(GetModuleHandleA(nullptr), "KERNEL32.dll", "MapViewOfFile", &Map),
        unmap_(GetModuleHandleA(nullptr), "KERNEL32.dll", "UnmapViewOfFile", &Unmap) {
    mapOriginal_ = map_.Original<decltype(MapViewOfFile)>();
    unmapOriginal_ = unmap_.Original<decltype(UnmapViewOfFile)>();
    count_ = 0;
  }
  [[nodiscard]] static int Get() { return count_; }

 private:
  static LPVOID WINAPI Map(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) {
    ++count_;
    return mapOriginal_(mapping, access, high, low, size);
  }
  static BOOL WINAPI Unmap(LPCVOID view) {
    --count_;
    return unmapOriginal_(view);
  }
  static inline decltype(&MapViewOfFile) mapOriginal_;
  static inline decltype(&UnmapViewOfFile) unmapOriginal_;
  static inline int count_;
  ImportPatch map_;
  ImportPatch unmap_;
};

class CacheWithoutMemory : public CacheReader {
 public:
  CacheWithoutMemory() {
    record.pszContainer = name;
    record.cbSerial = record.cbCert = 1;
    record.pbSerial = record.pbCert = octet;
  }
  std::size_t Length() const {
    std::size_t length = 0;
    for (const KeyRecordNode* node = cache.List().Head(); node != nullptr;
         node = node->next.get()) {
      ++length;
    }
    return length;
  }
  // Neither the turn at the section nor a view of it is kept.
  static void ExpectNothingHeld() {
    EXPECT_EQ(0, ReleaseMutex(CacheHandle(3)));
    EXPECT_EQ(0, ViewCount::Get());
  }

  BYTE octet[1] = {0xEE};
  char name[2] = "n";
  CNT_KEY_INFO record = {};
  ViewCount views;
};

TEST_F(CacheWithoutMemory, AddKeepsTheListAsFarAsItCame) {
  cache.Clear();
  int failing = 1;
  for (std::size_t length = 0;; ++failing) {
    bool failed = false;
    {
      const OneFailingAllocation shortage(failing);
      cache.Add(record);
      failed = OneFailingAllocation::HasFailed();
    }
    EXPECT_EQ(failed ? length : length + 1, Length()) << failing;
    if (!failed) break;
    // The list goes on where it was.
    cache.Add(record);
    EXPECT_EQ(++length, Length()) << failing;
  }
  // The node, the record, its serial number, its certificate and its name.
  EXPECT_EQ(6, failing);
}

TEST_F(CacheWithoutMemory, ReadSharedLeavesAnEmptyListAndHoldsNothing) {
  const Octets entry = MakeElement(0x30, Octets{0x04, 1, 'n', 0x04, 1, 1, 0x04, 1, 2});
  const Octets block = MakeElement(0x30, entry);
  section.Put(kNow - 5, block);
  int failing = 1;
  for (;; ++failing) {
    cache.Add(record);
    TContainerCache::MarkFilled(77);
    bool failed = false;
    {
      const OneFailingAllocation shortage(failing);
      cache.ReadShared();
      failed = OneFailingAllocation::HasFailed();
    }
    EXPECT_EQ(0u, Length()) << failing;
    // The first one is the copy of the block; once there is one, its time counts.
    EXPECT_EQ(failing == 1 ? 77 : kNow - 5, FilledAt()) << failing;
    ExpectNothingHeld();
    if (!failed) break;
  }
  // A tree of a short block needs none.
  EXPECT_EQ(2, failing);
}

TEST_F(CacheWithoutMemory, WriteSharedPublishesNothingAndHoldsNothing) {
  cache.Clear();
  cache.Add(record);
  int failing = 1;
  for (;; ++failing) {
    std::memset(section.Data(), 0x5A, 64);
    bool failed = false;
    {
      const OneFailingAllocation shortage(failing);
      cache.WriteShared();
      failed = OneFailingAllocation::HasFailed();
    }
    EXPECT_EQ(1u, Length());
    ExpectNothingHeld();
    if (!failed) break;
    EXPECT_THAT(Octets(section.Data(), section.Data() + 64), testing::Each(0x5A)) << failing;
  }
  EXPECT_GT(failing, 1);
  EXPECT_EQ(static_cast<DWORD>(kNow), section.Stamp());
  EXPECT_EQ(19u, section.Size());
}

// Whatever lies in the section, the reader comes back, and with an empty list.
TEST_F(CacheReader, Survives20000RandomBlocks) {
  std::mt19937 random(20261121);
  const Octets certificate(40, 0xC5);
  Octets entry = MakeElement(0x04, {'n'});
  for (const Octets& part :
       {MakeElement(0x04, {1}), MakeElement(0x04, certificate), MakeElement(0x04, {1, 2, 3, 4})}) {
    entry.insert(entry.end(), part.begin(), part.end());
  }
  const Octets good = MakeElement(0x30, MakeElement(0x30, entry));
  for (int round = 0; round < 20000; ++round) {
    Octets block = good;
    if (round % 4 == 0) {
      block.resize(1 + random() % 64);
      for (std::uint8_t& octet : block) octet = static_cast<std::uint8_t>(random());
      block[0] = 0x30;
      if (block.size() > 1) block[1] = static_cast<std::uint8_t>(block.size() - 2);
    } else {
      for (unsigned change = random() % 4; change != 0; --change) {
        block[random() % block.size()] = static_cast<std::uint8_t>(random());
      }
    }
    const DWORD size =
        random() % 8 == 0 ? static_cast<DWORD>(random()) : static_cast<DWORD>(block.size());
    section.Put(static_cast<DWORD>(kNow - random() % 64), size, block);
    cache.ReadShared();
    ASSERT_TRUE(cache.List().IsEmpty()) << round;
  }
}

// The module's view of a section that somebody else made.
class ForeignSection {
 public:
  explicit ForeignSection(HANDLE mapping)
      : patch_(GetModuleHandleA(nullptr), "KERNEL32.dll", "MapViewOfFile", &Map) {
    mapping_ = mapping;
  }

 private:
  static LPVOID WINAPI Map(HANDLE, DWORD access, DWORD high, DWORD low, SIZE_T size) {
    return MapViewOfFileEx(mapping_, access, high, low, size, nullptr);
  }
  static inline HANDLE mapping_;
  ImportPatch patch_;
};

// A section that another process made smaller, under the same name.
TEST(SmallerSection, IsNeitherReadNorWrittenBeyondItsEnd) {
  const UniqueKernelObject small(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr));
  ASSERT_TRUE(small);
  const ForeignSection foreign(small.Get());
  const ModuleClock clock(GetModuleHandleA(nullptr), kNow);
  const UniqueView view(MapViewOfFileEx(small.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0, nullptr));
  auto* const words = static_cast<DWORD*>(view.Get());
  TContainerCache& cache = TContainerCache::Instance();
  for (const DWORD size : {4088u, 4089u, 262136u}) {
    words[0] = static_cast<DWORD>(kNow);
    words[1] = size;
    TContainerCache::MarkFilled(77);
    cache.ReadShared();
    EXPECT_EQ(size == 4088 ? kNow : 77, FilledAt()) << size;
  }
  BYTE octet[] = {0xEE};
  Octets certificate(4088, 0xC5);
  CNT_KEY_INFO record = {};
  char name[] = "n";
  record.pszContainer = name;
  record.cbSerial = 1;
  record.pbSerial = octet;
  record.pbCert = certificate.data();
  // Headers of 4 octets each here: 12 + 3 + 3 + 6 octets around the certificate.
  for (const DWORD size : {4088u - 24u + 1u, 4088u - 24u}) {
    words[0] = words[1] = 0x5A5A5A5A;
    record.cbCert = size;
    cache.Clear();
    cache.Add(record);
    cache.WriteShared();
    EXPECT_EQ(size == 4088 - 24 ? 4088u : 0x5A5A5A5A, words[1]) << size;
  }
  cache.Clear();
  TContainerCache::MarkFilled(0);
}

// A section of a file that has been cut since: there is nothing behind most of its pages.
// The test platform alone lets somebody cut it, by a program of the system below.
class SectionOfACutFile : public CacheReader {
 public:
  SectionOfACutFile() : foreign_((Fill(), mapping_.Get())) {
    record_.cbSerial = record_.cbCert = 1;
    record_.pbSerial = record_.pbCert = octet_;
  }
  ~SectionOfACutFile() override { EXPECT_EQ(0, ReleaseMutex(CacheHandle(3))); }

 protected:
  void SetUp() override {
    if (!IsWine()) GTEST_SKIP() << "Windows refuses to cut the file of a section";
  }
  static void CutTo(int size) {
    const auto cut = ChildProcess::Program("Z:\\usr\\bin\\truncate -s " + std::to_string(size) +
                                           " cut_section.bin");
    // A program of the system below has no process that could be waited for.
    for (int waited = 0; SizeOfFile() != static_cast<DWORD>(size); ++waited) {
      ASSERT_LT(waited, 1000);
      Sleep(10);
    }
  }
  void AddRecord() { cache.Add(record_); }

 private:
  static DWORD SizeOfFile() {
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExA("cut_section.bin", GetFileExInfoStandard, &data);
    return data.nFileSizeLow;
  }
  // A listing of three pages that is fresh.
  void Fill() {
    const UniqueView view(MapViewOfFileEx(mapping_.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0, nullptr));
    const DWORD header[] = {static_cast<DWORD>(kNow), 12000};
    std::memcpy(view.Get(), header, sizeof header);
  }

  UniqueKernelObject file_{CreateFileA("cut_section.bin", GENERIC_READ | GENERIC_WRITE, 7, nullptr,
                                       CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)};
  UniqueKernelObject mapping_{
      CreateFileMappingA(file_.Get(), nullptr, PAGE_READWRITE, 0, 262144, nullptr)};
  ForeignSection foreign_;
  BYTE octet_[1] = {0xEE};
  CNT_KEY_INFO record_ = {};
};

TEST_F(SectionOfACutFile, WithoutItsHeaderIsNotRead) {
  CutTo(0);
  cache.ReadShared();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
}

TEST_F(SectionOfACutFile, WithoutTheRestOfItsBlockIsNotRead) {
  CutTo(4096);
  cache.ReadShared();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
}

TEST_F(SectionOfACutFile, IsNotWritten) {
  CutTo(0);
  AddRecord();
  cache.WriteShared();
  EXPECT_FALSE(cache.List().IsEmpty());
}

// A section whose maker reserved its pages and has not filled them.
TEST(ReservedSection, IsNeitherReadNorWritten) {
  const UniqueKernelObject mapping(CreateFileMappingA(
      INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, 262144, nullptr));
  ASSERT_TRUE(mapping);
  const ForeignSection foreign(mapping.Get());
  const ModuleClock clock(GetModuleHandleA(nullptr), kNow);
  static int turns;
  turns = 0;
  const ImportPatch wait(
      GetModuleHandleA(nullptr), "KERNEL32.dll", "WaitForSingleObject",
      +[](HANDLE handle, DWORD milliseconds) WINAPI -> DWORD {
        ++turns;
        return WaitForSingleObjectEx(handle, milliseconds, FALSE);
      });
  TContainerCache::MarkFilled(77);
  TContainerCache& cache = TContainerCache::Instance();
  cache.ReadShared();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
  BYTE octet[] = {0xEE};
  CNT_KEY_INFO record = {};
  record.cbSerial = record.cbCert = 1;
  record.pbSerial = record.pbCert = octet;
  cache.Add(record);
  cache.WriteShared();
  EXPECT_FALSE(cache.List().IsEmpty());
  EXPECT_EQ(0, turns);
  cache.Clear();
  TContainerCache::MarkFilled(0);
}

TEST(StoreRecords, CacheAndListHaveTheirFourFields) {
  // head, tail, hMapping, hMutex.
  ASSERT_EQ(32u, sizeof(TContainerCache));
  const SharedSection section;
  section.Put(4711, {});
  const UniqueView view(MapViewOfFile(CacheHandle(2), FILE_MAP_READ, 0, 0, 0));
  ASSERT_TRUE(view);
  EXPECT_EQ(4711u, *static_cast<const DWORD*>(view.Get()));
  section.Wipe();
  // The named mutex is not this thread's until the cache's is.
  const UniqueKernelObject mutex(
      OpenMutexA(MUTEX_ALL_ACCESS, FALSE, "$zarvel_csp_store_mutex_name"));
  EXPECT_EQ(0, ReleaseMutex(mutex.Get()));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(CacheHandle(3), 0));
  EXPECT_EQ(1, ReleaseMutex(mutex.Get()));
  EXPECT_EQ(16u, sizeof(KeyRecordNode));
}

TEST(ReadableMemory, IsKnownByItsPages) {
  auto* const region = static_cast<BYTE*>(VirtualAlloc(nullptr, 16384, MEM_RESERVE, PAGE_NOACCESS));
  VirtualAlloc(region, 12288, MEM_COMMIT, PAGE_READWRITE);
  DWORD old = 0;
  VirtualProtect(region + 4096, 4096, PAGE_READONLY, &old);
  EXPECT_TRUE(IsReadable(region, 12288));
  EXPECT_TRUE(IsReadable(region + 5, 12288 - 5));
  EXPECT_FALSE(IsReadable(region, 12288 + 1));
  EXPECT_TRUE(IsReadable(nullptr, 0));
  EXPECT_FALSE(IsReadable(nullptr, 1));
  EXPECT_FALSE(IsReadable(region, ~std::size_t{0}));
  VirtualProtect(region + 4096, 4096, PAGE_NOACCESS, &old);
  EXPECT_TRUE(IsReadable(region, 4096));
  EXPECT_FALSE(IsReadable(region, 4097));
  VirtualProtect(region + 4096, 4096, PAGE_READWRITE | PAGE_GUARD, &old);
  EXPECT_FALSE(IsReadable(region, 4097));
  VirtualFree(region, 0, MEM_RELEASE);
}

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

TEST(CloseWithoutProvider, ShowsNoLibrary) {
  const TraceCapture trace;
  CertStoreProvCloseCallback(nullptr, 0);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : CertStoreProvCloseCallback [hCertStore = 0] [dwFlags = 0, hLib = "
                          "0]"));
}

// From here on the provider is bound.

class LoadTime : public CacheReader {};

TEST_F(LoadTime, AWalkThatGetsNoVerifyContextIsAWalk) {
  ContainerProvider provider;
  UseScript(&provider);
  provider.FailCall("AcquireContext", 1, 0x80090016);
  section.Wipe();
  const MemoryStore store;
  EXPECT_EQ(1, load_certs_from_CSP(store.Get()));
  UseScript(nullptr);
  EXPECT_THAT(provider.Calls(), ElementsAre("AcquireContext(null, f0000000) ! 80090016"));
  EXPECT_EQ(kNow, FilledAt());
  EXPECT_EQ(0u, section.Size());
}

TEST_F(LoadTime, IsSetBeforeTheListingIsPublishedHeaderFirst) {
  static std::vector<SIZE_T> sizes;
  static std::vector<long long> loadTimes;
  sizes.clear();
  loadTimes.clear();
  const ImportPatch write(
      GetModuleHandleA(nullptr), "KERNEL32.dll", "WriteProcessMemory",
      +[](HANDLE process, LPVOID to, LPCVOID from, SIZE_T size, SIZE_T* written) WINAPI -> BOOL {
        sizes.push_back(size);
        loadTimes.push_back(FilledAt());
        std::memcpy(to, from, size);
        *written = size;
        return process == GetCurrentProcess();
      });
  ContainerProvider provider;
  UseScript(&provider);
  provider.containers.push_back({"c", "file", "", "", {KeyWith(1, {0xFF}, {1})}});
  const MemoryStore store;
  EXPECT_EQ(1, load_certs_from_CSP(store.Get()));
  UseScript(nullptr);
  EXPECT_THAT(sizes, ElementsAre(8u, 19u));
  EXPECT_THAT(loadTimes, ElementsAre(kNow, kNow));
  EXPECT_EQ(static_cast<DWORD>(kNow), section.Stamp());
}

// A load that threw is over: the next one on the same thread walks.
TEST_F(LoadTime, ALoadBehindOneThatThrewWalks) {
  ContainerProvider provider;
  UseScript(&provider);
  provider.containers.push_back({"c", "file", "", "", {KeyWith(1, MakeCertificate({}), {1})}});
  provider.onCall = [](const std::string& call) {
    if (call.rfind("GetKeyParam", 0) == 0) throw 5;
  };
  const MemoryStore store;
  EXPECT_THROW(load_certs_from_CSP(store.Get()), int);
  provider.onCall = nullptr;
  provider.ClearCalls();
  ModuleClock::Advance(100);
  EXPECT_EQ(1, load_certs_from_CSP(store.Get()));
  UseScript(nullptr);
  EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
  EXPECT_THAT(Encodings(store.Get()), testing::SizeIs(1));
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

TEST_F(LastImportAddress, MayFillItsBuffer) {
  EXPECT_TRUE(IsWritten("card7idcard" + std::string(kLastContainerUrlSize - 11, 'x')));
}

}  // namespace
}  // namespace zarext::test
