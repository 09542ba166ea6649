#include "store/cache_block.h"

#include <cstring>
#include <string>

#include "asn1/tags.h"
#include "asn1/tasn1.h"

namespace zarext {
namespace {

// An element of entry `index`: NULL for a null content.
bool AddElement(TASN1& block, std::int32_t index, const void* content, std::uint32_t length) {
  return block.AddChild(content == nullptr ? kTagNull : kTagOctetString, length, content, index,
                        kPathEnd) == 0;
}

bool AddEntry(TASN1& block, std::int32_t index, const CNT_KEY_INFO& record) {
  const std::uint8_t algorithm[4] = {
      static_cast<std::uint8_t>(record.algId), static_cast<std::uint8_t>(record.algId >> 8),
      static_cast<std::uint8_t>(record.algId >> 16), static_cast<std::uint8_t>(record.algId >> 24)};
  const std::size_t nameLength =
      record.pszContainer == nullptr ? 0 : std::strlen(record.pszContainer);
  return block.AddChild(kTagSequence, 0, nullptr, kPathEnd) == 0 &&
         AddElement(block, index, record.pszContainer, static_cast<std::uint32_t>(nameLength)) &&
         AddElement(block, index, record.pbSerial, record.cbSerial) &&
         AddElement(block, index, record.pbCert, record.cbCert) &&
         AddElement(block, index, algorithm, sizeof algorithm);
}

// One node of a parsed block.
struct Element {
  std::uint8_t tag = 0;
  std::uint32_t count = 0;
  std::uint32_t length = 0;
  const std::uint8_t* content = nullptr;

  template <typename... Path>
  bool Read(TASN1& block, Path... path) {
    return block.GetNode(&tag, &count, &length, &content, path..., kPathEnd) == 0;
  }
  [[nodiscard]] bool HasOctets() const { return tag == kTagOctetString && length != 0; }
};

// Reads entry `index` and adds its record; false ends the reading.
bool ReadEntry(TASN1& block, std::int32_t index, KeyRecordList& list) {
  Element entry;
  if (!entry.Read(block, index) || entry.tag != kTagSequence || entry.count != 3) {
    return false;
  }
  Element name;
  Element serial;
  Element certificate;
  Element algorithm;
  if (!name.Read(block, index, 0) || !serial.Read(block, index, 1) ||
      !certificate.Read(block, index, 2) || !algorithm.Read(block, index, 3)) {
    return false;
  }
  CNT_KEY_INFO record = {};
  std::string nameText;
  if (name.HasOctets()) {
    nameText.assign(name.content, name.content + name.length);
    record.pszContainer = nameText.data();
  }
  if (serial.HasOctets()) {
    record.pbSerial = const_cast<std::uint8_t*>(serial.content);
    record.cbSerial = serial.length;
  }
  if (certificate.HasOctets()) {
    record.pbCert = const_cast<std::uint8_t*>(certificate.content);
    record.cbCert = certificate.length;
  }
  if (algorithm.HasOctets() && algorithm.length >= sizeof record.algId) {
    std::memcpy(&record.algId, algorithm.content, sizeof record.algId);
  }
  list.Add(record);
  return true;
}

}  // namespace

bool IsBlockUsable(const CacheHeader& header, std::int64_t now) noexcept {
  return header.cbData != 0 && header.cbData <= kLongestReadBlock &&
         static_cast<std::uint32_t>(now) - header.stamp <= kCacheLifetime;
}

std::vector<std::uint8_t> BuildCacheBlock(const KeyRecordList& list) {
  TASN1 block(kTagSequence);
  std::int32_t index = 0;
  std::uint32_t size = 0;
  for (const KeyRecordNode* node = list.Head(); node != nullptr; node = node->next.get()) {
    // Nothing of a list that grows past the bound would be published: the rest is not built.
    if (!AddEntry(block, index, node->record->Info()) ||
        block.GetEncodedSize(&size, kPathEnd) != 0 || size > kLongestWrittenBlock) {
      return {};
    }
    ++index;
  }
  block.GetEncodedSize(&size, kPathEnd);
  std::vector<std::uint8_t> encoded(size);
  block.Encode(encoded.data(), kPathEnd);
  return encoded;
}

void ReadCacheBlock(std::span<const std::uint8_t> block, KeyRecordList& list) {
  TASN1 tree(kTagSequence);
  if (block.empty() || block[0] != kTagSequence ||
      tree.Load(block.data(), static_cast<std::uint32_t>(block.size())) != 0 ||
      tree.Parse(block.data(), kPathEnd) != 0) {
    return;
  }
  Element root;
  if (!root.Read(tree) || root.tag != kTagSequence) {
    return;
  }
  for (std::int32_t index = 0; index < static_cast<std::int32_t>(root.count); ++index) {
    if (!ReadEntry(tree, index, list)) {
      return;
    }
  }
}

}  // namespace zarext
