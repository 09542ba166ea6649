// The second implementation's view of a primitive node's content: from the values that callers hand
// in and to those that they read.
#ifndef ZAREXT_TESTS_UNIT_ASN1_ORACLE_VALUES_H_
#define ZAREXT_TESTS_UNIT_ASN1_ORACLE_VALUES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zarext::oracle {

using Octets = std::vector<std::uint8_t>;

std::string OidText(const Octets& content);
Octets OidContent(const std::string& text);

// The content of a node that is made with this value: the 4 octets of a number, a text, or octets,
// as the real operation takes it.
Octets Content(std::uint8_t tag, const Octets& value);
// What is read of a node with this content.
Octets Value(std::uint8_t tag, const Octets& content);

}  // namespace zarext::oracle

#endif  // ZAREXT_TESTS_UNIT_ASN1_ORACLE_VALUES_H_
