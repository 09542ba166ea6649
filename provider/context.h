// A provider context: a container or a temporary key set, and what a caller set or began to list
// through it.
#ifndef ZAREXT_PROVIDER_CONTEXT_H_
#define ZAREXT_PROVIDER_CONTEXT_H_

#include <atomic>
#include <deque>
#include <map>
#include <string>

#include "provider/objects.h"

namespace zarext::provider {

// The provider parameters beyond the platform's own.
inline constexpr DWORD PP_CNT_URL = 0x2E;  // the address of the context's container
inline constexpr DWORD PP_PROFILE =
    0x38;  // the name of the context's profile, that is its container
inline constexpr DWORD PP_ENUM_CNT_KEYS = 45;   // the next key of the context, a CntKeyInfo
inline constexpr DWORD PP_ENUM_CNT = 57;        // the next container's name
inline constexpr DWORD PP_SENDER_KEY = 60;      // see Context::TakesSenderKey
inline constexpr DWORD PP_CNT_PROFILE = 64;     // a CntProfile
inline constexpr DWORD KP_CERT_CHAIN = 69;      // the key's chain, PKCS #7
inline constexpr DWORD KP_ADD_CHAIN_CERT = 68;  // a certificate for the chain
// KP_CERTIFICATE (26) is in the platform's headers.

// The record of PP_ENUM_CNT_KEYS. The handle and the two blocks belong to the context.
struct CntKeyInfo {
  ULONG_PTR hKey;
  DWORD algId;
  DWORD dwKeySpec;
  ULONG_PTR reserved1;
  const char* pszContainer;  // the reader's
  ULONG_PTR reserved2;
  DWORD cbSerial;
  DWORD padding1;
  const BYTE* pbSerial;  // in the order in which the certificate has it
  ULONG_PTR reserved3[2];
  DWORD cbCert;
  DWORD padding2;
  const BYTE* pbCert;
};
static_assert(sizeof(CntKeyInfo) == 88 && offsetof(CntKeyInfo, algId) == 8 &&
              offsetof(CntKeyInfo, pszContainer) == 24 && offsetof(CntKeyInfo, cbSerial) == 40 &&
              offsetof(CntKeyInfo, pbSerial) == 48 && offsetof(CntKeyInfo, cbCert) == 72 &&
              offsetof(CntKeyInfo, pbCert) == 80);

// The record of PP_CNT_PROFILE: the caller puts the address in, the provider fills in the rest.
struct CntProfile {
  char reserved1[128];
  char kind[192];
  char second[128];
  char third[496];
  char url[512];
};
static_assert(sizeof(CntProfile) == 1456 && offsetof(CntProfile, kind) == 128 &&
              offsetof(CntProfile, second) == 320 && offsetof(CntProfile, third) == 448 &&
              offsetof(CntProfile, url) == 944);

// One list that a caller steps through.
struct Listing {
  std::vector<Bytes> items;
  std::size_t next = 0;
  std::uint32_t endCode = ERROR_NO_MORE_ITEMS;  // what the step behind the last item fails with
  bool begun = false;
};

class Context final : public Object {
 public:
  // `container` is empty for a context without one.
  Context(HCRYPTPROV self, std::string providerName, DWORD providerType,
          const ContainerName& container);

  const std::string& ProviderName() const { return providerName_; }
  DWORD ProviderType() const { return providerType_; }
  const std::string& Container() const { return container_; }  // empty: none
  const std::shared_ptr<KeySet>& Keys() const { return keySet_; }

  // The key of `keySpec`, as it is stored now. NTE_NO_KEY if there is none, NTE_BAD_KEY for another
  // number.
  std::shared_ptr<PairObject> LoadPair(DWORD keySpec);
  std::shared_ptr<PairObject> MakePair(const KeyRecord& record, DWORD keySpec);

  // All private keys that can be read, exchange key first.
  std::vector<PrivateKey> ReadablePrivateKeys();

  // Parameter 60: whether the next key is wrapped with the exchange key. README.md says when it
  // ends.
  bool TakesSenderKey() const { return takesSenderKey_; }
  void SetTakesSenderKey(bool takes) { takesSenderKey_ = takes; }

  // A handle for a new session key. Of dwFlags CRYPT_EXPORTABLE counts.
  HCRYPTKEY AddSessionKey(const SessionKey& key, DWORD dwFlags);

  // The session key made last, for callers that name the context instead of the key; null if none
  // was made or it has been destroyed.
  std::shared_ptr<SessionKeyObject> LastSessionKey();

  // Runs `step` on the list of that parameter while no other thread does.
  template <typename Step>
  auto WithListing(DWORD dwParam, Step step) {
    const std::lock_guard lock(listingMutex_);
    return step(listings_[dwParam]);
  }

  // The items of PP_ENUM_CNT_KEYS. Only within WithListing.
  Listing ListKeys();

 private:
  struct Listed {
    Bytes keyOctets;
    ULONG_PTR handle = 0;
  };

  const std::string providerName_;
  const DWORD providerType_;
  std::string container_;
  std::shared_ptr<KeySet> keySet_;
  std::atomic<bool> takesSenderKey_{false};

  std::mutex cacheMutex_;
  std::map<DWORD, std::pair<KeyRecord, std::shared_ptr<const PrivateKey>>> parsed_;
  std::weak_ptr<SessionKeyObject> lastSessionKey_;  // the handle keeps it

  CntKeyInfo DescribeKey(DWORD keySpec, const KeyRecord& record);
  const Bytes& Keep(const Bytes& octets);

  std::mutex listingMutex_;
  std::map<DWORD, Listing> listings_;
  std::map<DWORD, Listed> listedKeys_;
  std::deque<Bytes> kept_;  // what handed-out records point to, until the context ends
};

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_CONTEXT_H_
