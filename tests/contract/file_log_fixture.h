// A log file, and the processes that write it: the file loggers close descriptor 0 of the process
// that calls them, so every case that calls them runs in a process of its own.
#ifndef ZAREXT_TESTS_CONTRACT_FILE_LOG_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_FILE_LOG_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace zarext::test {

inline constexpr char kLog[] = "c:\\zarext_test.log";

inline std::string LockFile(const char* name = "zarext.lock") {
  char folder[520] = {};
  GetTempPathA(sizeof folder, folder);
  return std::string(folder) + name;
}

inline bool Exists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

inline void WriteFileText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::vector<std::string> ReadLines() {
  std::ifstream file(kLog, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

class FileLogTest : public testing::Test {
 protected:
  FileLogTest() { Clean(); }
  ~FileLogTest() override { Clean(); }
  static void Clean() {
    DeleteFileA(kLog);
    RemoveDirectoryA(kLog);
    DeleteFileA(LockFile().c_str());
    DeleteFileA(LockFile("zarint.lock").c_str());
  }
  static DWORD Run(const char* name, const ChildArguments& arguments = {}) {
    return ChildProcess(name, arguments).Wait().value_or(999);
  }
};

inline const std::regex kLine(
    "thid=-?[0-9]+ : time=[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-3][0-9] "
    "[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} : (.*)\r");

inline std::string Message(const std::string& line) {
  std::smatch match;
  return std::regex_match(line, match, kLine) ? match[1].str() : "no log line: " + line;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_FILE_LOG_FIXTURE_H_
