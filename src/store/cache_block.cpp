#include "store/cache_block.h"

#include <cstring>

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

// Whether the elements of entry `index` can be read. They cannot: their number is compared with 3,
// while an entry has 4, and one of 3 lacks the ALG_ID.
bool ReadEntry(TASN1& block, std::int32_t index) {
  std::uint8_t tag = 0;
  std::uint32_t count = 0;
  return block.GetNode(&tag, &count, nullptr, nullptr, index, kPathEnd) == 0 &&
         tag == kTagSequence && count == 3 &&
         block.GetNode(&tag, nullptr, nullptr, nullptr, index, 3, kPathEnd) == 0;
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

std::int32_t ReadCacheBlock(std::span<const std::uint8_t> block) {
  TASN1 tree(kTagSequence);
  if (block.empty() || block[0] != kTagSequence ||
      tree.Load(block.data(), static_cast<std::uint32_t>(block.size())) != 0 ||
      tree.Parse(block.data(), kPathEnd) != 0) {
    return 0;
  }
  std::uint32_t count = 0;
  tree.GetNode(nullptr, &count, nullptr, nullptr, kPathEnd);
  std::int32_t index = 0;
  while (index < static_cast<std::int32_t>(count) && ReadEntry(tree, index)) {
    ++index;
  }
  return index;
}

}  // namespace zarext
