// cache: the listing that the module's processes share, decoded.
#include <nlohmann/json.hpp>

#include "CLI/CLI.hpp"
#include "store/cache_block.h"
#include "zarextctl/command.h"
#include "zarextctl/session_objects.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr DWORD kPatience = 200;

struct CacheFacts {
  ListingState listing;
  MutexState mutex;
};

CacheFacts Gather() { return {ReadListing(kPatience), ReadMutex(kPatience)}; }

bool IsDamaged(const CacheFacts& facts) {
  return facts.listing.listing.state == SharedListing::State::kDamaged;
}

const char* StateText(const ListingState& listing) {
  if (!listing.exists) {
    return "absent";
  }
  switch (listing.listing.state) {
    case SharedListing::State::kNeverWritten:
      return "never written";
    case SharedListing::State::kSound:
      return "sound";
    case SharedListing::State::kDamaged:
      return "damaged";
  }
  return "";
}

std::string AgeText(const ListingState& listing) {
  if (listing.age < 0) {
    return "stamped " + Count(static_cast<std::size_t>(-listing.age), "second") +
           " in the future: not used";
  }
  const bool isFresh = listing.age <= kCacheLifetime;
  return Count(static_cast<std::size_t>(listing.age), "second") +
         " old: " + (isFresh ? "fresh" : "stale, not used") + " (listings live " +
         std::to_string(kCacheLifetime) + " seconds)";
}

void PrintEntry(Printer& out, const ListingEntry& entry) {
  out.Line("  " + Padded(Printable(Utf8FromAnsi(entry.container)), 24) + " " +
           Padded(HexOctets(entry.serial), 20) + " " + Hex(entry.algId) + " " +
           Count(entry.certificate.size(), "octet"));
}

void Print(Printer& out, const CacheFacts& facts) {
  const ListingState& listing = facts.listing;
  out.Line(std::string("section: ") + kStoreMappingName + ", " + StateText(listing),
           IsDamaged(facts) ? Colour::kBad : Colour::kStrong);
  if (!listing.exists) {
    out.Line("No process of this session has ZAREXT.dll loaded.");
    return;
  }
  out.Line("size: " + Count(listing.size, "octet"));
  if (facts.mutex.isHeld) {
    out.Line("mutex: held" + (facts.mutex.owner == 0 ? std::string()
                                                     : " by " + facts.mutex.ownerName + " (" +
                                                           std::to_string(facts.mutex.owner) + ")"),
             Colour::kWarning);
  } else {
    out.Line(std::string("mutex: ") + (facts.mutex.exists ? "free" : "absent"));
  }
  if (listing.listing.state == SharedListing::State::kNeverWritten) {
    return;
  }
  out.Line("stamp: " + std::to_string(listing.listing.stamp) + ", " + AgeText(listing));
  out.Line("block: " + Count(listing.listing.octets, "octet"));
  if (IsDamaged(facts)) {
    out.Line("damage: " + listing.listing.damage, Colour::kBad);
    out.Line(
        "next: close every program that has the module loaded (zarextctl status names them); the "
        "next walk over the containers also writes it anew");
  }
  out.Line("entries: " + std::to_string(listing.listing.entries.size()));
  for (const ListingEntry& entry : listing.listing.entries) {
    PrintEntry(out, entry);
  }
}

nlohmann::ordered_json AsJson(const CacheFacts& facts) {
  const ListingState& listing = facts.listing;
  nlohmann::ordered_json document;
  document["section"] = kStoreMappingName;
  document["state"] = StateText(listing);
  document["size"] = listing.size;
  document["mutexHeld"] = facts.mutex.isHeld;
  document["stamp"] = listing.listing.stamp;
  document["ageSeconds"] = listing.age;
  document["octets"] = listing.listing.octets;
  document["damage"] = listing.listing.damage;
  document["entries"] = nlohmann::ordered_json::array();
  for (const ListingEntry& entry : listing.listing.entries) {
    document["entries"].push_back({{"container", Utf8FromAnsi(entry.container)},
                                   {"serial", HexOctets(entry.serial)},
                                   {"algId", Hex(entry.algId)},
                                   {"certificateOctets", entry.certificate.size()}});
  }
  return document;
}

}  // namespace

void AddCache(CLI::App& app, Session& session) {
  CLI::App* command =
      app.add_subcommand("cache", "The listing of containers that the module's processes share");
  command->footer(
      "Exit codes: 0 it is sound, empty or absent, 1 it is damaged or its mutex is held, 2 it\n"
      "cannot be read.\n\nExample:\n  zarextctl cache --json");
  command->callback([&session] {
    session.command = [&session] {
      const CacheFacts facts = Gather();
      if (facts.listing.exists && !facts.listing.isRead) {
        throw Failure(std::string("read the section ") + kStoreMappingName, facts.listing.code,
                      "run zarextctl as the user whose programs have the module loaded");
      }
      if (session.json) {
        session.PrintJson(AsJson(facts));
      } else {
        Print(session.Results(), facts);
      }
      return IsDamaged(facts) || facts.mutex.isHeld ? kFindings : kNothingToReport;
    };
  });
}

}  // namespace zarext::ctl
