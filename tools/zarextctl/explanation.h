// Why a certificate is or is not accepted: the framework's steps, gone one by one.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_EXPLANATION_H_
#define ZAREXT_TOOLS_ZAREXTCTL_EXPLANATION_H_

#include <string>
#include <vector>

#include "zarextctl/certificates.h"

namespace zarext::ctl {

enum class StepState { kPassed, kFailed, kSkipped };

struct Step {
  explicit Step(const char* name) : id(name) {}

  const char* id;  // a word for scripts
  StepState state = StepState::kPassed;
  std::string what;  // what was found
  std::vector<std::string> details;
  // Of a failed step:
  DWORD code = 0;
  std::string cause;
  std::string next;
  std::vector<std::string> trace;  // the module's lines, of any step
};

struct Explanation {
  CertificateText certificate;
  std::vector<Step> steps;

  // Whether the framework accepts it: signatures and trust. A step before them can fail all the
  // same, where the framework finds another way, and one behind them where only the private key is
  // missing.
  [[nodiscard]] bool IsAccepted() const;
  // Null if none failed.
  [[nodiscard]] const Step* FirstFailure() const;
};

struct ExplainRequest {
  PCCERT_CONTEXT certificate = nullptr;
  HCERTSTORE others = nullptr;  // further certificates for the chain
  bool lookIntoContainers = true;
};

Explanation Explain(const ExplainRequest& request);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_EXPLANATION_H_
