#include "demo/provider_store.h"

#include "demo/actors.h"

namespace zarext::demo {
namespace {

constexpr char kStore[] = "Zarvel Store Provider";

Entry Describe(PCCERT_CONTEXT certificate) {
  const Octets property = test::Fetch("CertGetCertificateContextProperty", [&](BYTE* data,
                                                                               DWORD* size) {
    return CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, data, size);
  });
  const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(property.data());
  return {
      Octets(certificate->pbCertEncoded, certificate->pbCertEncoded + certificate->cbCertEncoded),
      Utf8(info.pwszContainerName), Utf8(info.pwszProvName), info.dwProvType, info.dwKeySpec};
}

}  // namespace

UniqueCertStore<0> OpenStore() {
  Call(std::string("CertOpenStore(\"") + kStore + "\")");
  UniqueCertStore<0> store(CertOpenStore(kStore, 0, 0, 0, nullptr));
  test::Must(store.Get() != nullptr, "CertOpenStore");
  return store;
}

void CloseStore(UniqueCertStore<0> store) {
  Call("CertCloseStore()");
  store.Reset();
}

Listing List(const UniqueCertStore<0>& store) {
  Listing entries;
  Call("CertEnumCertificatesInStore()");
  PCCERT_CONTEXT certificate = nullptr;
  while ((certificate = CertEnumCertificatesInStore(store.Get(), certificate)) != nullptr) {
    const std::string name = SubjectName(certificate);
    const Entry entry = Describe(certificate);
    Note(name + ": container " + entry.container + ", provider " + entry.provider + ", type " +
         std::to_string(entry.providerType) + ", key specification " +
         std::to_string(entry.keySpec));
    entries[name] = entry;
  }
  return entries;
}

}  // namespace zarext::demo
