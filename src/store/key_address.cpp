#include "store/key_address.h"

#include <algorithm>
#include <cstring>

#include "asn1/oid.h"

namespace zarext {
namespace {

constexpr std::string_view kScheme = "profile://";
constexpr std::string_view kSerialQuery = "/?sn=";
constexpr char kRsaOid[] = "1.2.840.113549.1.1.1";
constexpr char kHexDigits[] = "0123456789ABCDEF";

constexpr std::uint32_t kAtKeyExchange = 1;
constexpr std::uint32_t kAtSignature = 2;

}  // namespace

std::string ContainerUrl(std::string_view container) {
  return std::string(kScheme).append(container);
}

std::string KeyUrl(std::string_view container, std::span<const std::uint8_t> serial) {
  std::string url = ContainerUrl(container).append(kSerialQuery);
  const std::size_t longest = kKeyUrlSize - 1;
  url.resize(std::min(url.size(), longest));
  const std::size_t octets = std::min(serial.size(), (longest - url.size()) / 2);
  for (const std::uint8_t octet : serial.first(octets)) {
    url.push_back(kHexDigits[octet >> 4]);
    url.push_back(kHexDigits[octet & 0x0F]);
  }
  return url;
}

std::uint32_t KeySpecOf(std::uint32_t algId) noexcept {
  return algId != 0 && (algId & 0x1E00) == 0 ? kAtKeyExchange : kAtSignature;
}

KeyFamily KeyFamilyOf(const char* publicKeyOid) noexcept {
  if (IsOwnAlgorithmOid(publicKeyOid)) {
    return KeyFamily::kOwn;
  }
  const bool isRsa = publicKeyOid != nullptr && std::strstr(publicKeyOid, kRsaOid) != nullptr;
  return isRsa ? KeyFamily::kRsa : KeyFamily::kOther;
}

}  // namespace zarext
