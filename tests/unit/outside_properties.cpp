#include "unit/outside_properties.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "frame/export_frame.h"
#include "store/cache_block.h"
#include "store/container_cache.h"
#include "store/load_certificates.h"
#include "store/store_callbacks.h"
#include "unit/fake_platform.h"

extern "C" {
BOOL WINAPI ZarExportPublicKeyInfo(HCRYPTPROV, DWORD, DWORD, PCERT_PUBLIC_KEY_INFO, DWORD*);
BOOL WINAPI ZarExportPublicKeyInfoEx(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*,
                                     PCERT_PUBLIC_KEY_INFO, DWORD*);
BOOL WINAPI ZarImportPublicKeyInfo(HCRYPTPROV, DWORD, PCERT_PUBLIC_KEY_INFO, HCRYPTKEY*);
BOOL WINAPI ZarImportPublicKeyInfoEx(HCRYPTPROV, DWORD, PCERT_PUBLIC_KEY_INFO, ALG_ID, DWORD, void*,
                                     HCRYPTKEY*);
BOOL WINAPI ZarConvertPublicKeyInfo(DWORD, PCERT_PUBLIC_KEY_INFO, DWORD, DWORD, BYTE**, DWORD*);
BOOL WINAPI ZarEncodePublicKeyAndParameters(DWORD, LPSTR, BYTE*, DWORD, DWORD, void*, BYTE**,
                                            DWORD*, BYTE**, DWORD*);
BOOL WINAPI ZarExportPrivKeyFunc(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, CRYPT_PRIVATE_KEY_INFO*,
                                 DWORD*);
BOOL WINAPI ZarImportPrivKeyFunc(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*);
BOOL WINAPI ZarMsgGenContentEncryptKey(PCMSG_CONTENT_ENCRYPT_INFO, DWORD, void*);
BOOL WINAPI ZarGenEncryptKey(HCRYPTPROV*, PCRYPT_ALGORITHM_IDENTIFIER, PVOID, PCERT_PUBLIC_KEY_INFO,
                             PFN_CMSG_ALLOC, HCRYPTKEY*, PBYTE*, PDWORD);
BOOL WINAPI ZarMsgExportKeyTrans(PCMSG_CONTENT_ENCRYPT_INFO, PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO,
                                 PCMSG_KEY_TRANS_ENCRYPT_INFO, DWORD, void*);
BOOL WINAPI ZarExportEncryptKey(HCRYPTPROV, HCRYPTKEY, PCERT_PUBLIC_KEY_INFO, PBYTE, PDWORD);
BOOL WINAPI ZarMsgImportKeyTrans(PCRYPT_ALGORITHM_IDENTIFIER, PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA,
                                 DWORD, void*, HCRYPTKEY*);
BOOL WINAPI ZarImportEncryptKey(HCRYPTPROV, DWORD, PCRYPT_ALGORITHM_IDENTIFIER,
                                PCRYPT_ALGORITHM_IDENTIFIER, PBYTE, DWORD, HCRYPTKEY*);
}

namespace zarext::test {
namespace {

constexpr HCRYPTPROV kProvider = 0x1001;

// What no call may keep.
std::string Held(const FakePlatform& platform) {
  std::string held;
  const auto count = [&](int number, const char* what) {
    if (number != 0) {
      held += std::to_string(number) + what;
    }
  };
  count(platform.providerContexts, " provider contexts ");
  count(platform.stores, " stores ");
  count(platform.certificates, " certificates ");
  count(platform.views, " views ");
  count(platform.turns, " turns ");
  return held.empty() ? "" : "not given back: " + held;
}

CRYPT_BIT_BLOB BitBlob(Input& input) {
  const std::vector<std::uint8_t> octets = input.Octets(400);
  const bool given = input.Octet() % 8 != 7;
  return {static_cast<DWORD>(octets.size()), given ? Platform().Keep(octets) : nullptr,
          input.Octet()};
}

CERT_PUBLIC_KEY_INFO PublicKey(Input& input) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = input.Oid();
  info.PublicKey = BitBlob(input);
  // A length without octets is the caller's own fault; one of zero comes with and without.
  if (info.PublicKey.pbData == nullptr) {
    info.PublicKey.cbData = 0;
  }
  return info;
}

// The room that an export of a key is promised.
template <typename Info>
struct Room {
  alignas(16) BYTE octets[8192] = {};
  Info* Get() { return reinterpret_cast<Info*>(octets); }
};

void CallPublicKeys(Input& input) {
  CERT_PUBLIC_KEY_INFO info = PublicKey(input);
  Room<CERT_PUBLIC_KEY_INFO> room;
  DWORD size = 0;
  HCRYPTKEY key = 0;
  BYTE* out = nullptr;
  BYTE* parameters = nullptr;
  DWORD parametersSize = 0;
  switch (input.Octet() % 6) {
    case 0:
      ZarExportPublicKeyInfo(kProvider, AT_SIGNATURE, X509_ASN_ENCODING,
                             input.Octet() % 2 == 0 ? room.Get() : nullptr, &size);
      break;
    case 1:
      ZarExportPublicKeyInfoEx(kProvider, AT_SIGNATURE, X509_ASN_ENCODING, input.Oid(), 0, nullptr,
                               input.Octet() % 2 == 0 ? room.Get() : nullptr, &size);
      break;
    case 2:
      ZarImportPublicKeyInfo(kProvider, X509_ASN_ENCODING, &info, &key);
      break;
    case 3:
      ZarImportPublicKeyInfoEx(kProvider, X509_ASN_ENCODING, &info, 0, 0, nullptr, &key);
      break;
    case 4:
      ZarConvertPublicKeyInfo(X509_ASN_ENCODING, &info, 0, 0, &out, &size);
      break;
    default:
      ZarEncodePublicKeyAndParameters(X509_ASN_ENCODING, info.Algorithm.pszObjId,
                                      info.PublicKey.pbData, info.PublicKey.cbData, 0, nullptr,
                                      &out, &size, &parameters, &parametersSize);
      break;
  }
  if (key != 0) {
    CryptDestroyKey(key);
  }
}

// The import leaves its key open by design.
void CallPrivateKeys(Input& input) {
  if (input.Octet() % 2 == 0) {
    Room<CRYPT_PRIVATE_KEY_INFO> room;
    DWORD size = 0;
    ZarExportPrivKeyFunc(kProvider, AT_SIGNATURE, input.Oid(), 0, nullptr, room.Get(), &size);
    return;
  }
  const auto blob = [&]() -> CRYPT_DATA_BLOB {
    const std::vector<std::uint8_t> octets = input.Octets(1000);
    return {static_cast<DWORD>(octets.size()), Platform().Keep(octets)};
  };
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = input.Oid();
  info.Algorithm.Parameters = blob();
  info.PrivateKey = blob();
  ZarImportPrivKeyFunc(kProvider, &info, 0, nullptr);
  Platform().keys = 0;
}

void CallMessageKeys(Input& input) {
  CRYPT_ALGORITHM_IDENTIFIER content = {};
  content.pszObjId = input.Oid();
  CERT_PUBLIC_KEY_INFO info = PublicKey(input);
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO recipient = {};
  recipient.cbSize = sizeof recipient;
  recipient.KeyEncryptionAlgorithm.pszObjId = input.Oid();
  recipient.RecipientPublicKey = info.PublicKey;
  CMSG_RECIPIENT_ENCODE_INFO first = {};
  first.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
  first.pKeyTrans = &recipient;
  CMSG_CONTENT_ENCRYPT_INFO message = {};
  message.cbSize = sizeof message;
  message.hCryptProv = kProvider;
  message.ContentEncryptionAlgorithm = content;
  message.cRecipients = 1;
  message.rgCmsRecipients = &first;
  message.cbContentEncryptKey = 1;
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
  output.cbSize = sizeof output;
  CMSG_KEY_TRANS_RECIPIENT_INFO received = {};
  received.KeyEncryptionAlgorithm = recipient.KeyEncryptionAlgorithm;
  received.EncryptedKey = {info.PublicKey.cbData, info.PublicKey.pbData};
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
  para.cbSize = sizeof para;
  para.hCryptProv = kProvider;
  para.pKeyTrans = &received;
  HCRYPTPROV provider = kProvider;
  HCRYPTKEY key = 0;
  BYTE* wrapped = nullptr;
  DWORD wrappedSize = 0;
  Room<BYTE> room;
  switch (input.Octet() % 6) {
    case 0:
      ZarMsgGenContentEncryptKey(&message, 0, nullptr);
      break;
    case 1:
      ZarGenEncryptKey(&provider, &content, nullptr, &info, nullptr, &key, &wrapped, &wrappedSize);
      break;
    case 2:
      ZarMsgExportKeyTrans(&message, &recipient, &output, 0, nullptr);
      break;
    case 3:
      wrappedSize = sizeof room.octets;
      ZarExportEncryptKey(kProvider, 0x2002, &info, room.octets, &wrappedSize);
      break;
    case 4:
      ZarMsgImportKeyTrans(&content, &para, 0, nullptr, &key);
      break;
    default:
      ZarImportEncryptKey(kProvider, AT_KEYEXCHANGE, &content, &info.Algorithm,
                          info.PublicKey.pbData, info.PublicKey.cbData, &key);
      break;
  }
  // Content keys are the caller's, and generation leaves the recipient's open by design.
  Platform().keys = 0;
}

}  // namespace

std::string CheckSharedBlock(std::span<const std::uint8_t> octets) {
  FakePlatform platform({});
  const std::span<std::uint8_t> section = SharedSection();
  const std::size_t size = std::min(octets.size(), section.size() - sizeof(CacheHeader));
  const CacheHeader header = {static_cast<std::uint32_t>(std::time(nullptr)),
                              static_cast<std::uint32_t>(size)};
  std::memcpy(section.data(), &header, sizeof header);
  std::copy_n(octets.begin(), size, section.begin() + sizeof header);
  TContainerCache& cache = TContainerCache::Instance();
  cache.ReadShared();
  if (!cache.List().IsEmpty()) {
    return "an entry was taken";
  }
  return Held(platform);
}

std::string CheckKeyRecords(std::span<const std::uint8_t> octets) {
  FakePlatform platform(octets);
  std::memset(SharedSection().data(), 0, sizeof(CacheHeader));
  TContainerCache::Instance().Clear();
  try {
    load_certs_from_CSP(&platform);
  } catch (ErrorCode code) {
    SetLastError(code);
  } catch (const std::bad_alloc&) {
    SetLastError(static_cast<DWORD>(NTE_NO_MEMORY));
  }
  TContainerCache::Instance().Clear();
  if (std::string held = Held(platform); !held.empty()) {
    return "open: " + held;
  }
  const std::vector<std::uint8_t> encoded = platform.input.Octets(100);
  const PCCERT_CONTEXT certificate =
      CertCreateCertificateContext(1, encoded.data(), static_cast<DWORD>(encoded.size()));
  if (certificate != nullptr) {
    CertStoreProvWriteCertCallback(&platform, certificate, 1);
    CertFreeCertificateContext(certificate);
  }
  if (std::string held = Held(platform); !held.empty()) {
    return "write: " + held;
  }
  return "";
}

std::string CheckKeyBlobs(std::span<const std::uint8_t> octets) {
  FakePlatform platform(octets);
  switch (platform.input.Octet() % 3) {
    case 0:
      CallPublicKeys(platform.input);
      break;
    case 1:
      CallPrivateKeys(platform.input);
      break;
    default:
      CallMessageKeys(platform.input);
      break;
  }
  if (platform.keys != 0) {
    return std::to_string(platform.keys) + " keys not given back";
  }
  return Held(platform);
}

}  // namespace zarext::test
