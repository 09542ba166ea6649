#include "zarextctl/oid_names.h"

#include "registration/oid_records.h"
#include "zarextctl/names.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {

std::string OidName(const std::string& oid, unsigned long group) {
  for (const OidRecord& record : records::kTable) {
    if (oid == record.oid && (group == 0 || group == record.group)) {
      return Utf8(record.name);
    }
  }
  if (const std::string_view name = GeneralOidName(oid); !name.empty()) {
    return std::string(name);
  }
  std::string key = oid;
  const PCCRYPT_OID_INFO info = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, key.data(), group);
  return info == nullptr ? "" : Utf8(info->pwszName);
}

std::string OidLabel(const std::string& oid, unsigned long group) {
  const std::string name = OidName(oid, group);
  return name.empty() ? oid : oid + " (" + name + ")";
}

}  // namespace zarext::ctl
