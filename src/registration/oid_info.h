// The framework's form of an OID information record.
#ifndef ZAREXT_REGISTRATION_OID_INFO_H_
#define ZAREXT_REGISTRATION_OID_INFO_H_

#include <cstddef>

#include "registration/oid_records.h"

namespace zarext {

// The 48-octet form, without the members that later systems added behind the extra information.
static_assert(sizeof(CRYPT_OID_INFO) == 48);
static_assert(offsetof(CRYPT_OID_INFO, pszOID) == 8);
static_assert(offsetof(CRYPT_OID_INFO, pwszName) == 16);
static_assert(offsetof(CRYPT_OID_INFO, dwGroupId) == 24);
static_assert(offsetof(CRYPT_OID_INFO, Algid) == 28);
static_assert(offsetof(CRYPT_OID_INFO, ExtraInfo) == 32);
static_assert(sizeof(ExtraValues) == 12);

// One structure and one block of extra values, filled anew for each row.
class OidInfo {
 public:
  OidInfo() = default;
  ~OidInfo() = default;
  // The structure points into the object.
  OidInfo(const OidInfo&) = delete;
  OidInfo& operator=(const OidInfo&) = delete;

  void SetExtra(const ExtraValues& extra) noexcept { extra_ = extra; }

  // The structure with the row's members and, behind its pointer, the extra values that were last
  // set. Valid as long as the object stays where it is.
  CRYPT_OID_INFO* Fill(const OidRecord& record) noexcept {
    info_.cbSize = sizeof info_;
    info_.pszOID = record.oid;
    info_.pwszName = record.name;
    info_.dwGroupId = record.group;
    info_.Algid = record.algorithm;
    info_.ExtraInfo = {sizeof extra_, reinterpret_cast<BYTE*>(extra_.data())};
    return &info_;
  }

 private:
  ExtraValues extra_ = records::kInitialExtra;
  CRYPT_OID_INFO info_ = {};
};

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_OID_INFO_H_
