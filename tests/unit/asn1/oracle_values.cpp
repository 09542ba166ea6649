#include "unit/asn1/oracle_values.h"

#include <cstring>

namespace zarext::oracle {
namespace {

Octets NumberOctets(const Octets& content) {
  std::uint32_t number = 0;
  for (const std::uint8_t octet : content) {
    number = number * 256 + octet;
  }
  Octets octets(4);
  std::memcpy(octets.data(), &number, 4);
  return octets;
}

}  // namespace

std::string OidText(const Octets& content) {
  if (content.empty()) {
    return "";
  }
  std::vector<std::int32_t> arcs = {content[0] / 40, content[0] % 40};
  std::uint32_t sum = 0;
  for (std::size_t i = 1; i < content.size() && arcs.size() < 63; ++i) {
    if (content[i] >= 0x80) {
      sum = (sum + (content[i] - 0x80U)) * 128;
    } else {
      arcs.push_back(static_cast<std::int32_t>(sum + content[i]));
      sum = 0;
    }
  }
  std::string text = std::to_string(arcs[0]);
  for (std::size_t i = 1; i < arcs.size() && text.size() <= 256; ++i) {
    text += "." + std::to_string(arcs[i]);
  }
  return text;
}

Octets OidContent(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c != '.') {
      parts.back() += c;
    } else if (!parts.back().empty()) {
      parts.emplace_back();
    }
  }
  if (parts.back().empty()) {
    parts.pop_back();
  }
  if (parts.size() > 64) {
    parts.resize(64);
  }
  std::vector<std::uint32_t> arcs;
  for (const std::string& part : parts) {
    // The tests keep to arcs that fit 31 bits, where every platform agrees.
    arcs.push_back(static_cast<std::uint32_t>(std::strtoll(part.c_str(), nullptr, 10)));
  }
  arcs.resize(arcs.size() < 2 ? 2 : arcs.size());
  Octets content = {static_cast<std::uint8_t>((arcs[0] * 40 + arcs[1]) % 256)};
  for (std::size_t i = 2; i < arcs.size(); ++i) {
    const std::uint32_t arc = arcs[i];
    if (arc >= 0x200000) {
      content.push_back(static_cast<std::uint8_t>(0x80 | (arc / 0x200000 % 128)));
    }
    if (arc >= 0x4000) {
      content.push_back(static_cast<std::uint8_t>(0x80 | (arc / 0x4000 % 128)));
    }
    if (arc >= 0x80) {
      content.push_back(static_cast<std::uint8_t>(0x80 | (arc / 0x80 % 128)));
    }
    content.push_back(static_cast<std::uint8_t>(arc % 128));
  }
  return content;
}

Octets Content(std::uint8_t tag, const Octets& value) {
  Octets content = value;
  if (tag == 2 && value.size() == 4) {
    std::uint32_t number = 0;
    std::memcpy(&number, value.data(), 4);
    content = {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
               static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    while (content.size() > 1 && content[0] == 0) {
      content.erase(content.begin());
    }
    if (content[0] >= 0x80) {
      content.insert(content.begin(), 0);
    }
  } else if (tag == 3) {
    std::uint8_t unused = 0;
    if (!value.empty() && value.size() <= 4 && value.back() != 0) {
      while (((value.back() >> unused) & 1) == 0) {
        ++unused;
      }
    }
    content.insert(content.begin(), unused);
  } else if (tag == 6) {
    content = OidContent(std::string(value.begin(), value.end()));
  }
  return content;
}

Octets Value(std::uint8_t tag, const Octets& content) {
  if (tag == 6) {
    const std::string text = OidText(content);
    return Octets(text.begin(), text.end());
  }
  if (content.empty()) {
    return {};
  }
  if (tag == 2 &&
      ((content.size() <= 4 && content[0] < 0x80) || (content.size() == 5 && content[0] == 0))) {
    return NumberOctets(content);
  }
  return tag == 3 ? Octets(content.begin() + 1, content.end()) : content;
}

}  // namespace zarext::oracle
