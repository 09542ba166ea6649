// The registry as text, to compare one state with another.
#ifndef ZAREXT_TESTS_SUPPORT_REGISTRY_SNAPSHOT_H_
#define ZAREXT_TESTS_SUPPORT_REGISTRY_SNAPSHOT_H_

#include <set>
#include <string>
#include <vector>

namespace zarext::test {

// One line a key, "HKCU\Software\...", and one a value: the key, " : ", the name, " = " and
// "text <UTF-8>" (REG_SZ), "number <hexadecimal>" (REG_DWORD) or "type <n> <octets in
// hexadecimal>". Keys read from the 64-bit view.
using RegistryLines = std::set<std::string>;

// What the framework keeps: Cryptography and SystemCertificates of the machine, and all of
// Microsoft's of the user. The rest changes with the services of Wine.
RegistryLines ReadRegistry();

// The lines of `left` that `right` does not have.
std::vector<std::string> LinesWithout(const RegistryLines& left, const RegistryLines& right);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_REGISTRY_SNAPSHOT_H_
