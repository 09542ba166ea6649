// The store where the mutex or the section that processes share could not be made at load: an
// object of another kind has the name. Each in a process of its own.
#include "store_fixture.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

constexpr char kMutex[] = "$zarvel_csp_store_mutex_name";
constexpr char kMapping[] = "$zarvel_csp_store_map_name";
constexpr long long kNow = 1900000000;

// Takes a name before the module is loaded.
class TakenName {
 public:
  explicit TakenName(const char* name) : event_(CreateEventA(nullptr, TRUE, FALSE, name)) {}
  [[nodiscard]] bool IsTaken() const {
    return static_cast<bool>(event_) && GetModuleHandleA("ZAREXT.dll") == nullptr;
  }

 private:
  UniqueKernelObject event_;
};

// The module in this process, with a provider of one certificate.
struct LoadedStore {
  LoadedStore() {
    UseScript(&provider);
    TestContainer container;
    container.name = "c";
    container.keys = {KeyWith(1, MakeCertificate({}), {1})};
    provider.containers.push_back(container);
  }
  ~LoadedStore() { UseScript(nullptr); }
  // How many certificates an open gives; -1 if it fails.
  int Open() {
    const MemoryStore store;
    CERT_STORE_PROV_INFO info = {};
    const BOOL opened = Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0, 0, 0,
                                                                      nullptr, store.Get(), &info);
    return opened == TRUE ? static_cast<int>(Encodings(store.Get()).size()) : -1;
  }
  int Walks() const { return provider.CountCalls("AcquireContext(null"); }
  // 0 if the listing serves for 60 seconds, else the number of the check that failed.
  int CheckListing() {
    if (Open() != 1 || Walks() != 1) return 1;
    ModuleClock::Advance(60);
    if (Open() != 1 || Walks() != 1) return 2;
    ModuleClock::Advance(1);
    return Open() == 1 && Walks() == 2 ? 0 : 3;
  }
  StoreFixes fixes{Module()};
  ModuleClock clock{Module(), kNow};
  ContainerProvider provider;
  TraceCapture trace;
};

ZAREXT_CHILD(StoreWithoutMutex) {
  const TakenName taken(kMutex);
  if (!taken.IsTaken()) return 10;
  LoadedStore store;
  if (UniqueKernelObject(OpenMutexA(SYNCHRONIZE, FALSE, kMutex))) return 11;
  const int listing = store.CheckListing();
  if (listing != 0) return listing;
  // There are no turns; the listing is published all the same.
  return SharedSection().Stamp() == kNow + 61 && SharedSection().Size() != 0 ? 0 : 12;
}

int views;

ZAREXT_CHILD(StoreWithoutSection) {
  const TakenName taken(kMapping);
  if (!taken.IsTaken()) return 20;
  LoadedStore store;
  if (UniqueKernelObject(OpenFileMappingA(FILE_MAP_READ, FALSE, kMapping))) return 21;
  const ImportPatch map(
      Module(), "KERNEL32.dll", "MapViewOfFile",
      +[](HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) WINAPI -> LPVOID {
        views += mapping == nullptr ? 1 : 1000;
        return MapViewOfFile(mapping, access, high, low, size);
      });
  const int listing = store.CheckListing();
  if (listing != 0) return listing;
  // Tried before and after each of the two walks.
  return views == 4 ? 0 : 22;
}

ZAREXT_CHILD(StoreWithoutBoth) {
  const TakenName mutex(kMutex);
  const TakenName mapping(kMapping);
  if (!mutex.IsTaken() || !mapping.IsTaken()) return 30;
  LoadedStore store;
  return store.CheckListing();
}

struct StoreChild {
  const char* name;
  const char* child;
  friend void PrintTo(const StoreChild& row, std::ostream* out) { *out << row.child; }
};

class StoreObjectsThatCannotBeMade : public testing::TestWithParam<StoreChild> {};

INSTANTIATE_TEST_SUITE_P(
    InAProcessOfItsOwn, StoreObjectsThatCannotBeMade,
    testing::Values(StoreChild{"WithoutTheMutexTheListingIsKeptAndPublished", "StoreWithoutMutex"},
                    StoreChild{"WithoutTheSectionTheListingIsKeptInTheProcess",
                               "StoreWithoutSection"},
                    StoreChild{"WithoutBothTheListingIsKeptInTheProcess", "StoreWithoutBoth"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(StoreObjectsThatCannotBeMade, EndsWith0) {
  // The objects are the session's: this process must not have made them.
  EXPECT_EQ(nullptr, GetModuleHandleA("ZAREXT.dll"));
  EXPECT_EQ(0u, ChildProcess(GetParam().child).Wait(60000).value_or(255));
}

}  // namespace
}  // namespace zarext::test
