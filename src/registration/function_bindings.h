// The installable functions of the framework that the module serves, and for which OIDs.
#ifndef ZAREXT_REGISTRATION_FUNCTION_BINDINGS_H_
#define ZAREXT_REGISTRATION_FUNCTION_BINDINGS_H_

#include <array>
#include <cstddef>

#include "frame/encoding_type.h"
#include "registration/oid_lists.h"

namespace zarext {

// The store provider, and the physical store of the same name.
inline constexpr char kStoreProvider[] = "Zarvel Store Provider";
inline constexpr wchar_t kStoreProviderWide[] = L"Zarvel Store Provider";

// One framework function for one OID.
struct Binding {
  DWORD encodingType;
  const char* function;
  const char* oid;
  const char* exportName;
};

// One framework function with all its OIDs.
struct FunctionBindings {
  const char* function;
  const char* exportName;
  DWORD encodingType;
  OidSpan oids;
  // The number of OIDs at the head of the list that are registered with encoding type 0x10001
  // instead. The framework uses its low 16 bits alone.
  std::size_t forBothEncodings = 0;
  // What unregistering leaves bound, and what it removes twice, each time in its place.
  OidSpan leftBound = {};
  OidSpan removedTwice = {};

  [[nodiscard]] constexpr Binding At(std::size_t index) const {
    return {index < forBothEncodings ? kBothEncodings : encodingType, function, oids[index],
            exportName};
  }
  // How often unregistering removes it.
  [[nodiscard]] constexpr int RemovalsOf(const char* oid) const {
    return Contains(leftBound, oid) ? 0 : Contains(removedTwice, oid) ? 2 : 1;
  }
};

namespace bindings {

inline constexpr std::array kStoreOids = std::to_array<const char*>({kStoreProvider});
inline constexpr DWORD kNone = 0;
inline constexpr DWORD kCertificates = X509_ASN_ENCODING;
inline constexpr std::size_t kFirst = oids::kKeyTransportFirst.size();

inline constexpr FunctionBindings kStore = {"CertDllOpenStoreProv", "ZarOpenStoreProv", kNone,
                                            kStoreOids};

// Bound after the store provider and its physical store, in this order.
// clang-format off
inline constexpr FunctionBindings kKeys[] = {
    {"CryptDllImportPrivateKeyInfoEx", "ZarImportPrivKeyFunc", kCertificates, oids::kPrivateKey, 0, oids::kLeftBound, oids::kRemovedTwice},
    {"CryptDllExportPrivateKeyInfoEx", "ZarExportPrivKeyFunc", kCertificates, oids::kPrivateKey, 0, oids::kLeftBound},
    {"CryptDllImportPublicKeyInfoEx", "ZarImportPublicKeyInfoEx", kCertificates, oids::kPublicKey, 0, oids::kLeftBound},
    {"CryptDllImportPublicKeyInfo", "ZarImportPublicKeyInfo", kCertificates, oids::kPublicKey, 0, oids::kLeftBound},
    {"CryptDllExportPublicKeyInfoEx", "ZarExportPublicKeyInfoEx", kCertificates, oids::kPublicKey, 0, oids::kLeftBound},
    {"CryptDllExportPublicKeyInfo", "ZarExportPublicKeyInfo", kCertificates, oids::kPublicKey, 0, oids::kLeftBound},
    {"CryptDllConvertPublicKeyInfo", "ZarConvertPublicKeyInfo", kCertificates, oids::kPublicKey},
    {"CryptDllEncodePublicKeyAndParameters", "ZarEncodePublicKeyAndParameters", kCertificates, oids::kPublicKey},
    {"CryptMsgDllGenContentEncryptKey", "ZarMsgGenContentEncryptKey", kCertificates, oids::kContentKey},
    {"CryptMsgDllGenEncryptKey", "ZarGenEncryptKey", kBothEncodings, oids::kOlderContentKey},
    {"CryptMsgDllImportEncryptKey", "ZarImportEncryptKey", kCertificates, oids::kKeyTransport, kFirst},
    {"CryptMsgDllImportKeyTrans", "ZarMsgImportKeyTrans", kCertificates, oids::kKeyTransport, kFirst},
    {"CryptMsgDllExportEncryptKey", "ZarExportEncryptKey", kCertificates, oids::kKeyTransport, kFirst},
    {"CryptMsgDllExportKeyTrans", "ZarMsgExportKeyTrans", kCertificates, oids::kKeyTransport, kFirst},
};
// clang-format on

}  // namespace bindings

// Visits every binding but the store provider's, in the order of registration.
template <typename Visit>
constexpr void ForEachKeyBinding(Visit visit) {
  for (const FunctionBindings& row : bindings::kKeys) {
    for (std::size_t i = 0; i < row.oids.size(); ++i) {
      visit(row.At(i));
    }
  }
}

// How often `forEach` calls what it is given.
consteval std::size_t CountVisits(auto forEach) {
  std::size_t count = 0;
  forEach([&](const auto&) { ++count; });
  return count;
}
static_assert(CountVisits([](auto visit) { ForEachKeyBinding(visit); }) ==
              475 - bindings::kStore.oids.size());

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_FUNCTION_BINDINGS_H_
