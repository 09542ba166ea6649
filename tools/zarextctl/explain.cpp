// explain: why a certificate is or is not accepted.
#include <nlohmann/json.hpp>

#include "CLI/CLI.hpp"
#include "zarextctl/command.h"
#include "zarextctl/explanation.h"
#include "zarextctl/names.h"
#include "zarextctl/oid_names.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using nlohmann::ordered_json;

struct Options {
  std::string file;
  std::string store;
  Selection selection;
  bool noContainers = false;
};

Explanation ExplainFile(const Options& options) {
  const std::vector<UniqueCertContext> certificates = ReadCertificateFile(options.file);
  const UniqueStore others(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  for (const UniqueCertContext& certificate : certificates) {
    CertAddCertificateContextToStore(others.Get(), certificate.Get(), CERT_STORE_ADD_ALWAYS,
                                     nullptr);
  }
  return Explain({certificates.front().Get(), others.Get(), !options.noContainers});
}

Explanation ExplainFromStore(const Options& options) {
  const UniqueStore store = OpenNamedStore(options.store);
  const std::vector<UniqueCertContext> found = Select(store.Get(), options.selection);
  if (found.empty()) {
    throw Failure("find the certificate in \"" + options.store + "\"",
                  static_cast<DWORD>(CRYPT_E_NOT_FOUND),
                  "see what is there with: zarextctl store list --store " + options.store);
  }
  if (found.size() > 1) {
    std::string list;
    for (const UniqueCertContext& certificate : found) {
      const CertificateText text = Describe(certificate.Get());
      list += "\n    " + text.thumbprint + "  " + text.subject;
    }
    throw Failure("choose between " + std::to_string(found.size()) + " certificates", 0,
                  "name one with --thumbprint:" + list);
  }
  return Explain({found.front().Get(), nullptr, !options.noContainers});
}

const char* StateName(StepState state) {
  return state == StepState::kPassed   ? "passed"
         : state == StepState::kFailed ? "failed"
                                       : "skipped";
}

void PrintCertificate(Printer& out, const CertificateText& text) {
  const auto line = [&](const char* label, const std::string& value) {
    out.Line(Padded(label, 12) + value, Colour::kPlain, 12);
  };
  line("subject", text.subject);
  line("issuer", text.issuer);
  line("serial", text.serial);
  line("valid", text.notBefore + " to " + text.notAfter);
  line("key", OidLabel(text.keyOid, CRYPT_PUBKEY_ALG_OID_GROUP_ID));
  line("signature", OidLabel(text.signatureOid, CRYPT_SIGN_ALG_OID_GROUP_ID));
  line("thumbprint", text.thumbprint);
  out.Line();
}

void PrintStep(Printer& out, const Step& step, bool isFirstFailure) {
  const Colour colour = step.state == StepState::kPassed   ? Colour::kGood
                        : step.state == StepState::kFailed ? Colour::kBad
                                                           : Colour::kFaint;
  const char* mark = isFirstFailure ? "-> " : "   ";
  out.Labelled(mark + Padded(StateName(step.state), 8), colour,
               Padded(step.id, 12) + Printable(step.what), 23);
  for (const std::string& detail : step.details) {
    out.Line(std::string(23, ' ') + detail);
  }
  if (step.state != StepState::kFailed) {
    return;
  }
  const ErrorText* error = FindError(step.code);
  if (step.code != 0) {
    out.Line("           code:  " + ErrorLabel(step.code) +
                 (error == nullptr ? "" : std::string(": ") + error->meaning),
             Colour::kPlain, 7);
  }
  out.Line("           cause: " + step.cause, Colour::kPlain, 7);
  out.Line("           next:  " + step.next, Colour::kPlain, 7);
  if (isFirstFailure) {
    for (const std::string& line : step.trace) {
      out.Line("           trace: " + Printable(line), Colour::kFaint, 7);
    }
  }
}

void Print(Printer& out, const Explanation& explanation) {
  PrintCertificate(out, explanation.certificate);
  const Step* const first = explanation.FirstFailure();
  for (const Step& step : explanation.steps) {
    PrintStep(out, step, &step == first);
  }
  out.Line();
  if (first == nullptr) {
    out.Line("Accepted: no step failed.", Colour::kGood);
  } else if (explanation.IsAccepted()) {
    out.Line("Accepted, but the step \"" + std::string(first->id) + "\" failed.", Colour::kWarning);
  } else {
    out.Line("Not accepted: the first failing step is \"" + std::string(first->id) + "\".",
             Colour::kBad);
  }
}

ordered_json AsJson(const Explanation& explanation) {
  const CertificateText& text = explanation.certificate;
  ordered_json document;
  document["certificate"] = {
      {"subject", text.subject},
      {"issuer", text.issuer},
      {"serial", text.serial},
      {"notBefore", text.notBefore},
      {"notAfter", text.notAfter},
      {"keyOid", text.keyOid},
      {"keyName", OidName(text.keyOid, CRYPT_PUBKEY_ALG_OID_GROUP_ID)},
      {"signatureOid", text.signatureOid},
      {"signatureName", OidName(text.signatureOid, CRYPT_SIGN_ALG_OID_GROUP_ID)},
      {"thumbprint", text.thumbprint}};
  const Step* const first = explanation.FirstFailure();
  document["accepted"] = explanation.IsAccepted();
  document["firstFailure"] = first == nullptr ? ordered_json() : ordered_json(first->id);
  document["steps"] = ordered_json::array();
  for (const Step& step : explanation.steps) {
    ordered_json item = {{"step", step.id},
                         {"state", StateName(step.state)},
                         {"what", step.what},
                         {"details", step.details}};
    if (step.state == StepState::kFailed) {
      const ErrorText* error = FindError(step.code);
      item["code"] = Hex(step.code);
      item["name"] = error == nullptr ? "" : error->name;
      item["cause"] = step.cause;
      item["next"] = step.next;
    }
    item["trace"] = step.trace;
    document["steps"].push_back(std::move(item));
  }
  return document;
}

int Run(const Session& session, const Options& options) {
  if (options.file.empty() == options.store.empty()) {
    throw Failure("choose a certificate: give either a file or --store", 0,
                  "zarextctl explain user.cer, or zarextctl explain --store MY --subject Ivanov");
  }
  const Explanation explanation =
      options.file.empty() ? ExplainFromStore(options) : ExplainFile(options);
  if (session.json) {
    session.PrintJson(AsJson(explanation));
  } else {
    Print(session.Results(), explanation);
  }
  return explanation.FirstFailure() == nullptr ? kNothingToReport : kFindings;
}

}  // namespace

void AddExplain(CLI::App& app, Session& session) {
  CLI::App* command =
      app.add_subcommand("explain", "Why a certificate is or is not accepted, step by step");
  const auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file,
                      "A certificate, DER or PEM; further ones in a PEM file help with the chain");
  command->add_option("--store", options->store,
                      "A store instead: MY, CA, ROOT and so on, or provider");
  command->add_option("--subject", options->selection.subject, "With this in the subject");
  command->add_option("--thumbprint", options->selection.thumbprint, "With this SHA-1");
  command->add_flag("--no-containers", options->noContainers,
                    "Do not look for the certificate in the provider's containers");
  command->footer(
      "Looking into the containers trusts, for this user, the roots that lie in them, as every\n"
      "open of the provider's store does.\n\n"
      "Exit codes: 0 accepted, 1 a step failed, 2 there is no certificate to explain.\n\n"
      "Example:\n  zarextctl explain user.cer");
  command->callback([&session, options] {
    session.command = [&session, options] { return Run(session, *options); };
  });
}

}  // namespace zarext::ctl
