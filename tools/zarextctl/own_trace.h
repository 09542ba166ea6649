// The module's trace lines in the tool's own process. They still reach a viewer.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_OWN_TRACE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_OWN_TRACE_H_

#include <string>
#include <vector>

namespace zarext::ctl {

// Collects as long as it lives. One at a time.
class OwnTrace {
 public:
  OwnTrace();
  ~OwnTrace();
  OwnTrace(const OwnTrace&) = delete;
  OwnTrace& operator=(const OwnTrace&) = delete;
  OwnTrace(OwnTrace&&) = delete;
  OwnTrace& operator=(OwnTrace&&) = delete;

  // The messages since the last call, without thread and time, in UTF-8.
  std::vector<std::string> Take();

 private:
  void* handler_;
};

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_OWN_TRACE_H_
