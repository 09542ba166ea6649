#include "check/report.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace zarext::check {
namespace {

constexpr int kRefused = 77;

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// What the text begins with; 0 where that is no number.
int Number(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

// The number in NAME="number" of the report's first element, or -1.
int Attribute(const std::string& report, const std::string& name) {
  const std::size_t element = report.find("<testsuites");
  const std::size_t end = report.find('>', element);
  const std::string key = " " + name + "=\"";
  const std::size_t place = report.find(key, element);
  if (element == std::string::npos || place >= end) {
    return -1;
  }
  return Number(report.c_str() + place + key.size());
}

int Count(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

void Judge(const std::string& name, int code, const std::string& report, Totals& totals) {
  if (code == kRefused) {
    ++totals.refused;
    std::printf("%s: not run, the platform refuses what its tests need, as expected\n",
                name.c_str());
    return;
  }
  const int tests = Attribute(report, "tests");
  if (tests < 0) {
    ++(code == 0 ? totals.passed : totals.failed);
    if (code != 0) {
      std::printf("%s: FAILED, exit code %d\n", name.c_str(), code);
    }
    return;
  }
  int failed = Attribute(report, "failures");
  const int skipped = Count(report, "result=\"skipped\"");
  totals.passed += tests - failed - skipped;
  totals.skipped += skipped;
  // It crashed, or was ended.
  if (code != 0 && failed == 0) {
    failed = 1;
  }
  totals.failed += failed;
  if (failed != 0) {
    std::printf("%s: %d FAILED, exit code %d\n", name.c_str(), failed, code);
  }
}

}  // namespace

Totals AddUp(const std::filesystem::path& logs) {
  std::set<std::filesystem::path> exits;
  for (const auto& entry : std::filesystem::directory_iterator(logs)) {
    if (entry.path().extension() == ".exit") {
      exits.insert(entry.path());
    }
  }
  Totals totals;
  for (std::filesystem::path path : exits) {
    const int code = Number(ReadFile(path).c_str());
    const std::string name = path.stem().string();
    Judge(name, code, ReadFile(path.replace_extension(".xml")), totals);
  }
  return totals;
}

}  // namespace zarext::check
