// The provider module's own parameters that the store code uses, and the two records that it
// exchanges through them. Little-endian wire formats; the sizes are part of the interface.
#ifndef ZAREXT_STORE_PROVIDER_RECORDS_H_
#define ZAREXT_STORE_PROVIDER_RECORDS_H_

#include <cstddef>
#include <cstdint>

namespace zarext {

// CPGetProvParam on a container context: the next CNT_KEY_INFO.
inline constexpr std::uint32_t PP_ENUM_CNT_KEYS = 45;
// CPGetProvParam on a verify context: the next container name, NUL-terminated.
inline constexpr std::uint32_t PP_ENUM_CNT = 57;
// CPGetProvParam on a verify context: the CNT_PROFILE of the container whose URL is in the record.
inline constexpr std::uint32_t PP_CNT_PROFILE = 64;
// CPSetKeyParam: adds an encoded certificate to the key's chain.
inline constexpr std::uint32_t KP_ADD_CHAIN_CERT = 68;
// CPGetKeyParam: the key's certificate chain, a PKCS #7 signed-data message.
inline constexpr std::uint32_t KP_CERT_CHAIN = 69;

// One key of a container. Pointers in a record of the provider are the provider's.
struct CNT_KEY_INFO {
  std::uint64_t hKey;  // 0 ends the list of keys
  std::uint32_t algId;
  std::uint32_t unread12;
  std::uint64_t unread16;
  char* pszContainer;  // NUL-terminated; set by this module, not by the provider
  std::uint64_t unread32;
  std::uint32_t cbSerial;
  std::uint32_t padding44;
  std::uint8_t* pbSerial;
  std::uint64_t unread56[2];
  std::uint32_t cbCert;  // 0: the key has no certificate
  std::uint32_t padding76;
  std::uint8_t* pbCert;  // DER
};
static_assert(sizeof(CNT_KEY_INFO) == 88);
static_assert(offsetof(CNT_KEY_INFO, algId) == 8);
static_assert(offsetof(CNT_KEY_INFO, pszContainer) == 24);
static_assert(offsetof(CNT_KEY_INFO, cbSerial) == 40);
static_assert(offsetof(CNT_KEY_INFO, pbSerial) == 48);
static_assert(offsetof(CNT_KEY_INFO, cbCert) == 72);
static_assert(offsetof(CNT_KEY_INFO, pbCert) == 80);

// What the provider tells about a container: NUL-terminated texts.
struct CNT_PROFILE {
  char unread0[128];
  char tokenKind[192];     // "kztoken", "javatoken", "idcard", "file" or another word
  char secondText[128];    // empty: a container of an unlisted kind is skipped
  char thirdText[496];     // only traced
  char containerUrl[512];  // filled by the caller
};
static_assert(sizeof(CNT_PROFILE) == 1456);
static_assert(offsetof(CNT_PROFILE, tokenKind) == 128);
static_assert(offsetof(CNT_PROFILE, secondText) == 320);
static_assert(offsetof(CNT_PROFILE, thirdText) == 448);
static_assert(offsetof(CNT_PROFILE, containerUrl) == 944);

}  // namespace zarext

#endif  // ZAREXT_STORE_PROVIDER_RECORDS_H_
