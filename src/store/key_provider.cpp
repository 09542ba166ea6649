#include "store/key_provider.h"

#include "frame/provider_binding.h"
#include "frame/provider_type.h"

namespace zarext {

KeyProvider::KeyProvider(const char* publicKeyOid) {
  const KeyFamily family = KeyFamilyOf(publicKeyOid);
  if (family == KeyFamily::kOwn) {
    type_ = kProviderType;
    name_ = ToWide<256>(kProviderName);
  } else if (family == KeyFamily::kRsa) {
    type_ = PROV_RSA_FULL;
    name_ = ToWide<256>(kRsaProviderName);
  }
}

CRYPT_KEY_PROV_INFO KeyProvider::Info(wchar_t* container, DWORD keySpec) noexcept {
  CRYPT_KEY_PROV_INFO info = {};
  info.pwszContainerName = container;
  info.pwszProvName = name_->front() == L'\0' ? nullptr : name_->data();
  info.dwProvType = type_;
  info.dwKeySpec = keySpec;
  return info;
}

}  // namespace zarext
