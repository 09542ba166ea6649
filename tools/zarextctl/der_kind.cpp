#include "zarextctl/der_kind.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "asn1/tags.h"
#include "asn1/tasn1.h"
#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

// The identifier octets of the root's first children; 0 where there is none.
struct Shape {
  std::uint32_t count = 0;
  std::array<std::uint8_t, 3> tags = {};
};

bool ReadShape(TASN1& tree, Shape* shape) {
  std::uint8_t tag = 0;
  if (tree.GetNode(&tag, &shape->count, nullptr, nullptr, kPathEnd) != 0 || tag != kTagSequence) {
    return false;
  }
  for (std::size_t i = 0; i < shape->tags.size() && i < shape->count; ++i) {
    tree.GetNode(&shape->tags.at(i), nullptr, nullptr, nullptr, static_cast<std::int32_t>(i),
                 kPathEnd);
  }
  return true;
}

std::string KindOf(TASN1& tree, const Shape& shape) {
  using Tags = std::array<std::uint8_t, 3>;
  if (shape.count == 3 && shape.tags == Tags{kTagSequence, kTagSequence, kTagBitString}) {
    // A request has the same outer form; its inner SEQUENCE begins with its version.
    std::uint8_t first = 0;
    tree.GetNode(&first, nullptr, nullptr, nullptr, 0, 0, kPathEnd);
    std::uint32_t parts = 0;
    tree.GetNode(nullptr, &parts, nullptr, nullptr, 0, kPathEnd);
    return first == kTagInteger && parts <= 4 ? "is a certificate request" : "";
  }
  if (shape.tags[0] == kTagObjectIdentifier) {
    return "is a PKCS #7 message; take the certificate out of it first";
  }
  if (shape.tags == Tags{kTagInteger, kTagSequence, kTagOctetString}) {
    return "is a private key; give the certificate alone";
  }
  if (shape.tags[0] == kTagInteger && shape.tags[1] == kTagSequence) {
    return "is a PKCS #12 file, with a password; take the certificate out of it first";
  }
  return "is DER, but no certificate";
}

}  // namespace

std::string WhyNoCertificate(std::span<const std::uint8_t> octets) {
  if (octets.empty()) {
    return "is empty";
  }
  TASN1 tree(kTagSequence);
  std::uint8_t tag = 0;
  std::uint32_t length = 0;
  const std::int32_t header = octets.size() < 2 ? 0 : tree.ReadHeader(octets, &tag, &length);
  if (octets[0] != kTagSequence || header == 0) {
    return "is no DER: it begins with " +
           HexOctets(octets.first(std::min<std::size_t>(4, octets.size())));
  }
  const std::uint64_t announced = static_cast<std::uint64_t>(header) + length;
  if (announced > octets.size()) {
    return "is cut off: it announces " + std::to_string(announced) + " octets and has " +
           std::to_string(octets.size());
  }
  const auto size = static_cast<std::uint32_t>(announced);
  Shape shape;
  if (tree.Load(octets.data(), size) != 0 || tree.Parse(octets.data(), kPathEnd) != 0 ||
      !ReadShape(tree, &shape)) {
    return "is damaged: its DER cannot be read";
  }
  return KindOf(tree, shape);
}

std::string PemName(std::span<const std::uint8_t> octets) {
  constexpr std::string_view kBegin = "-----BEGIN ";
  constexpr std::string_view kEnd = "-----";
  const std::string_view text(reinterpret_cast<const char*>(octets.data()), octets.size());
  const std::size_t begin = text.find(kBegin);
  if (begin == std::string_view::npos) {
    return "";
  }
  const std::string_view rest = text.substr(begin + kBegin.size());
  const std::size_t end = std::min(rest.find(kEnd), rest.size());
  return Printable(rest.substr(0, std::min<std::size_t>(end, 64)));
}

}  // namespace zarext::ctl
