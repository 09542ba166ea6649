// The reading side of the cache, which cannot be seen through the DLL. The store's own objects are
// linked in.
#include <gmock/gmock.h>
#include <windows.h>

#include <random>

#include "cache_reader.h"
#include "store/cache_block.h"
#include "store/container_cache.h"
#include "store/load_certificates.h"
#include "store/readable_memory.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

// Taken before main, as the module has it when it is loaded.
const long long loadTimeAtStart = FilledAt();

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
  char name[] = "n";
  CNT_KEY_INFO record = OneOctetRecord();
  record.pszContainer = name;
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
  cache.Add(OneOctetRecord());
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

// Their own handlers take what is thrown below them. With a noexcept on top, a call that is moved
// out of the handlers' reach would end the host instead of failing the open.
TEST_F(CacheReader, SharingStandsBehindNoNoexcept) {
  EXPECT_FALSE(noexcept(cache.ReadShared()));
  EXPECT_FALSE(noexcept(cache.WriteShared()));
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

}  // namespace
}  // namespace zarext::test
