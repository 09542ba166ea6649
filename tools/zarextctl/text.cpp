#include "zarextctl/text.h"

#include <algorithm>
#include <array>

namespace zarext::ctl {
namespace {

constexpr char kDigits[] = "0123456789ABCDEF";
constexpr std::uint32_t kReplacement = 0xFFFD;

bool IsHighHalf(std::uint16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowHalf(std::uint16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void Append(std::string* out, std::uint32_t point) {
  const auto push = [out](std::uint32_t octet) { out->push_back(static_cast<char>(octet)); };
  if (point < 0x80) {
    push(point);
  } else if (point < 0x800) {
    push(0xC0 | point >> 6);
    push(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    push(0xE0 | point >> 12);
    push(0x80 | (point >> 6 & 0x3F));
    push(0x80 | (point & 0x3F));
  } else {
    push(0xF0 | point >> 18);
    push(0x80 | (point >> 12 & 0x3F));
    push(0x80 | (point >> 6 & 0x3F));
    push(0x80 | (point & 0x3F));
  }
}

char Lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool SameLetter(char left, char right) { return Lower(left) == Lower(right); }

}  // namespace

std::string Utf8FromUnits(std::span<const std::uint16_t> units) {
  std::string out;
  for (std::size_t i = 0; i < units.size(); ++i) {
    if (IsHighHalf(units[i]) && i + 1 < units.size() && IsLowHalf(units[i + 1])) {
      Append(&out, 0x10000 + ((units[i] - 0xD800U) << 10) + (units[i + 1] - 0xDC00U));
      ++i;
    } else {
      Append(&out, IsHighHalf(units[i]) || IsLowHalf(units[i]) ? kReplacement : units[i]);
    }
  }
  return out;
}

std::string Hex(std::uint64_t value, int digits) {
  std::string text;
  for (; value != 0 || digits > 0; value >>= 4, --digits) {
    text.insert(text.begin(), kDigits[value & 0x0F]);
  }
  return "0x" + text;
}

std::string HexOctets(std::span<const std::uint8_t> octets) {
  std::string text;
  for (const std::uint8_t octet : octets) {
    text.push_back(kDigits[octet >> 4]);
    text.push_back(kDigits[octet & 0x0F]);
  }
  return text;
}

std::size_t Width(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::ranges::count_if(utf8, [](char octet) { return (octet & 0xC0) != 0x80; }));
}

std::string Padded(std::string_view utf8, std::size_t width) {
  std::string text(utf8);
  const std::size_t own = Width(utf8);
  text.append(own < width ? width - own : 0, ' ');
  return text;
}

std::vector<std::string> Wrapped(std::string_view line, std::size_t width, std::size_t hang) {
  if (width == 0 || Width(line) <= width) {
    return {std::string(line)};
  }
  const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
  std::vector<std::string> pieces;
  std::string piece(line.substr(0, indent));
  bool isEmpty = true;
  for (std::size_t start = indent; start < line.size();) {
    std::size_t end = line.find(' ', start);
    end = end == std::string_view::npos ? line.size() : end;
    const std::string_view word = line.substr(start, end - start);
    if (!isEmpty && Width(piece) + 1 + Width(word) > width) {
      pieces.push_back(std::move(piece));
      piece = std::string(indent + hang, ' ');
      isEmpty = true;
    }
    if (!isEmpty) {
      piece.push_back(' ');
    }
    piece.append(word);
    isEmpty = false;
    start = end + 1;
  }
  pieces.push_back(std::move(piece));
  return pieces;
}

std::string Printable(std::string_view utf8) {
  std::string text;
  for (const char letter : utf8) {
    const auto octet = static_cast<std::uint8_t>(letter);
    if (octet >= 0x20 && octet != 0x7F) {
      text.push_back(letter);
    } else {
      text.append("\\x").append(HexOctets(std::array{octet}));
    }
  }
  return text;
}

bool SameIgnoringCase(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, SameLetter);
}

bool ContainsIgnoringCase(std::string_view text, std::string_view part) {
  return part.empty() ||
         std::search(text.begin(), text.end(), part.begin(), part.end(), SameLetter) != text.end();
}

std::string Count(std::size_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

}  // namespace zarext::ctl
