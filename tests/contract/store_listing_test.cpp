// The listing in the process: when an open walks over the containers, and when it serves what was
// found.
#include <functional>
#include <utility>

#include "store_load_fixture.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(StoreLoad, ServesASecondOpenWithin60SecondsFromTheList) {
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}, 0x2E23)});
  const auto walked = Load();
  ASSERT_THAT(walked, SizeIs(1));
  Advance(60);
  provider.ClearCalls();
  trace.Clear();
  provider.containers.clear();
  const auto served = Load();
  EXPECT_THAT(provider.Calls(), IsEmpty());
  ASSERT_THAT(served, SizeIs(1));
  EXPECT_EQ(walked[0].encoded, served[0].encoded);
  EXPECT_EQ(walked[0].container, served[0].container);
  EXPECT_EQ(walked[0].keySpec, served[0].keySpec);
  EXPECT_THAT(LoadLines(),
              ElementsAre("EXT : load_certs_from_CSP_CACHE : dwKeySpec = 2 (2e23), dwProvType = "
                          "19, size = " +
                          std::to_string(walked[0].encoded.size()) +
                          ", szwContainer = profile://alpha/?sn=01 (1.2.398.3.10.1.1.1.1)."));
}

TEST_F(StoreLoad, WalksAgainAfter61Seconds) {
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})});
  Load();
  Advance(61);
  provider.ClearCalls();
  provider.containers.clear();
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
}

TEST_F(StoreLoad, AListFromTheFutureIsServed) {
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})});
  Load();
  Advance(-5000);
  provider.ClearCalls();
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(StoreLoad, TheAgeCountsFromTheEndOfTheWalk) {
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})});
  // The walk takes 50 seconds.
  provider.alterProfile = [&](BYTE*) { Advance(50); };
  Load();
  provider.alterProfile = nullptr;
  Advance(60);
  provider.ClearCalls();
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_THAT(provider.Calls(), IsEmpty());
}

TEST_F(StoreLoad, AnEmptyListIsAskedForAnewEachTime) {
  Load();
  Load();
  EXPECT_EQ(2, provider.CountCalls("AcquireContext(null"));
}

TEST_F(StoreLoad, AStaleListAsksTheSectionOnce) {
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})});
  Load();
  Advance(61);
  static int views;
  views = 0;
  const ImportPatch map(
      Module(), "KERNEL32.dll", "MapViewOfFile",
      +[](HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size) WINAPI -> LPVOID {
        ++views;
        return MapViewOfFile(mapping, access, high, low, size);
      });
  provider.containers.clear();
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(1, views);
}

// Opens on the thread that loads: code of the host runs there inside the debugger's output, and
// inside the provider's calls.

TEST_F(StoreLoad, AnOpenWhileTheListIsHandedOutLeavesTheListAlone) {
  AddContainer("a", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(2, MakeCertificate({.serial = {2}}), {2})});
  Load();
  provider.containers.clear();
  provider.ClearCalls();
  static std::function<void()> whileHandedOut;
  const ImportPatch output(
      Module(), "KERNEL32.dll", "OutputDebugStringA", +[](LPCSTR text) WINAPI {
        if (std::string(text).find("_CACHE : ") != std::string::npos) {
          if (const auto once = std::exchange(whileHandedOut, nullptr)) once();
        }
      });
  const MemoryStore nested;
  whileHandedOut = [&] {
    Advance(61);
    EXPECT_EQ(1, Open(nested));
  };
  EXPECT_THAT(Load(), SizeIs(2));
  EXPECT_THAT(Encodings(nested.Get()), SizeIs(2));
  EXPECT_THAT(provider.Calls(), IsEmpty());
  // The next open finds that the time has passed.
  EXPECT_THAT(Load(), IsEmpty());
}

TEST_F(StoreLoad, AnOpenWhileTheProviderIsAskedServesWhatIsThere) {
  AddContainer("a", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(2, MakeCertificate({.serial = {2}}), {2})});
  const std::pair<const char*, std::size_t> cases[] = {{"AcquireContext(null", 0},
                                                       {"GetProvParam(1, 57, 260, 1)", 0},
                                                       {"GetKeyParam(2, 1,", 1},
                                                       {"GetKeyParam(2, 2,", 2},
                                                       {"ReleaseContext(1,", 2}};
  for (const auto& [place, listed] : cases) {
    SCOPED_TRACE(place);
    provider.nextContext = 1;
    provider.ClearCalls();
    int opens = 0;
    provider.onCall = [&, at = std::string(place), count = listed](const std::string& call) {
      // A provider that opens the store twice in each of its calls, as far as the test lets it.
      if (call.rfind(at, 0) != 0 || ++opens > 3) return;
      for (int time = 0; time < 2; ++time) {
        const MemoryStore nested;
        EXPECT_EQ(1, Open(nested));
        EXPECT_THAT(Encodings(nested.Get()), SizeIs(count));
      }
    };
    EXPECT_THAT(Load(), SizeIs(2));
    EXPECT_EQ(1, opens);
    EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
    provider.onCall = nullptr;
    Advance(100);
  }
}

TEST_F(StoreLoad, WithoutASectionTheListStillServes) {
  const ImportPatch noView(
      Module(), "KERNEL32.dll", "MapViewOfFile",
      +[](HANDLE, DWORD, DWORD, DWORD, SIZE_T) WINAPI -> LPVOID { return nullptr; });
  AddContainer("alpha", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})});
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
  EXPECT_EQ(0u, SharedSection().Size());
}

}  // namespace
}  // namespace zarext::test
