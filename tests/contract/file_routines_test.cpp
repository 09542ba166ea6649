#include "frame/file_routines.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

class FileRoutines : public testing::Test {
 protected:
  ~FileRoutines() override { DeleteFileA(path_.c_str()); }
  // While somebody has the file open it cannot be opened to be deleted.
  [[nodiscard]] bool IsClosed() const {
    const HANDLE file = CreateFileA(path_.c_str(), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    return file != INVALID_HANDLE_VALUE && CloseHandle(file) != FALSE;
  }
  std::string path_ = "c:\\zarext_routines.bin";
};

TEST_F(FileRoutines, WriteQueryAndRead) {
  const std::string data("a\r\nb\0\x1A z", 8);
  EXPECT_EQ(0, WriteWholeFile(path_.c_str(), data.data(), 8));
  std::uint32_t size = 99;
  EXPECT_EQ(0, QueryFileSize(path_.c_str(), &size));
  EXPECT_EQ(8u, size);
  std::string read(8, '?');
  EXPECT_EQ(0, ReadWholeFile(path_.c_str(), read.data(), 8));
  EXPECT_EQ(data, read);
  // Exactly what was asked for, no more.
  std::string part(8, '?');
  EXPECT_EQ(0, ReadWholeFile(path_.c_str(), part.data(), 3));
  EXPECT_EQ("a\r\n?????", part);
  EXPECT_EQ(2, ReadWholeFile(path_.c_str(), read.data(), 9));
}

TEST_F(FileRoutines, LeaveTheFileClosed) {
  ASSERT_EQ(0, WriteWholeFile(path_.c_str(), "1234", 4));
  EXPECT_TRUE(IsClosed());
  char octets[4];
  EXPECT_EQ(0, ReadWholeFile(path_.c_str(), octets, 4));
  EXPECT_TRUE(IsClosed());
  EXPECT_EQ(2, ReadWholeFile(path_.c_str(), octets, 5));
  EXPECT_TRUE(IsClosed());
}

TEST_F(FileRoutines, ReadingKeepsNoWriterOutAndIsKeptOutByNone) {
  ASSERT_EQ(0, WriteWholeFile(path_.c_str(), "1234", 4));
  const UniqueKernelObject writer(CreateFileA(path_.c_str(), GENERIC_READ | GENERIC_WRITE,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(writer);
  std::string read(4, '?');
  EXPECT_EQ(0, ReadWholeFile(path_.c_str(), read.data(), 4));
  EXPECT_EQ("1234", read);
}

TEST_F(FileRoutines, WritingTruncates) {
  EXPECT_EQ(0, WriteWholeFile(path_.c_str(), "12345678", 8));
  EXPECT_EQ(0, WriteWholeFile(path_.c_str(), "12", 2));
  std::uint32_t size = 0;
  EXPECT_EQ(0, QueryFileSize(path_.c_str(), &size));
  EXPECT_EQ(2u, size);
}

TEST_F(FileRoutines, MissingFiles) {
  std::uint32_t size = 99;
  EXPECT_EQ(1, QueryFileSize("c:\\nowhere\\none", &size));
  EXPECT_EQ(99u, size);
  char octet = 0;
  EXPECT_EQ(1, ReadWholeFile("c:\\nowhere\\none", &octet, 1));
  EXPECT_EQ(1, WriteWholeFile("c:\\nowhere\\none", &octet, 1));
}

ZAREXT_CHILD(DefaultModeAfterWriting) {
  if (_fmode == _O_BINARY) return 1;
  WriteWholeFile("c:\\zarext_mode.bin", "\n", 1);
  std::uint32_t size = 0;
  QueryFileSize("c:\\zarext_mode.bin", &size);
  DeleteFileA("c:\\zarext_mode.bin");
  // Set before the first file of the process is made.
  if (size != 1) return 3;
  return _fmode == _O_BINARY ? 0 : 2;
}

TEST_F(FileRoutines, WritingLeavesTheDefaultModeBinary) {
  EXPECT_EQ(0u, ChildProcess("DefaultModeAfterWriting").Wait());
}

TEST_F(FileRoutines, APathThatIsTooLongIsRefused) {
  const std::string path = "c:\\" + std::string(300, 'x');
  char octet = 0;
  EXPECT_EQ(1, WriteWholeFile(path.c_str(), &octet, 1));
}

// Move `most` octets at a time, and nothing more once `room` is used up.
unsigned int most = 2;
unsigned int room = 0;
std::vector<unsigned int> asked;
int MoveSlowly(unsigned int size) {
  asked.push_back(size);
  const unsigned int taken = std::min({size, room, most});
  room -= taken;
  return static_cast<int>(taken);
}
int WriteSlowly(int /*file*/, const void* /*data*/, unsigned int size) { return MoveSlowly(size); }
int ReadSlowly(int /*file*/, void* data, unsigned int size) {
  const int moved = MoveSlowly(size);
  std::memset(data, 'a' + static_cast<int>(asked.size()), static_cast<std::size_t>(moved));
  return moved;
}

TEST_F(FileRoutines, WritingGoesOnUntilNothingIsTaken) {
  const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "_write", &WriteSlowly);
  room = 5;
  asked.clear();
  EXPECT_EQ(0, WriteWholeFile(path_.c_str(), "12345", 5));
  EXPECT_THAT(asked, ElementsAre(5u, 3u, 1u));
  room = 4;
  EXPECT_EQ(2, WriteWholeFile(path_.c_str(), "12345", 5));
}

// The runtime counts in int.
TEST_F(FileRoutines, FourGibibytesGoInThreeSteps) {
  const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "_write", &WriteSlowly);
  room = most = 0xFFFFFFFF;
  asked.clear();
  EXPECT_EQ(0, WriteWholeFile(path_.c_str(), "never read", 0xFFFFFFFF));
  most = 2;
  EXPECT_THAT(asked, ElementsAre(0x7FFFFFFFu, 0x7FFFFFFFu, 1u));
}

TEST_F(FileRoutines, ReadingGoesOnUntilNothingIsGiven) {
  ASSERT_EQ(0, WriteWholeFile(path_.c_str(), "12345", 5));
  const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "_read", &ReadSlowly);
  room = 5;
  asked.clear();
  std::string read(6, '?');
  EXPECT_EQ(0, ReadWholeFile(path_.c_str(), read.data(), 5));
  EXPECT_THAT(asked, ElementsAre(5u, 3u, 1u));
  EXPECT_EQ("bbccd?", read);
  room = 4;
  EXPECT_EQ(2, ReadWholeFile(path_.c_str(), read.data(), 5));
}

// Calls of the runtime that throw, as a host's own version of it may.
int ThrowFromMoving(int, void*, unsigned int) { throw 5ul; }
int ThrowFromOpening(const char*, int, int, int) { throw 5ul; }
int ThrowFromCreating(const char*, int) { throw 5ul; }
int ThrowFromQuery(const char*, struct _stat64*) { throw 5ul; }

TEST_F(FileRoutines, WhatTheRuntimeThrowsComesToTheCaller) {
  ASSERT_EQ(0, WriteWholeFile(path_.c_str(), "1234", 4));
  char octets[4] = {'1', '2', '3', '4'};
  std::uint32_t size = 0;
  const auto query = [&] { QueryFileSize(path_.c_str(), &size); };
  const auto read = [&] { ReadWholeFile(path_.c_str(), octets, 4); };
  const auto write = [&] { WriteWholeFile(path_.c_str(), octets, 4); };
  const struct {
    const char* function;
    void* thrower;
    std::function<void()> routine;
  } rows[] = {
      {"_stat64", reinterpret_cast<void*>(&ThrowFromQuery), query},
      {"_sopen", reinterpret_cast<void*>(&ThrowFromOpening), read},
      {"_read", reinterpret_cast<void*>(&ThrowFromMoving), read},
      {"_creat", reinterpret_cast<void*>(&ThrowFromCreating), write},
      {"_write", reinterpret_cast<void*>(&ThrowFromMoving), write},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.function);
    unsigned long thrown = 0;
    try {
      const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", row.function, row.thrower);
      row.routine();
    } catch (unsigned long code) {
      thrown = code;
    }
    EXPECT_EQ(5u, thrown);
    EXPECT_TRUE(IsClosed());
  }
}

decltype(_close)* realClose = nullptr;
int CloseAndThrow(int file) {
  realClose(file);
  throw 5ul;
}

TEST_F(FileRoutines, WhatTheRuntimeThrowsFromClosingIsPassedOver) {
  ASSERT_EQ(0, WriteWholeFile(path_.c_str(), "1234", 4));
  char octets[4];
  {
    const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "_close", &CloseAndThrow);
    realClose = patch.Original<decltype(_close)>();
    EXPECT_EQ(0, ReadWholeFile(path_.c_str(), octets, 4));
  }
  EXPECT_TRUE(IsClosed());
}

}  // namespace
}  // namespace zarext::test
