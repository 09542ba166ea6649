// Text as the tool prints it: UTF-8 throughout.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_TEXT_H_
#define ZAREXT_TOOLS_ZAREXTCTL_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zarext::ctl {

// UTF-8 of UTF-16 code units; a lone half of a pair becomes U+FFFD.
std::string Utf8FromUnits(std::span<const std::uint16_t> units);

// "0x80090019" or, with fewer digits, "0xAA3A": upper-case, without leading zeros beyond `digits`.
std::string Hex(std::uint64_t value, int digits = 1);

// "0A1B2C": two upper-case digits for each octet.
std::string HexOctets(std::span<const std::uint8_t> octets);

// The number of characters (code points) that a console shows for the text.
std::size_t Width(std::string_view utf8);

// The text with blanks behind it, at least `width` characters.
std::string Padded(std::string_view utf8, std::size_t width);

// The line in pieces of at most `width` characters, broken at blanks; what follows the first piece
// is indented as the line is, and by `hang` more. A word that is too long for a line stays whole. A
// width of 0 breaks nothing.
std::vector<std::string> Wrapped(std::string_view line, std::size_t width, std::size_t hang = 2);

// Control characters as "\x1B", so that text from outside cannot steer a console.
std::string Printable(std::string_view utf8);

// Whether both are the same but for the case of ASCII letters.
bool SameIgnoringCase(std::string_view left, std::string_view right);
// Whether `part` occurs in `text`, whatever the case of ASCII letters.
bool ContainsIgnoringCase(std::string_view text, std::string_view part);

// "1 record", "2 records".
std::string Count(std::size_t count, std::string_view noun);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_TEXT_H_
