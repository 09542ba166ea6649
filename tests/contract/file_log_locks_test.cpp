// The lock file and the locks around a line of the log, and writers beside each other.
#include <gmock/gmock.h>
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "contract/file_log_fixture.h"
#include "frame/handles.h"
#include "frame/trace.h"
#include "support/child_process.h"
#include "support/event_log.h"
#include "support/import_patch.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

// The calls by which other writers see this one, and when the line's time is taken.
int lockFileToGive = 77;
int NoteOpen(const char* path, int flags, int share, int mode) {
  char text[64] = {};
  snprintf(text, sizeof text, "_sopen(%s, %x, %x, %o)", std::strrchr(path, '\\') + 1,
           static_cast<unsigned>(flags), static_cast<unsigned>(share), static_cast<unsigned>(mode));
  RecordEvent(EventKind::kPlatform, nullptr, text);
  return lockFileToGive;
}
int NoteLocking(int file, int mode, long size) {
  RecordEvent(EventKind::kPlatform, nullptr,
              "_locking(" + std::to_string(file) + ", " + std::to_string(mode) + ", " +
                  std::to_string(size) + ")");
  return -1;
}
int NoteClose(int file) {
  RecordEvent(EventKind::kPlatform, nullptr, "_close(" + std::to_string(file) + ")");
  return 0;
}
int NoteFileClose(FILE* file) {
  RecordEvent(EventKind::kPlatform, nullptr, "fclose");
  return fflush(file);
}
// The argument: "early" where nothing is to be logged, "unlocked" where the lock file is refused,
// "refused" where the log is, "homeless" where there is no temporary directory, "internal" for the
// other logger.
ZAREXT_CHILD(LogInSteps) {
  const std::string& what = arguments.at(0);
  lockFileToGive = what == "unlocked" ? -1 : 77;
  if (what == "homeless") {
    const std::string folder = "c:\\" + std::string(600, 'x');
    SetEnvironmentVariableA("TMP", folder.c_str());
    SetEnvironmentVariableA("TEMP", folder.c_str());
  }
  const HMODULE program = GetModuleHandleA(nullptr);
  const ImportPatch open(program, "msvcrt.dll", "_sopen", &NoteOpen);
  const ImportPatch locking(program, "msvcrt.dll", "_locking", &NoteLocking);
  const ImportPatch close(program, "msvcrt.dll", "_close", &NoteClose);
  const ImportPatch fileClose(program, "msvcrt.dll", "fclose", &NoteFileClose);
  const RecordedImport<"GetSystemTimeAsFileTime", decltype(GetSystemTimeAsFileTime)> time(
      program, "KERNEL32.dll");
  const RecordedImport<"GetTempPathA", decltype(GetTempPathA)> folder(
      program, "KERNEL32.dll", [](DWORD size, char*) { return std::to_string(size); });
  const RecordedImport<"fopen", decltype(fopen)> log(
      program, "msvcrt.dll",
      [](const char* path, const char* mode) { return std::string(path) + ", " + mode; });
  DWORD sizeBefore = 0;
  const auto place = [](DWORD low, DWORD high, const OVERLAPPED* at) {
    char text[64] = {};
    snprintf(text, sizeof text, "%lx %lx at %lx %lx", high, low, at->OffsetHigh, at->Offset);
    return std::string(text);
  };
  const RecordedImport<"LockFileEx", decltype(LockFileEx)> turn(
      program, "KERNEL32.dll",
      [&](HANDLE file, DWORD flags, DWORD, DWORD low, DWORD high, OVERLAPPED* at) {
        sizeBefore = GetFileSize(file, nullptr);
        return std::to_string(flags) + ", " + place(low, high, at);
      });
  const RecordedImport<"UnlockFileEx", decltype(UnlockFileEx)> turnEnd(
      program, "KERNEL32.dll", [&](HANDLE file, DWORD, DWORD low, DWORD high, OVERLAPPED* at) {
        return place(low, high, at) +
               (GetFileSize(file, nullptr) > sizeBefore ? ", written" : ", not written");
      });
  const EventView events;
  if (what == "internal") {
    InternalFileLog(kLog, "stepwise");
  } else {
    FileLog(kLog, "%s", "stepwise");
  }
  std::string all;
  for (const std::string& line : events.Lines()) {
    all += line.substr(sizeof "platform: " - 1) + "\n";
  }
  printf("%s", all.c_str());
  const std::string begin =
      "GetSystemTimeAsFileTime()\nGetSystemTimeAsFileTime()\nGetTempPathA(520)\n";
  const std::string append = "fopen(c:\\zarext_test.log, at)\n";
  const std::string written =
      "LockFileEx(3, 0 1 at 7fffffff 0)\nUnlockFileEx(0 1 at 7fffffff 0, written)\n";
  const std::string lock = "_locking(77, 1, 0)\n";
  const std::string unlock = "_locking(77, 0, 0)\n_close(77)\n";
  const std::string start = begin + "_sopen(zarext.lock, 302, 40, 600)\n";
  const std::map<std::string, std::string> expected = {
      {"early", "_close(0)\n"},
      {"homeless", begin + append + written + "_close(-1)\nfclose\n"},
      {"unlocked", start + append + written + "_close(-1)\nfclose\n"},
      {"refused", start + lock + append + unlock},
      {"logged", start + lock + append + written + unlock + "fclose\n"},
      {"internal", begin + "_sopen(zarint.lock, 302, 40, 600)\n" + lock + append + written +
                       unlock + "fclose\n"}};
  return all == expected.at(what) ? 0 : 2;
}

TEST_F(FileLogTest, TheLockFileIsLockedOverNoOctetsAndClosedBeforeTheLog) {
  EXPECT_EQ(0u, Run("LogInSteps", {"early"}));
  ASSERT_TRUE(CreateDirectoryA(kLog, nullptr));
  EXPECT_EQ(0u, Run("LogInSteps", {"early"}));
  RemoveDirectoryA(kLog);
  WriteFileText(kLog, "");
  {
    const UniqueKernelObject mine(
        CreateFileA(kLog, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(0u, Run("LogInSteps", {"refused"}));
  }
  ASSERT_THAT(ReadLines(), testing::IsEmpty());
  for (const char* what : {"logged", "unlocked", "homeless", "internal"}) {
    EXPECT_EQ(0u, Run("LogInSteps", {what})) << what;
  }
  const auto lines = ReadLines();
  ASSERT_EQ(4u, lines.size());
  for (const std::string& line : lines) {
    EXPECT_EQ("stepwise", Message(line));
  }
}

// A nap of a millisecond lasts until the next tick of the platform's clock, up to 15 of them.
int naps = 0;
ULONGLONG ticks = 0xFFFFFFF0;
void WINAPI CountNap(DWORD milliseconds) {
  naps += static_cast<int>(milliseconds);
  ticks += 15;
}
ULONGLONG WINAPI ReadTicks() { return ticks; }

// Somebody else's lock on the whole log but its first megabyte.
ZAREXT_CHILD(LogBesideALock) {
  const HANDLE other =
      CreateFileA(kLog, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  if (!::LockFile(other, 0x100000, 0, 0xFFFFFFFF, 0x7FFFFFFF)) return 1;
  const ImportPatch sleep(GetModuleHandleA(nullptr), "KERNEL32.dll", "Sleep", &CountNap);
  const ImportPatch clock(GetModuleHandleA(nullptr), "KERNEL32.dll", "GetTickCount64", &ReadTicks);
  FileLog(kLog, "unhindered");
  if (naps != 667) return 2;
  ::UnlockFile(other, 0x100000, 0, 0xFFFFFFFF, 0x7FFFFFFF);
  FileLog(kLog, "at once");
  return naps == 667 ? 0 : 3;
}

TEST_F(FileLogTest, AForeignLockDelaysALineForTenSeconds) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("LogBesideALock"));
  const auto lines = ReadLines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("unhindered", Message(lines[0]));
  EXPECT_EQ("at once", Message(lines[1]));
}

// A file system without locks; sharing the file is all there is.
BOOL WINAPI RefuseLocks(HANDLE, DWORD, DWORD, DWORD, DWORD, OVERLAPPED*) {
  SetLastError(ERROR_INVALID_FUNCTION);
  return FALSE;
}
ZAREXT_CHILD(LogWithoutLocks) {
  const HMODULE program = GetModuleHandleA(nullptr);
  const ImportPatch lock(program, "KERNEL32.dll", "LockFileEx", &RefuseLocks);
  const ImportPatch sleep(program, "KERNEL32.dll", "Sleep", &CountNap);
  const ImportPatch clock(program, "KERNEL32.dll", "GetTickCount64", &ReadTicks);
  FileLog(kLog, "unlocked");
  return naps;
}

TEST_F(FileLogTest, NobodyWaitsWhereTheFileSystemRefusesLocks) {
  WriteFileText(kLog, "");
  EXPECT_EQ(0u, Run("LogWithoutLocks"));
  const auto lines = ReadLines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("unlocked", Message(lines[0]));
}

// The argument: the function that throws, "LockFileEx", "UnlockFileEx" or "_close".
BOOL WINAPI ThrowAtLock(HANDLE, DWORD, DWORD, DWORD, DWORD, OVERLAPPED*) { throw 5ul; }
BOOL WINAPI ThrowAtUnlock(HANDLE, DWORD, DWORD, DWORD, OVERLAPPED*) { throw "unlock"; }
decltype(_close)* realClose = nullptr;
int ThrowAtClose(int file) {
  realClose(file);
  throw 5ul;
}
ZAREXT_CHILD(LogWhereCallsThrow) {
  const std::map<std::string, std::pair<const char*, void*>> throwers = {
      {"LockFileEx", {"KERNEL32.dll", reinterpret_cast<void*>(&ThrowAtLock)}},
      {"UnlockFileEx", {"KERNEL32.dll", reinterpret_cast<void*>(&ThrowAtUnlock)}},
      {"_close", {"msvcrt.dll", reinterpret_cast<void*>(&ThrowAtClose)}},
  };
  const auto& [library, replacement] = throwers.at(arguments.at(0));
  const ImportPatch thrower(GetModuleHandleA(nullptr), library, arguments.at(0).c_str(),
                            replacement);
  realClose = thrower.Original<decltype(_close)>();
  FileLog(kLog, "thrown");
  // Neither file is open any more.
  if (!DeleteFileA(kLog)) return 20;
  return DeleteFileA(LockFile().c_str()) ? 0 : 30;
}

TEST_F(FileLogTest, WhatCallsThrowIsPassedOverAndBothFilesAreClosed) {
  for (const char* function : {"LockFileEx", "UnlockFileEx", "_close"}) {
    WriteFileText(kLog, "");
    EXPECT_EQ(0u, Run("LogWhereCallsThrow", {function})) << function;
  }
}

ZAREXT_CHILD(LogManyLines) {
  for (int line = 0; line < 500; ++line) {
    FileLog(kLog, "writer %s line %i of some length", arguments.at(0).c_str(), line);
  }
  return 0;
}

TEST_F(FileLogTest, FourProcessesLoseAndMixNoLine) {
  WriteFileText(kLog, "");
  std::vector<ChildProcess> writers;
  for (int number = 0; number < 4; ++number) {
    writers.emplace_back("LogManyLines", ChildArguments{std::to_string(number)});
  }
  for (const ChildProcess& writer : writers) {
    ASSERT_EQ(0u, writer.Wait(120000));
  }
  std::map<int, int> next;
  const auto lines = ReadLines();
  EXPECT_EQ(2000u, lines.size());
  for (const std::string& line : lines) {
    int writer = 0;
    int index = 0;
    ASSERT_EQ(2, sscanf(Message(line).c_str(), "writer %d line %d of some length", &writer, &index))
        << line;
    EXPECT_EQ(next[writer]++, index);
  }
}

}  // namespace
}  // namespace zarext::test
