#include "provider/der.h"

namespace zarext::provider {
namespace {

constexpr std::uint8_t kLongForm = 0x80;

void AppendArc(Bytes& out, std::uint64_t arc) {
  Bytes groups{static_cast<std::uint8_t>(arc & 0x7F)};
  while ((arc >>= 7) != 0) {
    groups.push_back(static_cast<std::uint8_t>(0x80 | (arc & 0x7F)));
  }
  out.insert(out.end(), groups.rbegin(), groups.rend());
}

std::vector<std::uint64_t> SplitArcs(std::string_view dotted) {
  std::vector<std::uint64_t> arcs{0};
  for (const char c : dotted) {
    if (c == '.') {
      arcs.push_back(0);
    } else {
      arcs.back() = arcs.back() * 10 + static_cast<std::uint64_t>(c - '0');
    }
  }
  return arcs;
}

}  // namespace

DerElement DerReader::Next() {
  Require(rest_.size() >= 2, NTE_BAD_DATA);
  DerElement element;
  element.tag = rest_[0];
  Require((element.tag & 0x1F) != 0x1F, NTE_BAD_DATA);
  std::size_t header = 2;
  std::size_t length = rest_[1];
  if (length >= kLongForm) {
    const std::size_t count = length - kLongForm;
    Require(count >= 1 && count <= 4 && rest_.size() >= 2 + count, NTE_BAD_DATA);
    length = 0;
    for (std::size_t i = 0; i < count; ++i) {
      length = (length << 8) | rest_[2 + i];
    }
    Require(length >= kLongForm && (length >> (8 * (count - 1))) != 0, NTE_BAD_DATA);
    header += count;
  }
  Require(length <= rest_.size() - header, NTE_BAD_DATA);
  element.whole = rest_.first(header + length);
  element.content = element.whole.subspan(header);
  rest_ = rest_.subspan(header + length);
  return element;
}

View DerReader::Next(std::uint8_t tag) {
  Require(NextIs(tag), NTE_BAD_DATA);
  return Next().content;
}

std::size_t MeasureDer(const std::uint8_t* data, std::uint8_t tag) {
  Require(data[0] == tag, NTE_BAD_DATA);
  if (data[1] < kLongForm) {
    return 2U + data[1];
  }
  const std::size_t count = data[1] - std::size_t{kLongForm};
  Require(count >= 1 && count <= 3, NTE_BAD_DATA);
  std::size_t length = 0;
  for (std::size_t i = 0; i < count; ++i) {
    length = (length << 8) | data[2 + i];
  }
  return 2 + count + length;
}

Bytes Der(std::uint8_t tag, View content) {
  Bytes out{tag};
  const std::size_t length = content.size();
  if (length < kLongForm) {
    out.push_back(static_cast<std::uint8_t>(length));
  } else {
    Bytes octets;
    for (std::size_t left = length; left != 0; left >>= 8) {
      octets.push_back(static_cast<std::uint8_t>(left & 0xFF));
    }
    out.push_back(static_cast<std::uint8_t>(kLongForm + octets.size()));
    out.insert(out.end(), octets.rbegin(), octets.rend());
  }
  Append(out, content);
  return out;
}

Bytes DerOid(std::string_view dotted) {
  const std::vector<std::uint64_t> arcs = SplitArcs(dotted);
  Require(arcs.size() >= 2, NTE_FAIL);
  Bytes content;
  AppendArc(content, arcs[0] * 40 + arcs[1]);
  for (std::size_t i = 2; i < arcs.size(); ++i) {
    AppendArc(content, arcs[i]);
  }
  return Der(kDerOid, content);
}

Bytes DerUnsigned(View bigEndian) {
  while (!bigEndian.empty() && bigEndian[0] == 0) {
    bigEndian = bigEndian.subspan(1);
  }
  Bytes content;
  if (bigEndian.empty() || bigEndian[0] >= 0x80) {
    content.push_back(0);
  }
  Append(content, bigEndian);
  return Der(kDerInteger, content);
}

Bytes DerSmall(std::uint8_t value) { return DerUnsigned(View(&value, 1)); }

Bytes DerBits(View octets) { return Der(kDerBitString, Join(Bytes{0}, octets)); }

std::string ReadOid(View content) {
  Require(!content.empty() && content.size() <= 64 && content.back() < 0x80, NTE_BAD_DATA);
  std::string text;
  std::uint64_t arc = 0;
  for (const std::uint8_t octet : content) {
    Require(arc < (std::uint64_t{1} << 56), NTE_BAD_DATA);
    arc = (arc << 7) | (octet & 0x7FU);
    if (octet >= 0x80) {
      continue;
    }
    if (text.empty()) {
      const std::uint64_t first = std::min<std::uint64_t>(arc / 40, 2);
      text = std::to_string(first) + "." + std::to_string(arc - first * 40);
    } else {
      text += "." + std::to_string(arc);
    }
    arc = 0;
  }
  return text;
}

Bytes ReadUnsigned(View content) {
  Require(!content.empty() && content[0] < 0x80, NTE_BAD_DATA);
  if (content[0] != 0) {
    return ToBytes(content);
  }
  Require(content.size() == 1 || content[1] >= 0x80, NTE_BAD_DATA);
  return ToBytes(content.subspan(1));
}

Bytes ReadBits(View content) {
  Require(!content.empty() && content[0] == 0, NTE_BAD_DATA);
  return ToBytes(content.subspan(1));
}

}  // namespace zarext::provider
