#include "keyinfo/import_blob.h"

#include <cstddef>

#include "asn1/tags.h"

namespace zarext {
namespace {

constexpr std::uint32_t kMagic = 0x31434500;

void AppendWord(std::vector<std::uint8_t>& octets, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    octets.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

std::optional<OctetSpan> ReadDirectly(OctetSpan bits) {
  if (bits.size() < 2 || bits[0] != kTagOctetString) {
    return std::nullopt;
  }
  if (bits.size() == std::size_t{bits[1]} + 2) {
    return bits.subspan(2);
  }
  if (bits.size() >= 3 && bits.size() == std::size_t{bits[2]} + 3) {
    return bits.subspan(3);
  }
  return std::nullopt;
}

}  // namespace

std::optional<OctetSpan> ExtractKey(TASN1& document, OctetSpan bits) {
  if (document.Load(bits.data(), static_cast<std::uint32_t>(bits.size())) != 0) {
    return ReadDirectly(bits);
  }
  // Neither result is checked: the key is what the root holds afterwards. Certificates whose key is
  // not an OCTET STRING are imported this way.
  document.Parse(bits.data(), kPathEnd);
  const std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  document.GetNode(nullptr, nullptr, &length, &value, kPathEnd);
  return OctetsOf(value, length);
}

std::vector<std::uint8_t> BuildImportBlob(const ImportRule& rule, OctetSpan key) {
  std::vector<std::uint8_t> blob;
  blob.reserve(ImportBlobSize(key.size()));
  blob.assign({kPublicKeyBlobType, kOwnBlobVersion, 0, 0});
  AppendWord(blob, rule.aiKeyAlg);
  AppendWord(blob, kMagic);
  AppendWord(blob, rule.bitLength);
  blob.insert(blob.end(), key.begin(), key.end());
  return blob;
}

}  // namespace zarext
