#include "zarextctl/registry_value.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

constexpr const char* kTypeNames[] = {"REG_NONE",   "REG_SZ",      "REG_EXPAND_SZ",
                                      "REG_BINARY", "REG_DWORD",   "REG_DWORD_BIG_ENDIAN",
                                      "REG_LINK",   "REG_MULTI_SZ"};

bool Is(const RegistryValue& value, ValueType type) {
  return value.type == static_cast<std::uint32_t>(type);
}

}  // namespace

std::string ValueTypeName(std::uint32_t type) {
  return type < std::size(kTypeNames) ? kTypeNames[type] : "type " + std::to_string(type);
}

std::optional<std::string> TextOf(const RegistryValue& value) {
  if ((!Is(value, ValueType::kText) && !Is(value, ValueType::kExpandableText)) ||
      value.octets.size() % 2 != 0) {
    return std::nullopt;
  }
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < value.octets.size(); i += 2) {
    units.push_back(static_cast<std::uint16_t>(value.octets[i] | value.octets[i + 1] << 8));
  }
  const auto end = std::ranges::find(units, 0);
  if (end == units.end()) {
    return std::nullopt;
  }
  return Utf8FromUnits(std::span(units.begin(), end));
}

std::optional<std::uint32_t> NumberOf(const RegistryValue& value) {
  std::uint32_t number = 0;
  if (!Is(value, ValueType::kNumber) || value.octets.size() != sizeof number) {
    return std::nullopt;
  }
  std::memcpy(&number, value.octets.data(), sizeof number);
  return number;
}

std::string DescribeValue(const RegistryValue& value) {
  if (const auto text = TextOf(value)) {
    return Printable(*text);
  }
  if (const auto number = NumberOf(value)) {
    return Hex(*number);
  }
  const bool isText = Is(value, ValueType::kText) || Is(value, ValueType::kExpandableText);
  return ValueTypeName(value.type) + " of " + Count(value.octets.size(), "octet") +
         (isText ? " without an end" : "");
}

}  // namespace zarext::ctl
