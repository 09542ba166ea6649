// The shared section as other processes see it, through opens of the store.
#include "store_fixture.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class StoreCache : public StoreTest {
 public:
  void Load() {
    const MemoryStore store;
    EXPECT_EQ(1, Open(store));
  }
  // A certificate whose record makes the whole block `length` octets long.
  void AddContainerForBlock(std::size_t length) {
    // Headers of the block, the entry and the certificate: 5 octets each from a length of 65,536
    // on. Name and serial number take 3 each, the ALG_ID 6.
    const std::size_t headers = 5 + 5 + 5 + 3 + 3 + 6;
    Octets certificate(length - headers, 0xC5);
    AddContainer("c", {KeyWith(1, certificate, {9})});
  }
};

TEST_F(StoreCache, PublishesTheListOctetForOctet) {
  const Octets certificate = {0x30, 0x03, 0x02, 0x01, 0x05};
  AddContainer("alpha", {KeyWith(0x11, certificate, {0xAB, 0xCD}, 0x12345678),
                         KeyWith(0x12, {}, {1}), KeyWith(0x13, certificate, {})});
  AddContainer("b", {KeyWith(0x21, {0xFF}, {1}, 0)});
  Load();
  const SharedSection section;
  EXPECT_EQ(static_cast<DWORD>(now), section.Stamp());
  EXPECT_EQ((Octets{0x30, 0x2B,                                            //
                    0x30, 0x18,                                            //
                    0x04, 0x05, 'a',  'l',  'p',  'h',  'a',               //
                    0x04, 0x02, 0xAB, 0xCD,                                //
                    0x04, 0x05, 0x30, 0x03, 0x02, 0x01, 0x05,              //
                    0x04, 0x04, 0x78, 0x56, 0x34, 0x12,                    //
                    0x30, 0x0F,                                            //
                    0x04, 0x01, 'b',  0x04, 0x01, 0x01, 0x04, 0x01, 0xFF,  //
                    0x04, 0x04, 0x00, 0x00, 0x00, 0x00}),
            section.Block());
}

TEST_F(StoreCache, AContainerWithAnEmptyNameIsPublishedWithAnEmptyString) {
  AddContainer("", {KeyWith(0x11, {0xEE}, {1}, 1)});
  Load();
  EXPECT_EQ((Octets{0x30, 0x10, 0x30, 0x0E, 0x04, 0x00, 0x04, 0x01, 0x01, 0x04, 0x01, 0xEE, 0x04,
                    0x04, 0x01, 0x00, 0x00, 0x00}),
            SharedSection().Block());
}

TEST_F(StoreCache, LeavesWhatLiesBehindTheBlock) {
  const SharedSection section;
  std::memset(section.Data(), 0x5A, SharedSection::kSize);
  AddContainer("b", {KeyWith(0x21, {0xFF}, {1}, 0)});
  Load();
  EXPECT_EQ(19u, section.Size());
  EXPECT_EQ(0x5A, section.Data()[8 + 19]);
  EXPECT_EQ(0x5A, section.Data()[SharedSection::kSize - 1]);
}

TEST_F(StoreCache, AnEmptyListLeavesAnEarlierBlock) {
  const SharedSection section;
  section.Put(12345, {0x30, 0x00});
  Load();
  EXPECT_EQ(12345u, section.Stamp());
  EXPECT_EQ(2u, section.Size());
}

TEST_F(StoreCache, RecordsWithoutASerialNumberAreNotPublished) {
  AddContainer("c", {KeyWith(1, MakeCertificate({}), {})});
  Load();
  EXPECT_EQ(0u, SharedSection().Size());
}

TEST_F(StoreCache, TheStampIsTheTimeOfPublishing) {
  AddContainer("c", {KeyWith(1, {0xFF}, {1})});
  provider.alterProfile = [&](BYTE*) { Advance(7); };
  Load();
  EXPECT_EQ(static_cast<DWORD>(now), SharedSection().Stamp());
}

TEST_F(StoreCache, ABlockOf262136OctetsIsPublished) {
  AddContainerForBlock(262136);
  Load();
  EXPECT_EQ(262136u, SharedSection().Size());
  EXPECT_EQ(0x30, SharedSection().Data()[8]);
}

TEST_F(StoreCache, ALongerBlockLeavesTheSectionAsItWas) {
  for (const std::size_t length : {262137u, 262144u, 262152u, 262153u, 300000u}) {
    const SharedSection section;
    std::memset(section.Data(), 0x5A, SharedSection::kSize);
    provider.containers.clear();
    AddContainerForBlock(length);
    Load();
    EXPECT_THAT(Octets(section.Data(), section.Data() + SharedSection::kSize), testing::Each(0x5A))
        << length;
    // The list itself is kept.
    provider.ClearCalls();
    Load();
    EXPECT_THAT(provider.Calls(), IsEmpty());
    Advance(100);
  }
}

TEST_F(StoreCache, AFreshBlockAddsNothingAndTheProviderIsWalked) {
  const Octets certificate = MakeCertificate({});
  Octets entry = MakeElement(0x04, {'x'});
  for (const Octets& part : {MakeElement(0x04, {1}), MakeElement(0x04, certificate)}) {
    entry.insert(entry.end(), part.begin(), part.end());
  }
  // Entries of three elements, and of four.
  Octets four = entry;
  const Octets algorithm = MakeElement(0x04, {1, 0, 0, 0});
  four.insert(four.end(), algorithm.begin(), algorithm.end());
  for (const Octets& content : {entry, four}) {
    SharedSection().Put(static_cast<DWORD>(now), MakeElement(0x30, MakeElement(0x30, content)));
    provider.ClearCalls();
    const MemoryStore store;
    EXPECT_EQ(1, Open(store));
    EXPECT_THAT(Content(store.Get()), IsEmpty());
    EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
    Advance(100);
  }
}

struct Views {
  static LPVOID WINAPI Map(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) {
    EXPECT_EQ(DWORD{FILE_MAP_ALL_ACCESS}, access);
    EXPECT_EQ(0u, high);
    EXPECT_EQ(0u, low);
    EXPECT_EQ(0u, size);
    log.emplace_back("map");
    return MapViewOfFile(mapping, access, high, low, size);
  }
  static BOOL WINAPI Unmap(LPCVOID view) {
    log.emplace_back("unmap");
    return UnmapViewOfFile(view);
  }
  static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds) {
    EXPECT_EQ(INFINITE, milliseconds);
    log.emplace_back("wait");
    return WaitForSingleObject(handle, milliseconds);
  }
  static BOOL WINAPI Release(HANDLE mutex) {
    log.emplace_back("release");
    return ReleaseMutex(mutex);
  }
  static inline std::vector<std::string> log;
};

TEST_F(StoreCache, MapsTheWholeSectionAndLeavesNoView) {
  Views::log.clear();
  const ImportPatch map(Module(), "KERNEL32.dll", "MapViewOfFile", &Views::Map);
  const ImportPatch unmap(Module(), "KERNEL32.dll", "UnmapViewOfFile", &Views::Unmap);
  const ImportPatch wait(Module(), "KERNEL32.dll", "WaitForSingleObject", &Views::Wait);
  const ImportPatch release(Module(), "KERNEL32.dll", "ReleaseMutex", &Views::Release);
  AddContainer("c", {KeyWith(1, {0xFF}, {1})});
  Load();
  EXPECT_THAT(Views::log, ElementsAre("map", "wait", "release", "unmap",    // read
                                      "map", "wait", "release", "unmap"));  // written
  Views::log.clear();
  Load();
  EXPECT_THAT(Views::log, IsEmpty());
  // An empty list is read but not written.
  Advance(100);
  provider.containers.clear();
  Load();
  EXPECT_THAT(Views::log, SizeIs(4));
}

}  // namespace
}  // namespace zarext::test
