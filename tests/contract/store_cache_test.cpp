// The shared section as other processes see it, through opens of the store.
#include <algorithm>
#include <future>
#include <optional>

#include "store_fixture.h"
#include "support/import_patch.h"
#include "support/store_recording.h"

namespace zarext::test {
namespace {

using testing::IsEmpty;
using Lines = std::vector<std::string>;

class StoreCache : public StoreTest {
 public:
  void Load() {
    const MemoryStore store;
    EXPECT_EQ(1, Open(store));
  }
  std::future<BOOL> OpenInThread() {
    return std::async(std::launch::async, [this] {
      const MemoryStore store;
      return Open(store);
    });
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

const Lines kOneReading = {"platform: MapViewOfFile()", "platform: WaitForSingleObject(INFINITE)",
                           "platform: ReleaseMutex()", "platform: UnmapViewOfFile()"};

TEST_F(StoreCache, MapsTheWholeSectionAndLeavesNoView) {
  static int maps;
  maps = 0;
  const ImportPatch map(
      Module(), "KERNEL32.dll", "MapViewOfFile",
      +[](HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) WINAPI -> LPVOID {
        EXPECT_EQ(DWORD{FILE_MAP_ALL_ACCESS}, access);
        EXPECT_EQ(0u, high);
        EXPECT_EQ(0u, low);
        EXPECT_EQ(0u, size);
        ++maps;
        return MapViewOfFile(mapping, access, high, low, size);
      });
  const StoreRecording recording(Module());
  const auto views = [&] {
    const Lines lines = LinesOf(events.Lines(), kOneReading);
    events.Clear();
    return lines;
  };
  AddContainer("c", {KeyWith(1, {0xFF}, {1})});
  Load();
  EXPECT_EQ(2, maps);
  Lines readingAndWriting = kOneReading;
  readingAndWriting.insert(readingAndWriting.end(), kOneReading.begin(), kOneReading.end());
  EXPECT_EQ(readingAndWriting, views());
  Load();
  EXPECT_THAT(views(), IsEmpty());
  // An empty list is read but not written.
  Advance(100);
  provider.containers.clear();
  Load();
  EXPECT_EQ(kOneReading, views());
}

TEST_F(StoreCache, TheStampIsTakenBeforeTheTurnAndTheHeaderStoredBeforeTheBlock) {
  AddContainer("c", {KeyWith(1, {0xFF}, {1}, 1)});
  const StoreRecording recording(Module());
  Load();
  const std::string time = "platform: time() = " + std::to_string(now);
  EXPECT_EQ(
      (Lines{"platform: EnterCriticalSection()",
             // The age of the list.
             time,
             // The reading: an empty section.
             "platform: MapViewOfFile()", time, "platform: WaitForSingleObject(INFINITE)",
             "platform: section: 8 octets read at 0", "platform: ReleaseMutex()",
             "platform: UnmapViewOfFile()",
             // CacheLoadTime, and the writing.
             time, "platform: MapViewOfFile()", time, "platform: WaitForSingleObject(INFINITE)",
             "platform: section: 8 octets written at 0",
             "platform: section: 19 octets written at 8", "platform: ReleaseMutex()",
             "platform: UnmapViewOfFile()", "platform: LeaveCriticalSection()"}),
      LinesOf(events.Lines(), {"platform: "}));
}

TEST_F(StoreCache, TheWalkIsOverAndItsContextReleasedBeforeTheListIsDatedAndPublished) {
  AddContainer("c", {KeyWith(1, {0xFF}, {1}, 1)});
  const StoreRecording recording(Module());
  Load();
  const Lines lines = events.Lines();
  const auto released =
      std::find(lines.begin(), lines.end(), std::string("provider: ReleaseContext(1, 0)"));
  EXPECT_THAT(Lines(released, lines.end()),
              HasInOrder(Lines{"provider: ReleaseContext(1, 0)", "platform: time() = ",
                               "platform: MapViewOfFile()", "platform: section: 19 octets"}));
  EXPECT_THAT(LinesOf(Lines(lines.begin(), released), {"platform: section: 19"}), IsEmpty());
  EXPECT_THAT(LinesOf(Lines(released + 1, lines.end()), {"provider: "}), IsEmpty());
}

TEST_F(StoreCache, TheAgeOfABlockIsCountedFromBeforeTheWaitForTheTurn) {
  // Fresh when the open comes, too old when the other process lets it in.
  SharedSection().Put(static_cast<DWORD>(now - 60), {0x30, 0x00});
  const StoreRecording recording(Module());
  MutexKeeper other;
  std::future<BOOL> open = OpenInThread();
  ASSERT_TRUE(events.WaitFor("platform: WaitForSingleObject(INFINITE)"));
  Advance(1);
  other.Release();
  EXPECT_EQ(1, open.get());
  EXPECT_THAT(events.Lines(), HasInOrder(Lines{"platform: WaitForSingleObject(INFINITE)",
                                               "platform: section: 2 octets read at 8"}));
}

TEST_F(StoreCache, TheStampIsTheTimeBeforeTheWaitForTheTurn) {
  AddContainer("c", {KeyWith(1, {0xFF}, {1})});
  std::optional<MutexKeeper> other;
  provider.onCall = [&](const std::string& call) {
    if (call.starts_with("ReleaseContext(1, ")) {
      other.emplace();
      events.Clear();
    }
  };
  const DWORD before = static_cast<DWORD>(now);
  const StoreRecording recording(Module());
  std::future<BOOL> open = OpenInThread();
  ASSERT_TRUE(events.WaitFor("provider: ReleaseContext(1, 0)"));
  ASSERT_TRUE(events.WaitFor("platform: WaitForSingleObject(INFINITE)"));
  Advance(7);
  other->Release();
  EXPECT_EQ(1, open.get());
  EXPECT_EQ(before, SharedSection().Stamp());
}

}  // namespace
}  // namespace zarext::test
