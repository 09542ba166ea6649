// Adds up what the programs of a check run left in its folder of logs.
#ifndef ZAREXT_TOOLS_CHECK_REPORT_H_
#define ZAREXT_TOOLS_CHECK_REPORT_H_

#include <filesystem>

namespace zarext::check {

struct Totals {
  int passed = 0;
  int failed = 0;
  int skipped = 0;
  int refused = 0;
};

// For each NAME.exit, the exit code of a program: the tests of NAME.xml, GoogleTest's report. A
// program that ended badly without a failed test is one failure; one without a report is one test.
// 77 is a program that ran no test because the platform refused, as expected, what they need.
// Prints a line for each that failed or was refused.
Totals AddUp(const std::filesystem::path& logs);

}  // namespace zarext::check

#endif  // ZAREXT_TOOLS_CHECK_REPORT_H_
