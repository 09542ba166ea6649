#include "asn1/oid.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>
#include <system_error>

namespace zarext {
namespace {

constexpr std::size_t kLongestOpenText = 256;

// atol for a long of 32 bits, on every host: leading white space, a sign,
// digits; a number out of range becomes the nearest one.
std::int32_t ArcNumber(std::string_view arc) {
  arc.remove_prefix(std::min(arc.find_first_not_of(" \t\n\v\f\r"), arc.size()));
  if (arc.starts_with('+') && !arc.starts_with("+-")) {
    arc.remove_prefix(1);
  }
  std::int32_t number = 0;
  if (std::from_chars(arc.data(), arc.data() + arc.size(), number).ec ==
      std::errc::result_out_of_range) {
    using Limits = std::numeric_limits<std::int32_t>;
    number = arc.starts_with('-') ? Limits::min() : Limits::max();
  }
  return number;
}

// Takes the next arc off the text; false when only dots, or nothing, is left.
bool NextArc(std::string_view* text, std::int32_t* arc) {
  const std::size_t start = text->find_first_not_of('.');
  if (start == std::string_view::npos) {
    return false;
  }
  text->remove_prefix(start);
  const std::size_t end = std::min(text->find('.'), text->size());
  *arc = ArcNumber(text->substr(0, end));
  text->remove_prefix(end);
  return true;
}

// Base 128, most significant group first. Groups above the fourth do not exist here, so a number
// of 2^28 or more loses its upper bits; documents in use were made that way.
std::uint8_t* WriteArc(std::uint32_t arc, std::uint8_t* out) {
  for (const unsigned shift : {21U, 14U, 7U}) {
    if ((arc >> shift) != 0) {
      *out++ = static_cast<std::uint8_t>((arc >> shift) | 0x80U);
    }
  }
  *out++ = static_cast<std::uint8_t>(arc & 0x7FU);
  return out;
}

}  // namespace

std::int32_t OidTextToContent(const char* text, std::uint8_t* out) {
  std::string_view rest = text != nullptr ? std::string_view(text) : std::string_view();
  std::int32_t first = 0;
  std::int32_t second = 0;
  NextArc(&rest, &first);
  NextArc(&rest, &second);
  std::uint8_t* end = out;
  *end++ = static_cast<std::uint8_t>(static_cast<std::uint32_t>(first) * 40U +
                                     static_cast<std::uint32_t>(second));
  std::int32_t arc = 0;
  for (std::int32_t read = 2; read < kMaxOidTextArcs && NextArc(&rest, &arc); ++read) {
    end = WriteArc(static_cast<std::uint32_t>(arc), end);
  }
  return static_cast<std::int32_t>(end - out);
}

std::string OidContentToText(const std::uint8_t* content, std::uint32_t length) {
  if (length == 0) {
    return {};
  }
  std::string text = std::to_string(content[0] / 40U) + '.' + std::to_string(content[0] % 40U);
  std::uint32_t pending = 0;
  std::int32_t arcs = 2;
  for (std::uint32_t i = 1; i < length && arcs < kMaxOidContentArcs; ++i) {
    pending += content[i] & 0x7FU;
    if ((content[i] & 0x80U) != 0) {
      pending <<= 7U;
      continue;
    }
    // The arc that makes the text longer than the limit is still written whole.
    if (text.size() > kLongestOpenText) {
      break;
    }
    text.append(1, '.').append(std::to_string(static_cast<std::int32_t>(pending)));
    pending = 0;
    ++arcs;
  }
  return text;
}

bool SameOid(const char* text, const char* known) noexcept {
  return text != nullptr && std::strcmp(text, known) == 0;
}

bool IsOwnAlgorithmOid(const char* text) {
  constexpr std::array kArcs = {kMakerArc, kCryptoProArc, kNationalArc};
  const auto occurs = [text](const char* arc) { return std::strstr(text, arc) != nullptr; };
  return text != nullptr && std::any_of(kArcs.begin(), kArcs.end(), occurs);
}

}  // namespace zarext
