// The lines of the file loggers, when one is written, and what becomes of descriptor 0.
#include <gmock/gmock.h>
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "contract/file_log_fixture.h"
#include "frame/handles.h"
#include "frame/trace.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

ZAREXT_CHILD(LogOneLine) {
  FileLog(kLog, "Name : error = %x and %s.", 0xABCu, "%s%n");
  return 0;
}

TEST_F(FileLogTest, AnAbsentFileIsNotCreated) {
  EXPECT_EQ(0u, Run("LogOneLine"));
  EXPECT_FALSE(Exists(kLog));
  EXPECT_FALSE(Exists(LockFile()));
}

TEST_F(FileLogTest, ADirectoryIsLeftAlone) {
  ASSERT_TRUE(CreateDirectoryA(kLog, nullptr));
  EXPECT_EQ(0u, Run("LogOneLine"));
  EXPECT_FALSE(Exists(LockFile()));
}

TEST_F(FileLogTest, AnExistingFileGetsOneLineAndTheLockFileStays) {
  WriteFileText(kLog, "before\r\n");
  EXPECT_EQ(0u, Run("LogOneLine"));
  const auto lines = ReadLines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("before\r", lines[0]);
  EXPECT_EQ("Name : error = abc and %s%n.", Message(lines[1]));
  EXPECT_TRUE(Exists(LockFile()));
}

ZAREXT_CHILD(LogWithThreadIdentifier) {
  FileLog(kLog, "%lu", GetCurrentThreadId());
  return 0;
}

TEST_F(FileLogTest, TheLineBeginsWithTheThreadIdentifier) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("LogWithThreadIdentifier"));
  const std::string line = ReadLines().at(0);
  EXPECT_EQ(0u, line.find("thid=" + Message(line) + " : time="));
}

TEST_F(FileLogTest, TheLockFileIsTruncated) {
  WriteFileText(kLog, "");
  WriteFileText(LockFile(), "something");
  EXPECT_EQ(0u, Run("LogOneLine"));
  std::ifstream lock(LockFile(), std::ios::ate);
  EXPECT_EQ(0, lock.tellg());
}

ZAREXT_CHILD(LogWithTemp) {
  // "none": a folder that does not exist. "long": one that leaves no room for a name.
  const std::string folder =
      arguments.at(0) == "long" ? "c:\\" + std::string(505, 'x') : "c:\\nowhere";
  SetEnvironmentVariableA("TMP", folder.c_str());
  SetEnvironmentVariableA("TEMP", folder.c_str());
  FileLog(kLog, "unlocked");
  return 0;
}

TEST_F(FileLogTest, WithoutALockFileTheLineIsWrittenAllTheSame) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("LogWithTemp", {"none"}));
  EXPECT_EQ(0u, Run("LogWithTemp", {"long"}));
  const auto lines = ReadLines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("unlocked", Message(lines[0]));
  EXPECT_EQ("unlocked", Message(lines[1]));
}

// Stands in for GetTempPathA with a result of the test's choice, and counts the opened lock files.
DWORD tempPathLength = 0;
int opened = 0;
DWORD WINAPI GiveTempPath(DWORD size, char* folder) {
  if (size != 520) return 0;
  if (tempPathLength < size) lstrcpyA(folder, "c:\\");
  return tempPathLength;
}
int CountOpen(const char* /*path*/, int /*flags*/, int /*share*/, ...) {
  ++opened;
  return -1;
}

ZAREXT_CHILD(LogWithTempPathLength) {
  const HMODULE program = GetModuleHandleA(nullptr);
  const ImportPatch temp(program, "KERNEL32.dll", "GetTempPathA", &GiveTempPath);
  const ImportPatch open(program, "msvcrt.dll", "_sopen", &CountOpen);
  tempPathLength = std::stoul(arguments.at(0));
  FileLog(kLog, "%lu", tempPathLength);
  return opened;
}

TEST_F(FileLogTest, WithoutATemporaryDirectoryNoLockFileIsOpened) {
  WriteFileText(kLog, "");
  EXPECT_EQ(1u, Run("LogWithTempPathLength", {"3"}));
  EXPECT_EQ(0u, Run("LogWithTempPathLength", {"0"}));
  EXPECT_EQ(0u, Run("LogWithTempPathLength", {"520"}));
  EXPECT_EQ(0u, Run("LogWithTempPathLength", {"600"}));
  const auto lines = ReadLines();
  ASSERT_EQ(4u, lines.size());
  EXPECT_EQ("3", Message(lines[0]));
  EXPECT_EQ("600", Message(lines[3]));
}

TEST_F(FileLogTest, ALogThatCannotBeWrittenIsLeftAlone) {
  WriteFileText(kLog, "before\r\n");
  {
    const UniqueKernelObject mine(
        CreateFileA(kLog, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(0u, Run("LogOneLine"));
  }
  EXPECT_EQ(std::vector<std::string>{"before\r"}, ReadLines());
}

ZAREXT_CHILD(LogLong) {
  const std::string text(std::stoul(arguments.at(0)), 'q');
  FileLog(kLog, "%s", text.c_str());
  return 0;
}

TEST_F(FileLogTest, LongLinesAreWhole) {
  WriteFileText(kLog, "");
  for (const std::size_t length : {4095u, 4096u, 20000u, 100000u}) {
    EXPECT_EQ(0u, Run("LogLong", {std::to_string(length)}));
  }
  // Too long for the regular expression: compare the ends.
  const auto lines = ReadLines();
  ASSERT_EQ(4u, lines.size());
  const std::size_t lengths[] = {4095, 4096, 20000, 100000};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto start = lines[i].find(" : q") + 3;
    EXPECT_EQ(std::string(lengths[i], 'q') + "\r", lines[i].substr(start));
  }
}

ZAREXT_CHILD(InternalLog) {
  InternalFileLog(kLog, "plain %s text");
  return 0;
}

TEST_F(FileLogTest, TheInternalLoggerStopsEarlyToo) {
  EXPECT_EQ(0u, Run("InternalLog"));
  EXPECT_FALSE(Exists(kLog));
  ASSERT_TRUE(CreateDirectoryA(kLog, nullptr));
  EXPECT_EQ(0u, Run("InternalLog"));
  EXPECT_FALSE(Exists(LockFile("zarint.lock")));
}

TEST_F(FileLogTest, TheInternalLoggerHasItsOwnLockFile) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("InternalLog"));
  ASSERT_EQ(1u, ReadLines().size());
  EXPECT_EQ("plain %s text", Message(ReadLines()[0]));
  EXPECT_TRUE(Exists(LockFile("zarint.lock")));
  EXPECT_FALSE(Exists(LockFile()));
}

// A call that stops early closes descriptor 0, and a second one finds it closed.
ZAREXT_CHILD(CloseStandardInput) {
  _close(0);
  if (_open("c:\\zarext_probe.txt", _O_CREAT | _O_RDWR, 0600) != 0) return 1;
  FileLog(kLog, "to nowhere");
  if (_close(0) != -1) return 2;
  FileLog(kLog, "to nowhere again");
  return 0;
}

TEST_F(FileLogTest, AnEarlyStopClosesDescriptorZero) {
  EXPECT_EQ(0u, Run("CloseStandardInput"));
  DeleteFileA("c:\\zarext_probe.txt");
}

// A call that logs closes its own lock descriptor and leaves descriptor 0 alone.
ZAREXT_CHILD(KeepStandardInput) {
  _close(0);
  if (_open("c:\\zarext_probe.txt", _O_CREAT | _O_RDWR, 0600) != 0) return 1;
  FileLog(kLog, "kept");
  const int next = _open("c:\\zarext_probe.txt", _O_RDWR);
  FileLog(kLog, "kept");
  const int after = _open("c:\\zarext_probe.txt", _O_RDWR);
  return after == next + 1 && _close(0) == 0 ? 0 : 2;
}

TEST_F(FileLogTest, LoggingLeaksNoDescriptor) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("KeepStandardInput"));
  DeleteFileA("c:\\zarext_probe.txt");
}

}  // namespace
}  // namespace zarext::test
