// What every command is made of: options, a function that gathers facts into a plain struct, one
// that prints it, one that writes it as JSON.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_COMMAND_H_
#define ZAREXT_TOOLS_ZAREXTCTL_COMMAND_H_

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "zarextctl/failure.h"
#include "zarextctl/printer.h"

namespace CLI {
class App;
}

namespace zarext::ctl {

// One run of the tool.
class Session {
 public:
  Session(Printer& results, Printer& messages) : results_(results), messages_(messages) {}

  // Results; with --json one document and nothing else.
  [[nodiscard]] Printer& Results() const { return results_; }
  // Everything that is no result.
  [[nodiscard]] Printer& Messages() const { return messages_; }
  void PrintJson(const nlohmann::ordered_json& document) const;

  bool json = false;
  // The chosen command; returns an exit code of failure.h, throws Failure.
  std::function<int()> command;

 private:
  Printer& results_;
  Printer& messages_;
};

// Each adds its command to the options; the session runs it once they are read.
void AddStatus(CLI::App& app, Session& session);
void AddTrace(CLI::App& app, Session& session);
void AddExplain(CLI::App& app, Session& session);
void AddStore(CLI::App& app, Session& session);
void AddCache(CLI::App& app, Session& session);
void AddOid(CLI::App& app, Session& session);
void AddRegister(CLI::App& app, Session& session);
void AddUnregister(CLI::App& app, Session& session);

// The tool with these arguments (UTF-8, without the program's name); its exit code.
int RunTool(const std::vector<std::string>& arguments);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_COMMAND_H_
