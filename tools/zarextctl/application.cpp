#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CLI/CLI.hpp"
#include "version.h"
#include "zarextctl/command.h"
#include "zarextctl/names.h"
#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

constexpr char kDescription[] =
    "zarextctl shows what of ZAREXT.dll is installed, what it does, and why a certificate is not "
    "accepted.";
constexpr char kFooter[] =
    "Exit codes: 0 nothing to report, 1 findings, 2 it could not be done.\n"
    "Results go to standard output, everything else to standard error. Colours are used on a\n"
    "console only, and not if NO_COLOR is set.\n\n"
    "Example:\n  zarextctl status";

void Report(const Session& session, const std::string& tried, std::uint32_t code,
            const std::string& next) {
  const ErrorText* error = FindError(code);
  if (session.json) {
    nlohmann::ordered_json document;
    document["error"]["tried"] = tried;
    document["error"]["code"] = code == 0 ? "" : Hex(code);
    document["error"]["name"] = error == nullptr || code == 0 ? "" : error->name;
    document["error"]["next"] = next;
    session.PrintJson(document);
    return;
  }
  session.Messages().Labelled("error: ", Colour::kBad, "could not " + tried + ".");
  if (code != 0) {
    session.Messages().Line("  " + ErrorLabel(code) +
                            (error == nullptr ? "" : std::string(": ") + error->meaning));
  }
  session.Messages().Line("  next: " + next);
}

int Run(const Session& session) {
  try {
    return session.command();
  } catch (const Failure& failure) {
    Report(session, failure.what(), failure.Code(), failure.Next());
  } catch (const std::exception& exception) {
    Report(
        session,
        std::string("go on after an unexpected failure of zarextctl itself: ") + exception.what(),
        0, "report this with the command line that was used");
  }
  return kNotDone;
}

void PrintLines(Printer& printer, const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    printer.Line(line);
  }
}

// CLI11 says of a word that is no command only that a command is required.
bool IsUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
  return !arguments.empty() && !arguments.front().starts_with('-') &&
         app.get_subcommands(
                [&](const CLI::App* command) { return command->get_name() == arguments.front(); })
             .empty();
}

int ReportParsing(const CLI::App& app, const Session& session, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = app.exit(error, out, err);
  if (code == 0) {
    PrintLines(session.Results(), out.str());
    return kNothingToReport;
  }
  Report(session, std::string("read the command line: ") + error.what(), 0, "see zarextctl --help");
  return kNotDone;
}

}  // namespace

void Session::PrintJson(const nlohmann::ordered_json& document) const {
  // What comes from outside need not be UTF-8.
  PrintLines(results_,
             document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

int RunTool(const std::vector<std::string>& arguments) {
  Printer results(STD_OUTPUT_HANDLE);
  Printer messages(STD_ERROR_HANDLE);
  Session session(results, messages);
  CLI::App app(kDescription, "zarextctl");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.set_version_flag("--version", "zarextctl " ZAREXT_VERSION_TEXT);
  AddStatus(app, session);
  AddTrace(app, session);
  AddExplain(app, session);
  AddStore(app, session);
  AddCache(app, session);
  AddOid(app, session);
  AddRegister(app, session);
  AddUnregister(app, session);
  for (CLI::App* command : app.get_subcommands({})) {
    command->add_flag("--json", session.json, "One JSON document on standard output");
  }
  // A failure to read the command line is JSON too.
  session.json = std::ranges::find(arguments, "--json") != arguments.end();
  if (IsUnknownCommand(app, arguments)) {
    Report(session, "find the command \"" + Printable(arguments.front()) + "\"", 0,
           "see zarextctl --help");
    return kNotDone;
  }
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(std::move(reversed));
  } catch (const CLI::ParseError& error) {
    return ReportParsing(app, session, error);
  }
  return Run(session);
}

}  // namespace zarext::ctl
