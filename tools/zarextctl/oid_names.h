// What an identifier is called: by the module's records, else by the framework, else in general.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_OID_NAMES_H_
#define ZAREXT_TOOLS_ZAREXTCTL_OID_NAMES_H_

#include <string>

namespace zarext::ctl {

// Empty for an unknown one. Of several records the first with the group counts (0: any).
std::string OidName(const std::string& oid, unsigned long group = 0);

// "1.2.643.2.2.19 (ГОСТ Р 34.10-2001.)", or the identifier alone.
std::string OidLabel(const std::string& oid, unsigned long group = 0);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_OID_NAMES_H_
