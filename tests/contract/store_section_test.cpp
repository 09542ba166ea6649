// Sections that are not as the module makes them: smaller, cut, reserved.
#include <gmock/gmock.h>
#include <windows.h>

#include "cache_reader.h"
#include "store/container_cache.h"
#include "support/child_process.h"
#include "support/import_patch.h"
#include "support/platform.h"

namespace zarext::test {
namespace {

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
// The platform refuses to cut it (on Windows by the documentation of SetEndOfFile; it was not seen
// there). Under Wine a program of the system below cuts it all the same; elsewhere the section
// stays whole, and is used.
class SectionOfACutFile : public CacheReader {
 public:
  SectionOfACutFile() : foreign_((Fill(), mapping_.Get())) {}
  ~SectionOfACutFile() override { EXPECT_EQ(0, ReleaseMutex(CacheHandle(3))); }

 protected:
  // Whether the file was cut.
  [[nodiscard]] bool CutTo(int size) const {
    SetFilePointer(file_.Get(), size, nullptr, FILE_BEGIN);
    EXPECT_EQ(FALSE, SetEndOfFile(file_.Get()));
    EXPECT_EQ(DWORD{ERROR_USER_MAPPED_FILE}, GetLastError());
    if (IsWine()) CutFromBelow(size);
    return IsWine();
  }
  // What a whole one then looks like.
  void ExpectRead() const {
    EXPECT_TRUE(cache.List().IsEmpty());
    EXPECT_EQ(kNow, FilledAt());
  }
  void ExpectWritten() const {
    const UniqueView view(MapViewOfFileEx(mapping_.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0, nullptr));
    // Two sequences around an empty name, two numbers of one octet, and the record's two octets.
    EXPECT_EQ(18u, static_cast<const DWORD*>(view.Get())[1]);
  }

 private:
  static void CutFromBelow(int size) {
    const auto cut = ChildProcess::Program("Z:\\usr\\bin\\truncate -s " + std::to_string(size) +
                                           " cut_section.bin");
    // A program of the system below has no process that could be waited for.
    for (int waited = 0; SizeOfFile() != static_cast<DWORD>(size); ++waited) {
      ASSERT_LT(waited, 1000);
      Sleep(10);
    }
  }
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
};

TEST_F(SectionOfACutFile, IsReadAndWrittenAsLongAsItIsWhole) {
  cache.ReadShared();
  ExpectRead();
  cache.Add(OneOctetRecord());
  cache.WriteShared();
  ExpectWritten();
}

TEST_F(SectionOfACutFile, WithoutItsHeaderIsNotRead) {
  const bool isCut = CutTo(0);
  cache.ReadShared();
  if (!isCut) return ExpectRead();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
}

TEST_F(SectionOfACutFile, WithoutTheRestOfItsBlockIsNotRead) {
  const bool isCut = CutTo(4096);
  cache.ReadShared();
  if (!isCut) return ExpectRead();
  EXPECT_TRUE(cache.List().IsEmpty());
  EXPECT_EQ(77, FilledAt());
}

TEST_F(SectionOfACutFile, IsNotWritten) {
  const bool isCut = CutTo(0);
  cache.Add(OneOctetRecord());
  cache.WriteShared();
  if (!isCut) ExpectWritten();
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
  cache.Add(OneOctetRecord());
  cache.WriteShared();
  EXPECT_FALSE(cache.List().IsEmpty());
  EXPECT_EQ(0, turns);
  cache.Clear();
  TContainerCache::MarkFilled(0);
}

}  // namespace
}  // namespace zarext::test
