// The listing of container keys that the processes of a session share, decoded for people. What
// lies there may come from anybody: nothing is believed.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_SHARED_LISTING_H_
#define ZAREXT_TOOLS_ZAREXTCTL_SHARED_LISTING_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zarext::ctl {

struct ListingEntry {
  std::string container;  // in the ANSI code page of whoever wrote it
  std::vector<std::uint8_t> serial;
  std::vector<std::uint8_t> certificate;
  std::uint32_t algId = 0;
};

struct SharedListing {
  enum class State { kNeverWritten, kSound, kDamaged };

  State state = State::kNeverWritten;
  std::uint32_t stamp = 0;            // seconds since 1970, low 32 bits
  std::uint32_t octets = 0;           // of the block, as its header says
  std::string damage;                 // how it is damaged
  std::vector<ListingEntry> entries;  // those before the damage
};

// Decodes a copy of the section (header and what follows, as long as the section is).
SharedListing DecodeSharedListing(std::span<const std::uint8_t> section);

// Seconds since the block was written; a stamp from the future gives a negative number.
std::int64_t AgeOf(std::uint32_t stamp, std::int64_t now);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_SHARED_LISTING_H_
