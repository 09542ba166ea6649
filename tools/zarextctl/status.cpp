// status: what is installed, and what is wrong with it.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "CLI/CLI.hpp"
#include "store/log_file.h"
#include "zarextctl/command.h"
#include "zarextctl/findings.h"
#include "zarextctl/names.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using nlohmann::ordered_json;

template <typename Items>
std::size_t Present(const Items& items) {
  return static_cast<std::size_t>(
      std::ranges::count(items, ItemState::kPresent, [](const auto& item) { return item.state; }));
}

std::string FileText(const ModuleFile& file) {
  if (!file.exists) {
    return file.path + ", not there";
  }
  std::string text = file.path;
  text += file.version.empty() ? ", no version" : ", version " + file.version;
  text += ", " + SignatureText(file.signature);
  text += file.loadCode == 0 ? ", loads" : ", does not load: " + ErrorLabel(file.loadCode);
  return text;
}

std::string ProviderText(const ProviderFacts& provider) {
  const std::string name = "\"" + provider.name + "\": ";
  if (!provider.isRegistered) {
    return name + "not registered";
  }
  return name + (provider.isPathUsable ? FileText(provider.file) : provider.imagePath);
}

std::string LogText(const LogFacts& log) {
  const std::string path = kLogFile;
  if (!log.exists) {
    return path + ", not there: nothing is logged until somebody creates it";
  }
  if (!log.isFile) {
    return path + ", no file";
  }
  return path + (log.writeCode == 0 ? ", can be written"
                                    : ", cannot be written: " + ErrorLabel(log.writeCode));
}

std::string ListingText(const StatusFacts& facts) {
  const ListingState& listing = facts.listing;
  if (!listing.exists) {
    return "absent: no process of this session has the module loaded";
  }
  const std::string mutex = facts.mutex.isHeld ? "mutex held" : "mutex free";
  switch (listing.listing.state) {
    case SharedListing::State::kNeverWritten:
      return "never written, " + mutex;
    case SharedListing::State::kDamaged:
      return "damaged, " + mutex;
    case SharedListing::State::kSound:
      break;
  }
  return Count(listing.listing.entries.size(), "key") + ", " + std::to_string(listing.age) +
         " seconds old, " + mutex;
}

// With --all: everything that is looked at.
template <typename Items, typename Describe>
void PrintItems(Printer& out, const char* title, const Items& items, Describe describe) {
  out.Line();
  out.Line(std::string(title) + ":", Colour::kStrong);
  for (const auto& item : items) {
    out.Line("  " + Padded(StateName(item.state), 17) + describe(item),
             item.state == ItemState::kPresent ? Colour::kPlain : Colour::kWarning, 17);
  }
}

void PrintAll(Printer& out, const RegistrationState& registration) {
  PrintItems(out, "records", registration.records, [](const RecordState& item) {
    return Padded(std::to_string(item.record.number), 3) + item.record.oid + " (" +
           GroupName(item.record.group) + ") " + Utf8(item.record.name) +
           (item.detail.empty() ? "" : ": " + item.detail);
  });
  PrintItems(out, "bindings", registration.bindings, [](const BindingState& item) {
    std::string text = std::string(item.binding.function) + " " + item.binding.oid + " -> " +
                       item.binding.exportName;
    const bool isOther = item.state != ItemState::kPresent && item.state != ItemState::kMissing;
    return text + (isOther ? ": " + item.dll + " " + item.function : "");
  });
}

void PrintFinding(Printer& out, const Finding& finding) {
  const Colour colour = finding.severity == Severity::kError     ? Colour::kBad
                        : finding.severity == Severity::kWarning ? Colour::kWarning
                                                                 : Colour::kCyan;
  out.Line();
  out.Labelled(SeverityName(finding.severity), colour,
               ": " + finding.what + " [" + finding.id + "]");
  out.Line("  cause: " + finding.cause);
  out.Line("  mend:  " + finding.mend);
}

std::size_t FindingsIn(const std::vector<Finding>& findings) {
  return static_cast<std::size_t>(std::ranges::count_if(
      findings, [](const Finding& finding) { return finding.severity != Severity::kNote; }));
}

void Print(Printer& out, const StatusFacts& facts, const std::vector<Finding>& findings, bool all) {
  const RegistrationState& registration = facts.registration;
  const auto line = [&](const char* label, const std::string& text) {
    out.Line(Padded(label, 12) + text, Colour::kPlain, 12);
  };
  line("module", FileText(facts.module));
  line("records", std::to_string(Present(registration.records)) + " of " +
                      std::to_string(registration.records.size()) + " present");
  line("bindings", std::to_string(Present(registration.bindings)) + " of " +
                       std::to_string(registration.bindings.size()) + " present");
  line("store",
       std::string("this user's physical store: ") + StateName(registration.physicalStore.state));
  for (const ProviderFacts& provider : facts.providers) {
    line("provider", ProviderText(provider));
  }
  line("log", LogText(facts.log));
  line("listing", ListingText(facts));
  for (const ProcessName& process : facts.processes) {
    line("loaded by", process.name + " (" + std::to_string(process.id) + ")");
  }
  for (const Finding& finding : findings) {
    PrintFinding(out, finding);
  }
  if (all) {
    PrintAll(out, registration);
  }
  out.Line();
  const std::size_t count = FindingsIn(findings);
  out.Line(count == 0 ? "Nothing is wrong." : Count(count, "finding") + ".",
           count == 0 ? Colour::kGood : Colour::kWarning);
}

ordered_json FileJson(const ModuleFile& file) {
  return {{"path", file.path},
          {"exists", file.exists},
          {"version", file.version},
          {"signature", SignatureText(file.signature)},
          {"loads", file.loadCode == 0},
          {"loadCode", Hex(file.loadCode)},
          {"missingFunctions", file.missing}};
}

ordered_json ProviderJson(const ProviderFacts& provider) {
  ordered_json document = {{"name", provider.name},
                           {"registered", provider.isRegistered},
                           {"imagePath", provider.imagePath}};
  document["type"] = provider.type ? ordered_json(*provider.type) : ordered_json();
  document["file"] = FileJson(provider.file);
  document["writableBy"] = provider.writers;
  return document;
}

ordered_json RegistrationJson(const RegistrationState& registration, bool all) {
  ordered_json document;
  document["recordsPresent"] = Present(registration.records);
  document["records"] = registration.records.size();
  document["bindingsPresent"] = Present(registration.bindings);
  document["bindings"] = registration.bindings.size();
  document["physicalStore"] = StateName(registration.physicalStore.state);
  // What is not as it should be, or everything.
  document["items"] = ordered_json::array();
  for (const RecordState& item : registration.records) {
    if (all || item.state != ItemState::kPresent) {
      document["items"].push_back({{"kind", "record"},
                                   {"key", item.key},
                                   {"row", item.record.number},
                                   {"state", StateName(item.state)},
                                   {"detail", item.detail}});
    }
  }
  for (const BindingState& item : registration.bindings) {
    if (all || item.state != ItemState::kPresent) {
      document["items"].push_back({{"kind", "binding"},
                                   {"key", item.key},
                                   {"state", StateName(item.state)},
                                   {"dll", item.dll},
                                   {"function", item.function}});
    }
  }
  for (const ForeignBinding& item : registration.foreign) {
    document["items"].push_back({{"kind", "foreign"},
                                 {"key", item.key},
                                 {"state", "left over"},
                                 {"dll", item.dll},
                                 {"function", item.function}});
  }
  return document;
}

ordered_json AsJson(const StatusFacts& facts, const std::vector<Finding>& findings, bool all) {
  ordered_json document;
  document["module"] = FileJson(facts.module);
  document["registration"] = RegistrationJson(facts.registration, all);
  document["providers"] = ordered_json::array();
  for (const ProviderFacts& provider : facts.providers) {
    document["providers"].push_back(ProviderJson(provider));
  }
  document["log"] = {{"path", kLogFile},
                     {"exists", facts.log.exists},
                     {"writable", facts.log.isFile && facts.log.writeCode == 0},
                     {"replaceableBy", facts.log.replacers}};
  document["listing"] = {{"exists", facts.listing.exists},
                         {"damage", facts.listing.listing.damage},
                         {"keys", facts.listing.listing.entries.size()},
                         {"ageSeconds", facts.listing.age},
                         {"mutexHeld", facts.mutex.isHeld}};
  document["loadedBy"] = ordered_json::array();
  for (const ProcessName& process : facts.processes) {
    document["loadedBy"].push_back({{"process", process.id}, {"name", process.name}});
  }
  document["findings"] = ordered_json::array();
  for (const Finding& finding : findings) {
    document["findings"].push_back({{"id", finding.id},
                                    {"severity", SeverityName(finding.severity)},
                                    {"what", finding.what},
                                    {"cause", finding.cause},
                                    {"mend", finding.mend}});
  }
  return document;
}

void PrintChecks(Printer& out) {
  for (const Check& check : Checks()) {
    out.Line(Padded(check.name, 18) + check.looksAt, Colour::kPlain, 18);
  }
}

struct Options {
  bool all = false;
  bool checks = false;
  std::string dll;
};

}  // namespace

void AddStatus(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand("status", "What is installed, and what is wrong with it");
  const auto options = std::make_shared<Options>();
  command->add_flag("--all", options->all, "Also list every record and binding");
  command->add_flag("--checks", options->checks, "Only list what is checked");
  command->add_option("--dll", options->dll,
                      "The DLL that bindings should name (otherwise the one that most name)");
  command->footer(
      "Exit codes: 0 nothing is wrong (notes do not count), 1 there are findings, 2 it could not\n"
      "be looked at.\n\nExample:\n  zarextctl status --all > status.txt");
  command->callback([&session, options] {
    session.command = [&session, options] {
      if (options->checks) {
        PrintChecks(session.Results());
        return kNothingToReport;
      }
      const StatusFacts facts = GatherStatus(options->dll);
      const std::vector<Finding> findings = RunChecks(facts);
      if (session.json) {
        session.PrintJson(AsJson(facts, findings, options->all));
      } else {
        Print(session.Results(), facts, findings, options->all);
      }
      return FindingsIn(findings) == 0 ? kNothingToReport : kFindings;
    };
  });
}

}  // namespace zarext::ctl
