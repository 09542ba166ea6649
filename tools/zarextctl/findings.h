// The doctor: independent checks over the facts.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_FINDINGS_H_
#define ZAREXT_TOOLS_ZAREXTCTL_FINDINGS_H_

#include <span>
#include <string>
#include <vector>

#include "zarextctl/status_facts.h"

namespace zarext::ctl {

// A note is no finding: it does not change the exit code.
enum class Severity { kNote, kWarning, kError };
const char* SeverityName(Severity severity);

struct Finding {
  Severity severity;
  std::string id;     // a word for scripts, the same in every version
  std::string what;   // what was seen
  std::string cause;  // one line
  std::string mend;   // one command
};

struct Check {
  const char* name;
  const char* looksAt;
  void (*run)(const StatusFacts& facts, std::vector<Finding>& findings);
};
std::span<const Check> Checks();

std::vector<Finding> RunChecks(const StatusFacts& facts);

// Whether the binding is the one that `register --without-aes256` leaves out.
bool IsAes256Content(const Binding& binding);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_FINDINGS_H_
