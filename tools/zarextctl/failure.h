// What a command throws when it could not do what it was asked for.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_FAILURE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_FAILURE_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace zarext::ctl {

// Exit codes of every command.
inline constexpr int kNothingToReport = 0;
inline constexpr int kFindings = 1;
inline constexpr int kNotDone = 2;

class Failure : public std::runtime_error {
 public:
  // `tried`: what was tried, behind "could not" ("load \"a.dll\""). `code`: what came back, 0 for
  // none. `next`: what to do next.
  Failure(const std::string& tried, std::uint32_t code, std::string next)
      : std::runtime_error(tried), code_(code), next_(std::move(next)) {}

  [[nodiscard]] std::uint32_t Code() const noexcept { return code_; }
  [[nodiscard]] const std::string& Next() const noexcept { return next_; }

 private:
  std::uint32_t code_;
  std::string next_;
};

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_FAILURE_H_
