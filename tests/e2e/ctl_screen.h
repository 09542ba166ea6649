// zarextctl on a console of 80 columns. A console without a window is made for a child, which runs
// the tool in it and reads the screen.
#ifndef ZAREXT_TESTS_E2E_CTL_SCREEN_H_
#define ZAREXT_TESTS_E2E_CTL_SCREEN_H_

#include <string>

#include "e2e/ctl_fixture.h"

namespace zarext::test {

class ToolOnScreen {
 public:
  // Arguments are separated by spaces. The home keeps the screen's text.
  ToolOnScreen(const DevHome& home, const std::string& arguments);

  // The exit code and what the screen shows, after the tool's end. Each row begins with the
  // attribute of its first cell and "|"; where the attribute changes within it, "{attribute}"
  // stands. 7 is what it was before the tool began.
  ToolResult Finish();

 private:
  std::string file_;
  UniqueKernelObject process_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_CTL_SCREEN_H_
