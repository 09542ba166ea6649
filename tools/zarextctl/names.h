// Names of the numbers that the framework, the provider and the trace show.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_NAMES_H_
#define ZAREXT_TOOLS_ZAREXTCTL_NAMES_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace zarext::ctl {

// The platform's name of an error code and what it means in plain words; null pointers for a code
// that is not in the table.
struct ErrorText {
  std::uint32_t code;
  const char* name;
  const char* meaning;
};
const ErrorText* FindError(std::uint32_t code);

// "0x80090019 NTE_KEYSET_NOT_DEF", or the number alone.
std::string ErrorLabel(std::uint32_t code);

// What an ALG_ID stands for ("GOST R 34.10, 512-bit public value, exchange"); empty if unknown.
std::string_view AlgorithmMeaning(std::uint32_t algId);

// "25, Zarvel CSP" and the like; the number alone if unknown.
std::string ProviderTypeLabel(std::uint32_t type);

// "hash", "encryption", "public key", "signature", "key usage", or "group N".
std::string GroupName(std::uint32_t group);

// The family of an identifier, by the arc in it: "Zarvel (maker's arc ...)"; for any other
// "not served by ZAREXT".
std::string FamilyLabel(const char* oid);

// The name of an identifier that does not come from the module's records: X.509, RSA and the like.
// Empty if unknown.
std::string_view GeneralOidName(std::string_view oid);

// Whether the text is dotted decimal with at least two arcs.
bool LooksLikeOid(std::string_view text);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_NAMES_H_
