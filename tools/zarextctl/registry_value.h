// Values of the registry, which can have any type and any octets, whatever writes them.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_VALUE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_VALUE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zarext::ctl {

// The platform's REG_* numbers.
enum class ValueType : std::uint32_t {
  kText = 1,
  kExpandableText = 2,
  kBinary = 3,
  kNumber = 4,
};

struct RegistryValue {
  std::uint32_t type = 0;
  std::vector<std::uint8_t> octets;  // text as UTF-16
};

// "REG_SZ", "REG_DWORD" and so on, or "type N".
std::string ValueTypeName(std::uint32_t type);

// UTF-8 of a text value up to its first zero; nothing for another type, an odd number of octets, or
// a text without an end.
std::optional<std::string> TextOf(const RegistryValue& value);

// A number of four octets; nothing for another type or size.
std::optional<std::uint32_t> NumberOf(const RegistryValue& value);

// The value for people, whatever it is: the text, the number in hexadecimal, or what is wrong
// with it ("REG_BINARY of 3 octets").
std::string DescribeValue(const RegistryValue& value);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_REGISTRY_VALUE_H_
