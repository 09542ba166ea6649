#include "store/load_certificates.h"

#include <ctime>

#include "frame/export_frame.h"
#include "store/certificates.h"
#include "store/container_cache.h"
#include "store/container_profile.h"
#include "store/container_walk.h"
#include "store/key_address.h"
#include "store/key_provider.h"
#include "store/key_value.h"
#include "store/provider_context.h"
#include "store/readable_memory.h"
#include "store/running_load.h"

namespace zarext {
namespace {

constexpr DWORD kListedNameSize = 260;

// A root that is there already is refused by the store and only traced.
void AddRoots(HCERTSTORE message, HCERTSTORE root, std::size_t chainSize) {
  ForEachCertificate(message, [&](PCCERT_CONTEXT context) {
    const CERT_INFO& info = *context->pCertInfo;
    Trace(
        "EXT : load_certs_from_CSP [CertEnumCertificatesInStore : size = %i, oid = %s, s/n= %x "
        "%x...]",
        Int(chainSize), info.SignatureAlgorithm.pszObjId, SerialOctet(info, 0),
        SerialOctet(info, 1));
    if (IsSelfSigned(info) &&
        !CertAddEncodedCertificateToStore(root, context->dwCertEncodingType, context->pbCertEncoded,
                                          context->cbCertEncoded, CERT_STORE_ADD_NEW, nullptr)) {
      Trace("EXT : load_certs_from_CSP [CertAddEncodedCertificateToStore : error = %X]",
            Hex(GetLastError()));
    }
  });
}

// Puts the self-signed certificates of a key's chain into the user's "ROOT" store.
void TrustChain(HCRYPTPROV container, HCRYPTKEY key) {
  const KeyValue value(container, key, KP_CERT_CHAIN);
  const auto chain = value.Octets();
  if (!chain) {
    return;
  }
  const UniqueForcedStore message = OpenChain(*chain, [&](ErrorCode code) {
    Trace(
        "EXT : load_certs_from_CSP [cbCert = %i, CryptGetMessageCertificates(hPKCS7Store) : error "
        "= %X]",
        Int(chain->size()), Hex(code));
  });
  if (!message) {
    return;
  }
  const UniqueForcedStore root(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"ROOT"));
  if (!root) {
    Trace("EXT : load_certs_from_CSP [CertOpenStore(hRootStore) : error = %X]",
          Hex(GetLastError()));
    return;
  }
  AddRoots(message.Get(), root.Get(), chain->size());
}

Walk ListKey(HCRYPTPROV container, char* name, CNT_KEY_INFO& record, DWORD returnedSize) {
  Trace("EXT : load_certs_from_CSP : size=%i (%i).", Int(returnedSize), Int(record.cbCert));
  record.pszContainer = name;
  if (record.cbCert != 0 && IsReadable(record.pbCert, record.cbCert) &&
      IsReadable(record.pbSerial, record.cbSerial)) {
    TContainerCache::Instance().Add(record);
  }
  Trace("EXT : load_certs_from_CSP : algID=%x (%s).", record.algId, name);
  if (record.hKey == 0) {
    // The record has been listed all the same, for providers that end a container's list with the
    // certificate of a key that they cannot open.
    return Walk::kStop;
  }
  TrustChain(container, record.hKey);
  return Walk::kGoOn;
}

void ListContainer(HCRYPTPROV provider, char* name) {
  auto url = ContainerUrl<kKeyUrlSize>(name);
  const auto profile = QueryProfile(provider, url.View());
  if (!profile) {
    return;
  }
  Trace("EXT : load_certs_from_CSP : URL = %s (%s : %s).", url.Text(), profile->tokenKind,
        profile->thirdText);
  if (!IsProfileOpened(*profile)) {
    return;
  }
  const UniqueProviderContext container = OpenContainer(url.Text());
  if (!container) {
    return;
  }
  ForEachKey(*container.Get(), [&](CNT_KEY_INFO& record, DWORD returnedSize) {
    return ListKey(*container.Get(), name, record, returnedSize);
  });
}

void AddCertificate(HCERTSTORE hCertStore, const CNT_KEY_INFO& record) {
  const UniqueCertContext context(
      CertCreateCertificateContext(kBothEncodings, record.pbCert, record.cbCert));
  if (!context) {
    return;
  }
  const auto url = KeyUrl(record.pszContainer, {record.pbSerial, record.cbSerial});
  auto wideUrl = ToWide<kKeyUrlSize>(url.Text()).value_or(WideText<kKeyUrlSize>());
  const char* const oid = context.Get()->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId;
  KeyProvider provider(oid);
  if (!provider.IsValid()) {
    throw static_cast<ErrorCode>(3);
  }
  CRYPT_KEY_PROV_INFO info = provider.Info(wideUrl.data(), KeySpecOf(record.algId));
  info.dwFlags = CERT_SET_KEY_CONTEXT_PROP_ID;
  Trace(
      "EXT : load_certs_from_CSP_CACHE : dwKeySpec = %x (%x), dwProvType = %x, size = %i, "
      "szwContainer = %s (%s).",
      Hex(info.dwKeySpec), record.algId, Hex(info.dwProvType), Int(context.Get()->cbCertEncoded),
      url.Text(), oid);
  CertSetCertificateContextProperty(context.Get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
  CertAddCertificateContextToStore(hCertStore, context.Get(), CERT_STORE_ADD_NEW, nullptr);
}

// Sees to it that the list is fresh.
void Refresh(TContainerCache& cache) {
  const std::int64_t now = std::time(nullptr);
  if (!cache.IsFresh(now)) {
    cache.ReadShared();
  }
  if (cache.IsFresh(now)) {
    return;
  }
  cache.Clear();
  RequireProvider();
  ForEachContainer<kListedNameSize>([](HCRYPTPROV provider, char* name) {
    ListContainer(provider, name);
    return Walk::kGoOn;
  });
  TContainerCache::MarkFilled(std::time(nullptr));
  cache.WriteShared();
}

}  // namespace

std::int32_t load_certs_from_CSP(HCERTSTORE hCertStore) {
  TContainerCache& cache = TContainerCache::Instance();
  RunLoad([&](bool isNested) {
    // A nested load serves the list as it is: the list must not go away under the outer load, and a
    // provider that opens the store whenever it is asked would be asked without end.
    if (!isNested) {
      Refresh(cache);
    }
    for (const KeyRecordNode* node = cache.List().Head(); node != nullptr;
         node = node->next.get()) {
      AddCertificate(hCertStore, node->record->Info());
    }
  });
  return 1;
}

}  // namespace zarext
