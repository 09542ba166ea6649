// zarext-check: what check.cmd cannot do itself.
//   zarext-check keep                 before the run; 5 where the prompt is not elevated
//   zarext-check restore              between programs, and at the end
//   zarext-check forget               at the end
//   zarext-check report LOGS ZIP      adds up the tests, zips the logs; 1 where a test failed
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "check/kept_registration.h"
#include "check/report.h"
#include "check/zip.h"

namespace {

int Report(const char* logs, const char* archive) {
  const zarext::check::Totals totals = zarext::check::AddUp(logs);
  const bool zipped = zarext::check::ZipFolder(logs, archive);
  if (zipped) {
    std::printf("logs: %s\n", archive);
  } else {
    std::printf("%s cannot be written; the logs are in %s\n", archive, logs);
  }
  if (totals.skipped != 0 || totals.refused != 0) {
    std::printf("%d tests skipped, %d programs refused as expected\n", totals.skipped,
                totals.refused);
  }
  std::printf("%d passed, %d failed\n", totals.passed, totals.failed);
  return totals.failed == 0 && totals.passed > 0 && zipped ? 0 : 1;
}

int Status(const char* what, long status) {
  if (status != ERROR_SUCCESS) {
    (void)std::fprintf(stderr, "zarext-check: %s: error %ld\n", what, status);
  }
  return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
  const auto is = [&](const char* name, int count) {
    return argc == count && std::strcmp(argv[1], name) == 0;
  };
  try {
    if (is("keep", 2)) return Status("keep", zarext::check::KeepRegistration());
    if (is("restore", 2)) return Status("restore", zarext::check::RestoreRegistration());
    if (is("forget", 2)) return Status("forget", zarext::check::ForgetRegistration());
    if (is("report", 4)) return Report(argv[2], argv[3]);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "zarext-check: %s\n", error.what());
    return 1;
  }
  (void)std::fprintf(stderr, "usage: zarext-check keep | restore | forget | report LOGS ZIP\n");
  return 2;
}
