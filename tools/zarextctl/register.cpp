// register and unregister: as regsvr32, with progress and the failing step named.
#include <nlohmann/json.hpp>

#include "CLI/CLI.hpp"
#include "zarextctl/command.h"
#include "zarextctl/installation.h"
#include "zarextctl/names.h"
#include "zarextctl/registration_state.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using nlohmann::ordered_json;

struct Options {
  std::string dll;
  bool userStore = false;
  bool withoutAes256 = false;
  bool leftOvers = false;
  bool dryRun = false;
  bool yes = false;
};

// What was done, in groups.
struct Report {
  std::vector<std::pair<std::string, std::size_t>> done;
  ordered_json extra = ordered_json::object();
};

// Asks on a console; without one only --yes goes on.
void Confirm(const Session& session, const Options& options, const std::string& question) {
  if (options.yes) {
    return;
  }
  HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  if (session.json || !session.Messages().IsConsole() || !GetConsoleMode(input, &mode)) {
    throw Failure("ask \"" + question + "\" without a console", 0,
                  "add --yes, or --dry-run to see first what would be done");
  }
  session.Messages().Line(question + " [y/N]", Colour::kStrong);
  wchar_t answer[16] = {};
  DWORD read = 0;
  ReadConsoleW(input, answer, 15, &read, nullptr);
  if (read == 0 || (answer[0] != L'y' && answer[0] != L'Y')) {
    throw Failure("go on: the answer was no", ERROR_CANCELLED, "nothing was changed");
  }
}

Progress ShowProgress(const Session& session, Report* report) {
  return [&session, report](const std::string& what, std::size_t count) {
    report->done.emplace_back(what, count);
    session.Messages().Line(Padded(what, 16) + std::to_string(count));
  };
}

void Finish(const Session& session, const Report& report, const std::string& sentence) {
  if (!session.json) {
    session.Results().Line(sentence, Colour::kGood);
    return;
  }
  ordered_json document = {{"done", sentence}};
  for (const auto& [what, count] : report.done) {
    document["counts"][what] = count;
  }
  document.update(report.extra);
  session.PrintJson(document);
}

int RunRegister(const Session& session, const Options& options) {
  Report report;
  if (options.userStore) {
    if (options.dryRun) {
      Finish(session, report,
             "Would write this user's physical store, HKCU\\" + PhysicalStoreKey() + ".");
      return kNothingToReport;
    }
    Confirm(session, options, "Write this user's physical store?");
    RegisterUserStore();
    Finish(session, report,
           "This user's \"MY\" shows the provider's certificates; programs that run already see "
           "them when they open it again.");
    return kNothingToReport;
  }
  const std::string dll =
      PathToRegister(options.dll.empty() ? Folder(ModulePath()) + "\\ZAREXT.dll" : options.dll);
  report.extra["dll"] = dll;
  const std::string bindings = options.withoutAes256 ? "474" : "475";
  if (options.dryRun) {
    Finish(session, report,
           "Would write 68 records, " + bindings + " bindings to \"" + dll +
               "\" and this user's physical store.");
    return kNothingToReport;
  }
  Confirm(session, options, "Register \"" + dll + "\"?");
  RegisterModule(dll, options.withoutAes256, ShowProgress(session, &report));
  Finish(session, report,
         "Registered \"" + dll + "\". Programs that run already see it after their next start.");
  return kNothingToReport;
}

std::vector<std::string> Lines(const LeftOvers& leftOvers) {
  std::vector<std::string> lines;
  for (const OidRecord& record : leftOvers.records) {
    lines.push_back("record " + RecordKey(record));
  }
  for (const Binding& binding : leftOvers.bindings) {
    lines.push_back("binding " + BindingKey(binding));
  }
  for (const std::string& key : leftOvers.emptyKeys) {
    lines.push_back("empty key " + key);
  }
  return lines;
}

// They are shown before anything asks whether to remove them.
void RemoveShown(const Session& session, const Options& options, Report* report) {
  const LeftOvers leftOvers = FindLeftOvers();
  const std::vector<std::string> lines = Lines(leftOvers);
  report->extra["leftOvers"] = lines;
  if (!session.json) {
    session.Results().Line(leftOvers.IsEmpty() ? "Nothing is left over." : "Left over:");
    for (const std::string& line : lines) {
      session.Results().Line("  " + line);
    }
  }
  if (options.dryRun || leftOvers.IsEmpty()) {
    return;
  }
  Confirm(session, options, "Remove these " + std::to_string(lines.size()) + " entries?");
  RemoveLeftOvers(leftOvers);
  report->done.emplace_back("left-over records", leftOvers.records.size());
  report->done.emplace_back("left-over bindings", leftOvers.bindings.size());
  report->done.emplace_back("empty keys", leftOvers.emptyKeys.size());
}

int RunUnregister(const Session& session, const Options& options) {
  Report report;
  if (options.dryRun) {
    if (options.leftOvers) {
      RemoveShown(session, options, &report);
    }
    Finish(
        session, report,
        "Would remove what regsvr32 /u removes: records, bindings and this user's physical store.");
    return kNothingToReport;
  }
  Confirm(session, options, "Unregister ZAREXT.dll?");
  const std::size_t count = UnregisterModule(ShowProgress(session, &report));
  if (options.leftOvers) {
    RemoveShown(session, options, &report);
  }
  const LeftOvers staying = options.leftOvers ? LeftOvers{} : FindLeftOvers();
  const std::size_t left = staying.records.size() + staying.bindings.size();
  Finish(
      session, report,
      (count == 0 ? std::string("Nothing was registered.") : "Unregistered ZAREXT.dll.") +
          (left == 0 ? ""
                     : " " + std::to_string(left) +
                           " entries stay, as with regsvr32 /u; zarextctl unregister --leftovers "
                           "removes them."));
  return kNothingToReport;
}

void AddCommon(CLI::App& command, Options& options) {
  command.add_flag("--dry-run", options.dryRun, "Say what would be done, and change nothing");
  command.add_flag("--yes", options.yes, "Do not ask");
}

}  // namespace

void AddRegister(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand(
      "register", "Register ZAREXT.dll as regsvr32 does, naming the step that fails");
  const auto options = std::make_shared<Options>();
  command->add_option("--dll", options->dll, "The DLL (otherwise the one beside zarextctl.exe)");
  command->add_flag("--user-store", options->userStore,
                    "Only the physical store of the user who runs this; needs no administrator");
  command->add_flag("--without-aes256", options->withoutAes256,
                    "Without the binding that keeps other programs from AES-256 messages");
  AddCommon(*command, *options);
  command->footer(
      "Needs an administrator's command prompt, except for --user-store. Asks first on a console;\n"
      "without one it does nothing unless --yes is given.\n\n"
      "Exit codes: 0 done, 2 not done.\n\nExample:\n  zarextctl register --yes");
  command->callback([&session, options] {
    session.command = [&session, options] { return RunRegister(session, *options); };
  });
}

void AddUnregister(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand("unregister", "Unregister ZAREXT.dll as regsvr32 /u does");
  const auto options = std::make_shared<Options>();
  command->add_flag("--leftovers", options->leftOvers,
                    "Also show and remove what regsvr32 /u leaves");
  AddCommon(*command, *options);
  command->footer(
      "Needs an administrator's command prompt. Asks first on a console; without one it does\n"
      "nothing unless --yes is given.\n\n"
      "Exit codes: 0 done, 2 not done.\n\nExample:\n  zarextctl unregister --leftovers --dry-run");
  command->callback([&session, options] {
    session.command = [&session, options] { return RunUnregister(session, *options); };
  });
}

}  // namespace zarext::ctl
