// store: the certificates that the provider's store offers, and those of "MY".
#include <nlohmann/json.hpp>

#include "CLI/CLI.hpp"
#include "zarextctl/certificates.h"
#include "zarextctl/command.h"
#include "zarextctl/names.h"
#include "zarextctl/oid_names.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using nlohmann::ordered_json;

struct Entry {
  CertificateText text;
  std::optional<KeyTie> tie;
  KeyProbe probe;  // only with a tie
};

struct StoreFacts {
  std::string name;
  DWORD code = 0;          // why it does not open
  DWORD milliseconds = 0;  // for opening it; of the provider's store, the walk over the containers
  std::vector<Entry> entries;
};

struct Options {
  Selection selection;
  std::string store;
};

StoreFacts Gather(const std::string& name, const Selection& selection) {
  StoreFacts facts;
  facts.name = name;
  const ULONGLONG start = GetTickCount64();
  try {
    const UniqueStore store = OpenNamedStore(name);
    facts.milliseconds = static_cast<DWORD>(GetTickCount64() - start);
    for (const UniqueCertContext& certificate : Select(store.Get(), selection)) {
      Entry entry = {Describe(certificate.Get()), ReadTie(certificate.Get()), {}};
      if (entry.tie) {
        entry.probe = ProbeKey(*entry.tie);
      }
      facts.entries.push_back(std::move(entry));
    }
  } catch (const Failure& failure) {
    // A thumbprint that is none is the caller's; a store that does not open is a result.
    if (failure.Code() == 0) {
      throw;
    }
    facts.code = failure.Code();
  }
  return facts;
}

std::vector<StoreFacts> GatherAll(const Options& options) {
  std::vector<StoreFacts> all;
  for (const char* name : {kProviderStoreName, "MY"}) {
    if (options.store.empty() || SameIgnoringCase(options.store, name)) {
      all.push_back(Gather(name, options.selection));
    }
  }
  if (all.empty()) {
    all.push_back(Gather(options.store, options.selection));
  }
  return all;
}

std::string KeyText(const Entry& entry) {
  if (!entry.tie) {
    return "tied to no container";
  }
  const std::string state = entry.probe.keyCode == 0
                                ? "private key there"
                                : "no private key: " + ErrorLabel(entry.probe.keyCode);
  return state + ", " + std::to_string(entry.probe.milliseconds) + " ms";
}

std::string TieText(const KeyTie& tie) {
  return Printable(Utf8(tie.container)) + ", " +
         (tie.provider.empty() ? "no provider named" : Utf8(tie.provider)) + " (type " +
         std::to_string(tie.type) + "), " + KeySpecName(tie.keySpec);
}

bool IsKeyMissing(const Entry& entry) { return entry.tie && entry.probe.keyCode != 0; }

void PrintEntry(Printer& out, const Entry& entry, bool isWhole) {
  out.Line("  " + entry.text.subject, Colour::kStrong, 2);
  if (isWhole) {
    out.Line("    issuer:     " + entry.text.issuer, Colour::kPlain, 12);
    out.Line("    thumbprint: " + entry.text.thumbprint, Colour::kPlain, 12);
    out.Line("    signature:  " + OidLabel(entry.text.signatureOid, CRYPT_SIGN_ALG_OID_GROUP_ID),
             Colour::kPlain, 12);
  }
  out.Line("    serial:     " + entry.text.serial, Colour::kPlain, 12);
  out.Line("    valid:      " + entry.text.notBefore + " to " + entry.text.notAfter, Colour::kPlain,
           12);
  out.Line("    algorithm:  " + OidLabel(entry.text.keyOid, CRYPT_PUBKEY_ALG_OID_GROUP_ID),
           Colour::kPlain, 12);
  if (entry.tie) {
    out.Line("    container:  " + TieText(*entry.tie), Colour::kPlain, 12);
  }
  out.Line("    key:        " + KeyText(entry), IsKeyMissing(entry) ? Colour::kBad : Colour::kPlain,
           12);
}

void Print(Printer& out, const std::vector<StoreFacts>& all, bool isWhole) {
  for (const StoreFacts& facts : all) {
    if (facts.code != 0) {
      out.Line(facts.name + ": does not open: " + ErrorLabel(facts.code), Colour::kBad);
      out.Line("  next: zarextctl status");
      continue;
    }
    out.Line(facts.name + ": " + Count(facts.entries.size(), "certificate") + ", opened in " +
                 std::to_string(facts.milliseconds) + " ms",
             Colour::kStrong);
    for (const Entry& entry : facts.entries) {
      PrintEntry(out, entry, isWhole);
    }
  }
}

ordered_json EntryJson(const Entry& entry) {
  ordered_json document = {{"subject", entry.text.subject},
                           {"issuer", entry.text.issuer},
                           {"serial", entry.text.serial},
                           {"notBefore", entry.text.notBefore},
                           {"notAfter", entry.text.notAfter},
                           {"keyOid", entry.text.keyOid},
                           {"signatureOid", entry.text.signatureOid},
                           {"thumbprint", entry.text.thumbprint}};
  if (entry.tie) {
    document["container"] = Utf8(entry.tie->container);
    document["provider"] = Utf8(entry.tie->provider);
    document["providerType"] = entry.tie->type;
    document["keySpec"] = KeySpecName(entry.tie->keySpec);
    document["privateKey"] = entry.probe.keyCode == 0;
    document["code"] = Hex(entry.probe.keyCode);
    document["milliseconds"] = entry.probe.milliseconds;
  }
  return document;
}

ordered_json AsJson(const std::vector<StoreFacts>& all) {
  ordered_json document;
  document["stores"] = ordered_json::array();
  for (const StoreFacts& facts : all) {
    ordered_json store = {{"name", facts.name},
                          {"code", Hex(facts.code)},
                          {"milliseconds", facts.milliseconds},
                          {"certificates", ordered_json::array()}};
    for (const Entry& entry : facts.entries) {
      store["certificates"].push_back(EntryJson(entry));
    }
    document["stores"].push_back(std::move(store));
  }
  return document;
}

bool HasFindings(const std::vector<StoreFacts>& all) {
  return std::ranges::any_of(all, [](const StoreFacts& facts) {
    return facts.code != 0 || std::ranges::any_of(facts.entries, IsKeyMissing);
  });
}

int Run(const Session& session, const Options& options, bool isWhole) {
  const std::vector<StoreFacts> all = GatherAll(options);
  if (session.json) {
    session.PrintJson(AsJson(all));
  } else {
    Print(session.Results(), all, isWhole);
  }
  return HasFindings(all) ? kFindings : kNothingToReport;
}

}  // namespace

void AddStore(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand(
      "store", "The certificates that the provider's store offers, and those of \"MY\"");
  const auto options = std::make_shared<Options>();
  const auto what = std::make_shared<std::string>("list");
  command->add_option("list|show", *what, "In short, or with all details (list)")
      ->check(CLI::IsMember({"list", "show"}));
  command->add_option("--store", options->store, "Only this store: provider, MY, CA and so on");
  command->add_option("--subject", options->selection.subject, "Only with this in the subject");
  command->add_option("--thumbprint", options->selection.thumbprint,
                      "Only the one with this SHA-1");
  command->footer(
      "The provider's store is opened as programs open it: the first open walks over all\n"
      "containers and tokens, and trusts the roots that it finds in them for this user. The times\n"
      "show a slow token.\n\n"
      "Exit codes: 0 every key is there, 1 a store does not open or a key is missing, 2 not "
      "done.\n\n"
      "Example:\n  zarextctl store show --subject Ivanov");
  command->callback([&session, options, what] {
    session.command = [&session, options, what] { return Run(session, *options, *what == "show"); };
  });
}

}  // namespace zarext::ctl
