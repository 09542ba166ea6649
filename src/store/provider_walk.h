// The steps over the provider's containers that opening a store and writing a certificate share.
// Whatever the provider returns is data from outside: an item that is not well-formed is passed
// over, and a list that does not end is left.
#ifndef ZAREXT_STORE_PROVIDER_WALK_H_
#define ZAREXT_STORE_PROVIDER_WALK_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstring>
#include <optional>
#include <string_view>

#include "frame/handles.h"
#include "frame/provider_binding.h"
#include "store/container_profile.h"
#include "store/provider_records.h"

namespace zarext {

// A context of the provider module itself, not of the platform. Usable once the module is bound.
// Any handle can be one, also 0.
struct ProviderContextTraits {
  using Type = std::optional<HCRYPTPROV>;
  static void Release(Type context) { Provider().CPReleaseContext(*context, 0); }
};
using UniqueProviderContext = UniqueHandle<ProviderContextTraits>;

// Binds the provider module; throws the last error as an ErrorCode if it stays unbound.
void RequireProvider();

// A context without a container, for the listings.
bool AcquireVerifyContext(UniqueProviderContext* context);

// The container's context, without any dialogue.
bool OpenContainer(char* url, UniqueProviderContext* context);

// Asks the provider for the profile of the container `url`. False if it fails or if what it
// returns is not well-formed.
bool QueryProfile(HCRYPTPROV provider, std::string_view url, CNT_PROFILE* profile);

enum class Walk { kGoOn, kStop };

// Where a list that does not end is left.
inline constexpr int kLongestWalk = 65536;

// Calls visit(name) for every container; names fit a buffer of `nameSize` octets. The name lives
// until the next call.
template <DWORD nameSize, typename Visit>
void ForEachContainer(HCRYPTPROV provider, Visit visit) {
  char name[nameSize];
  DWORD flags = CRYPT_FIRST;
  for (int item = 0; item < kLongestWalk; ++item, flags = 0) {
    std::memset(name, 0, nameSize);
    DWORD size = nameSize;
    if (!Provider().CPGetProvParam(provider, PP_ENUM_CNT, reinterpret_cast<BYTE*>(name), &size,
                                   flags)) {
      return;
    }
    if (std::memchr(name, '\0', nameSize) == nullptr) {
      continue;
    }
    if (visit(name) == Walk::kStop) {
      return;
    }
  }
}

// Calls visit(record, returnedLength) for every key of a container.
template <typename Visit>
void ForEachKey(HCRYPTPROV container, Visit visit) {
  DWORD flags = CRYPT_FIRST;
  for (int item = 0; item < kLongestWalk; ++item, flags = 0) {
    CNT_KEY_INFO record = {};
    DWORD size = sizeof record;
    if (!Provider().CPGetProvParam(container, PP_ENUM_CNT_KEYS, reinterpret_cast<BYTE*>(&record),
                                   &size, flags) ||
        visit(record, size) == Walk::kStop) {
      return;
    }
  }
}

// Whether the whole range can be read: a provider's pointers and lengths need not fit each other.
bool IsReadable(const void* start, std::size_t length);

// A parameter of a key: its certificate or its chain.
class KeyBlob {
 public:
  enum class Outcome {
    kRead,
    kFailed,    // the provider has none
    kUnusable,  // more returned than there was room for
  };

  Outcome Read(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter);

  [[nodiscard]] const BYTE* Data() const noexcept { return data_; }
  [[nodiscard]] DWORD Size() const noexcept { return size_; }

 private:
  BYTE data_[32784];
  DWORD size_ = 0;
};

// Encoding type of every certificate and message that the module reads.
inline constexpr DWORD kEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

using UniqueMessageStore = UniqueCertStore<CERT_CLOSE_STORE_FORCE_FLAG>;

// The certificates of a chain; none if it is empty or cannot be read (then with the last error).
UniqueMessageStore OpenChain(const KeyBlob& chain);

// Calls visit(context) for every certificate of a store.
template <typename Visit>
void ForEachCertificate(HCERTSTORE store, Visit visit) {
  UniqueCertContext context;
  do {
    // The enumeration takes the previous context with it.
    context = UniqueCertContext(CertEnumCertificatesInStore(store, context.Detach()));
    if (context) {
      visit(context.Get());
    }
  } while (context);
}

// An octet of the serial number as the traces show it; 0 where there is none.
unsigned int SerialOctet(const CERT_INFO& certificate, DWORD index) noexcept;

// Equal in length and octets.
bool IsSameBlob(const CRYPT_DATA_BLOB& left, const CRYPT_DATA_BLOB& right) noexcept;

inline bool IsSelfSigned(const CERT_INFO& certificate) noexcept {
  return IsSameBlob(certificate.Issuer, certificate.Subject);
}

}  // namespace zarext

#endif  // ZAREXT_STORE_PROVIDER_WALK_H_
