#include "store/key_provider.h"

#include "frame/provider_binding.h"
#include "frame/provider_type.h"

namespace zarext {

KeyProvider::KeyProvider(const char* publicKeyOid) {
  switch (KeyFamilyOf(publicKeyOid)) {
    case KeyFamily::kOwn:
      type_ = kProviderType;
      valid_ = ToWide(kProviderName, name_);
      break;
    case KeyFamily::kRsa:
      type_ = PROV_RSA_FULL;
      valid_ = ToWide(kRsaProviderName, name_);
      break;
    case KeyFamily::kOther:
      break;
  }
}

CRYPT_KEY_PROV_INFO KeyProvider::Info(wchar_t* container, DWORD keySpec) noexcept {
  CRYPT_KEY_PROV_INFO info = {};
  info.pwszContainerName = container;
  info.pwszProvName = name_[0] == L'\0' ? nullptr : name_;
  info.dwProvType = type_;
  info.dwKeySpec = keySpec;
  return info;
}

}  // namespace zarext
