// A line of the module's trace, taken apart, and what its numbers mean.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_TRACE_LINE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_TRACE_LINE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zarext::ctl {

struct TraceLine {
  bool isModule = false;  // it has the prefix and begins with "EXT : "
  std::uint32_t thread = 0;
  std::string time;        // as the module wrote it: "Sat Nov 21 23:46:14.046"
  std::string message;     // behind the prefix; the whole text of other programs' lines
  std::string exportName;  // "ZarOpenStoreProv"
};

// Takes "id=%i : tm=%s : EXT : name ..." apart. Any text will do.
TraceLine ParseTraceLine(std::string_view text);

// The names of identifiers, which the caller knows better.
using OidNames = std::function<std::string(const std::string& oid)>;

// What the numbers and identifiers of a message mean, a line each: error codes, ALG_IDs, provider
// types, key specifications, identifiers. Each number once.
std::vector<std::string> ExplainMessage(std::string_view message, const OidNames& oidName);

// A text from outside as lines: cut at line ends, without empty ones and without trailing blanks.
std::vector<std::string> LinesOf(std::string_view text);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_TRACE_LINE_H_
