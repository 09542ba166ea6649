#include "store/key_address.h"

#include <cstring>

#include "asn1/oid.h"

namespace zarext {
namespace {

constexpr std::string_view kSerialQuery = "/?sn=";
constexpr char kRsaOid[] = "1.2.840.113549.1.1.1";
constexpr char kHexDigits[] = "0123456789ABCDEF";

constexpr std::uint32_t kAtKeyExchange = 1;
constexpr std::uint32_t kAtSignature = 2;

}  // namespace

FixedText<kKeyUrlSize> KeyUrl(std::string_view container,
                              std::span<const std::uint8_t> serial) noexcept {
  FixedText<kKeyUrlSize> url = ContainerUrl<kKeyUrlSize>(container);
  url.Append(kSerialQuery);
  for (const std::uint8_t octet : serial) {
    const char digits[] = {kHexDigits[octet >> 4], kHexDigits[octet & 0x0F]};
    if (url.Room() < sizeof digits) {
      break;
    }
    url.Append({digits, sizeof digits});
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
