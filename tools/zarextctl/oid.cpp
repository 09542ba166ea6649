// oid TEXT: what the system knows of an identifier or an ALG_ID.
#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>

#include "CLI/CLI.hpp"
#include "asn1/oid.h"
#include "keyinfo/algorithm_map.h"
#include "zarextctl/command.h"
#include "zarextctl/names.h"
#include "zarextctl/registration_state.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

struct OidFacts {
  std::string text;
  std::optional<std::uint32_t> algId;  // otherwise an identifier
  std::string meaning;
  std::string family;
  std::string exportedAs;  // the identifier of a key with this ALG_ID
  std::optional<ImportRule> importedAs;
  std::vector<RecordState> records;
  std::vector<BindingState> bindings;
};

// "0xAA3A", "AA3A" with at least one letter, or a decimal number.
std::optional<std::uint32_t> ReadAlgId(const std::string& text) {
  const bool isHex = text.find_first_of("abcdefABCDEFxX") != std::string::npos;
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, isHex ? 16 : 10);
  if (text.empty() || *end != '\0' || text[0] == '-') {
    return std::nullopt;
  }
  return number;
}

bool Concerns(const OidRecord& record, const OidFacts& facts) {
  return facts.algId ? record.algorithm == *facts.algId || record.extra[0] == *facts.algId
                     : facts.text == record.oid;
}

OidFacts Gather(const std::string& text) {
  OidFacts facts;
  facts.text = text;
  if (!LooksLikeOid(text)) {
    facts.algId = ReadAlgId(text);
    if (!facts.algId) {
      throw Failure("read \"" + text + "\" as an identifier or as an ALG_ID", 0,
                    "give an identifier such as 1.2.643.2.2.19 or an ALG_ID such as 0xAA3A");
    }
  }
  for (const OidRecord& record : records::kTable) {
    if (Concerns(record, facts)) {
      facts.records.push_back(ReadRecord(record));
    }
  }
  if (facts.algId) {
    facts.meaning = AlgorithmMeaning(*facts.algId);
    facts.exportedAs = OidOfAlgorithm(*facts.algId);
    return facts;
  }
  facts.meaning = GeneralOidName(text);
  facts.family = FamilyLabel(text.c_str());
  if (IsOwnAlgorithmOid(text.c_str()) && TravelsAsOctetString(text.c_str())) {
    facts.importedAs = ImportRuleOf(text.c_str());
  }
  const std::string dll = RegisteredDll();
  for (const Binding& binding : AllBindings()) {
    if (text == binding.oid) {
      facts.bindings.push_back(ReadBinding(binding, dll));
    }
  }
  return facts;
}

bool IsKnownAndPresent(const OidFacts& facts) {
  const auto isPresent = [](const auto& item) { return item.state == ItemState::kPresent; };
  return (!facts.records.empty() || !facts.bindings.empty()) &&
         std::ranges::all_of(facts.records, isPresent) &&
         std::ranges::all_of(facts.bindings, isPresent);
}

std::string ExtraText(const ExtraValues& extra) {
  return Hex(extra[0]) + ", " + Hex(extra[1]) + ", " + std::to_string(extra[2]);
}

void PrintState(Printer& out, const std::string& text, ItemState state, const std::string& detail) {
  out.Line("  " + Padded(StateName(state), 17) + text + (detail.empty() ? "" : ": " + detail),
           state == ItemState::kPresent ? Colour::kPlain : Colour::kWarning, 17);
}

void Print(Printer& out, const OidFacts& facts) {
  out.Line((facts.algId ? "ALG_ID " + Hex(*facts.algId) : facts.text) +
               (facts.meaning.empty() ? "" : ": " + facts.meaning),
           Colour::kStrong);
  if (facts.algId) {
    out.Line("exported as: " + facts.exportedAs);
  } else {
    out.Line("family: " + facts.family);
  }
  if (facts.importedAs) {
    out.Line("imported as: " + Hex(facts.importedAs->aiKeyAlg) + ", " +
             std::to_string(facts.importedAs->bitLength) + " bits");
  }
  out.Line(facts.records.empty() ? "records: none"
                                 : "records (" + Count(facts.records.size(), "row") + "):");
  for (const RecordState& state : facts.records) {
    const OidRecord& record = state.record;
    PrintState(out,
               std::string(facts.algId ? record.oid : "") + (facts.algId ? " " : "") +
                   GroupName(record.group) + " \"" + Utf8(record.name) + "\", ALG_ID " +
                   Hex(record.algorithm) + ", extra " + ExtraText(record.extra),
               state.state, state.detail);
  }
  if (facts.algId) {
    return;
  }
  out.Line(facts.bindings.empty() ? "bindings: none"
                                  : "bindings (" + std::to_string(facts.bindings.size()) + "):");
  for (const BindingState& state : facts.bindings) {
    PrintState(out, std::string(state.binding.function) + " -> " + state.binding.exportName,
               state.state, state.state == ItemState::kPresent ? "" : state.dll);
  }
}

nlohmann::ordered_json AsJson(const OidFacts& facts) {
  nlohmann::ordered_json document;
  document["text"] = facts.text;
  document["kind"] = facts.algId ? "ALG_ID" : "identifier";
  document["meaning"] = facts.meaning;
  if (facts.algId) {
    document["algId"] = Hex(*facts.algId);
    document["exportedAs"] = facts.exportedAs;
  } else {
    document["family"] = facts.family;
    if (facts.importedAs) {
      document["importedAs"] = {{"algId", Hex(facts.importedAs->aiKeyAlg)},
                                {"bits", facts.importedAs->bitLength}};
    }
  }
  document["records"] = nlohmann::ordered_json::array();
  for (const RecordState& state : facts.records) {
    const OidRecord& record = state.record;
    document["records"].push_back({{"row", record.number},
                                   {"oid", record.oid},
                                   {"group", GroupName(record.group)},
                                   {"name", Utf8(record.name)},
                                   {"algId", Hex(record.algorithm)},
                                   {"extra", {record.extra[0], record.extra[1], record.extra[2]}},
                                   {"state", StateName(state.state)},
                                   {"detail", state.detail}});
  }
  document["bindings"] = nlohmann::ordered_json::array();
  for (const BindingState& state : facts.bindings) {
    document["bindings"].push_back({{"function", state.binding.function},
                                    {"encodingType", state.binding.encodingType},
                                    {"export", state.binding.exportName},
                                    {"state", StateName(state.state)},
                                    {"dll", state.dll},
                                    {"boundTo", state.function}});
  }
  return document;
}

}  // namespace

void AddOid(CLI::App& app, Session& session) {
  CLI::App* command =
      app.add_subcommand("oid", "What the system knows of an object identifier or an ALG_ID");
  const auto text = std::make_shared<std::string>();
  command->add_option("TEXT", *text, "Identifier (1.2.643.2.2.19) or ALG_ID (0xAA3A)")->required();
  command->footer(
      "Exit codes: 0 all that this version registers for it is there, 1 something is missing, or\n"
      "this version registers nothing for it, 2 the text is neither.\n\nExample:\n"
      "  zarextctl oid 1.2.398.3.10.1.1.1.1");
  command->callback([&session, text] {
    session.command = [&session, text] {
      const OidFacts facts = Gather(*text);
      if (session.json) {
        session.PrintJson(AsJson(facts));
      } else {
        Print(session.Results(), facts);
      }
      return IsKnownAndPresent(facts) ? kNothingToReport : kFindings;
    };
  });
}

}  // namespace zarext::ctl
