#include "unit/ctl_properties.h"

#include <algorithm>

#include "zarextctl/der_kind.h"
#include "zarextctl/registry_value.h"
#include "zarextctl/shared_listing.h"
#include "zarextctl/text.h"
#include "zarextctl/trace_line.h"

namespace zarext::test {
namespace {

bool HasControls(const std::string& text) {
  return std::ranges::any_of(text, [](char letter) {
    return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F;
  });
}

// Nothing that is printed of it may steer a console or grow without bound.
std::string CheckShown(const std::string& text) {
  if (HasControls(text)) {
    return "a control character is shown";
  }
  return text.size() > 4096 ? "more than a page is shown" : "";
}

}  // namespace

std::string CheckCertificateFile(std::span<const std::uint8_t> octets) {
  const std::string why = ctl::WhyNoCertificate(octets);
  const std::string wrong = CheckShown(why) + CheckShown(ctl::PemName(octets));
  // What passes has the outer form: SEQUENCE, and a length that is there.
  if (wrong.empty() && why.empty() && (octets.size() < 2 || octets[0] != 0x30)) {
    return "accepted without a SEQUENCE";
  }
  return wrong;
}

std::string CheckListing(std::span<const std::uint8_t> octets) {
  const ctl::SharedListing listing = ctl::DecodeSharedListing(octets);
  const bool isDamaged = listing.state == ctl::SharedListing::State::kDamaged;
  if (isDamaged == listing.damage.empty()) {
    return "damaged without a word, or sound with one";
  }
  std::size_t size = 0;
  for (const ctl::ListingEntry& entry : listing.entries) {
    size += entry.container.size() + entry.serial.size() + entry.certificate.size();
  }
  return size > octets.size() ? "more content than octets" : CheckShown(listing.damage);
}

std::string CheckTraceText(std::span<const std::uint8_t> octets) {
  const std::string text(octets.begin(), octets.end());
  for (const std::string& line : ctl::LinesOf(text)) {
    const ctl::TraceLine parsed = ctl::ParseTraceLine(line);
    if (!line.ends_with(parsed.message)) {
      return "a message that is not the end of its line";
    }
    if (parsed.isModule != parsed.message.starts_with("EXT : ") && parsed.isModule) {
      return "a line of the module without its mark";
    }
    for (const std::string& meaning : ctl::ExplainMessage(
             parsed.message, [](const std::string& oid) { return "name of " + oid; })) {
      if (meaning.empty()) {
        return "an empty meaning";
      }
    }
    if (HasControls(ctl::Printable(parsed.message))) {
      return "a control character is shown";
    }
  }
  return "";
}

std::string CheckRegistryValue(std::span<const std::uint8_t> octets) {
  if (octets.empty()) {
    return "";
  }
  ctl::RegistryValue value;
  value.type = octets[0];
  value.octets.assign(octets.begin() + 1, octets.end());
  const auto text = ctl::TextOf(value);
  if (text && value.octets.size() % 2 != 0) {
    return "a text of an odd number of octets";
  }
  if (text && text->size() > 2 * value.octets.size()) {
    return "a text longer than its octets allow";
  }
  return HasControls(ctl::DescribeValue(value)) ? "a control character is shown" : "";
}

}  // namespace zarext::test
