#include "zarextctl/shared_listing.h"

#include <cstring>

#include "asn1/tags.h"
#include "asn1/tasn1.h"
#include "store/cache_block.h"
#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

constexpr std::uint32_t kElements = 4;
constexpr std::uint32_t kAlgorithmSize = 4;

struct Node {
  std::uint8_t tag = 0;
  std::uint32_t count = 0;
  std::uint32_t length = 0;
  const std::uint8_t* content = nullptr;

  template <typename... Path>
  bool Read(TASN1& block, Path... path) {
    return block.GetNode(&tag, &count, &length, &content, path..., kPathEnd) == 0;
  }
  [[nodiscard]] std::vector<std::uint8_t> Octets() const {
    return tag == kTagOctetString && content != nullptr
               ? std::vector<std::uint8_t>(content, content + length)
               : std::vector<std::uint8_t>();
  }
};

const char* const kElementNames[kElements] = {"container name", "serial number", "certificate",
                                              "ALG_ID"};

// Reads an entry; what is wrong with it, or nothing.
std::string ReadEntry(TASN1& block, std::int32_t index, ListingEntry* entry) {
  Node sequence;
  if (!sequence.Read(block, index) || sequence.tag != kTagSequence) {
    return "it is no SEQUENCE (tag " + Hex(sequence.tag, 2) + ")";
  }
  if (sequence.count != kElements) {
    return "it has " + Count(sequence.count, "element") + " instead of 4";
  }
  Node nodes[kElements];
  for (std::int32_t i = 0; i < static_cast<std::int32_t>(kElements); ++i) {
    Node& node = nodes[i];
    if (!node.Read(block, index, i) || (node.tag != kTagOctetString && node.tag != kTagNull)) {
      return std::string("its ") + kElementNames[i] + " is no OCTET STRING (tag " +
             Hex(node.tag, 2) + ")";
    }
  }
  const std::vector<std::uint8_t> name = nodes[0].Octets();
  entry->container.assign(name.begin(), name.end());
  entry->serial = nodes[1].Octets();
  entry->certificate = nodes[2].Octets();
  const std::vector<std::uint8_t> algorithm = nodes[3].Octets();
  if (algorithm.size() != kAlgorithmSize) {
    return "its ALG_ID has " + Count(algorithm.size(), "octet") + " instead of 4";
  }
  for (std::uint32_t i = 0; i < kAlgorithmSize; ++i) {
    entry->algId |= static_cast<std::uint32_t>(algorithm[i]) << 8 * i;
  }
  return "";
}

std::string ReadEntries(std::span<const std::uint8_t> block, std::vector<ListingEntry>* entries) {
  if (block[0] != kTagSequence) {
    return "it begins with " + Hex(block[0], 2) + " and not with a SEQUENCE (0x30)";
  }
  TASN1 tree(kTagSequence);
  if (const std::int32_t result = tree.Load(block.data(), static_cast<std::uint32_t>(block.size()));
      result != 0) {
    return "it is no DER of " + Count(block.size(), "octet") + " (result " +
           std::to_string(result) + " of the module's parser)";
  }
  Node root;
  if (tree.Parse(block.data(), kPathEnd) != 0 || !root.Read(tree)) {
    return "its DER cannot be read";
  }
  for (std::int32_t i = 0; i < static_cast<std::int32_t>(root.count); ++i) {
    ListingEntry entry;
    const std::string wrong = ReadEntry(tree, i, &entry);
    if (!wrong.empty()) {
      return "entry " + std::to_string(i + 1) + ": " + wrong;
    }
    entries->push_back(std::move(entry));
  }
  return "";
}

}  // namespace

SharedListing DecodeSharedListing(std::span<const std::uint8_t> section) {
  SharedListing listing;
  CacheHeader header = {};
  if (section.size() < sizeof header) {
    listing.state = SharedListing::State::kDamaged;
    listing.damage = "the section has " + Count(section.size(), "octet") + ", less than its header";
    return listing;
  }
  std::memcpy(&header, section.data(), sizeof header);
  listing.stamp = header.stamp;
  listing.octets = header.cbData;
  if (header.cbData == 0) {
    return listing;
  }
  const std::size_t room = section.size() - sizeof header;
  if (header.cbData > kLongestReadBlock || header.cbData > room) {
    listing.damage = "its header says " + Count(header.cbData, "octet") +
                     ", and there is room for " + std::to_string(std::min(room, kLongestReadBlock));
  } else {
    listing.damage = ReadEntries(section.subspan(sizeof header, header.cbData), &listing.entries);
  }
  listing.state =
      listing.damage.empty() ? SharedListing::State::kSound : SharedListing::State::kDamaged;
  return listing;
}

std::int64_t AgeOf(std::uint32_t stamp, std::int64_t now) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(now) - stamp);
}

}  // namespace zarext::ctl
