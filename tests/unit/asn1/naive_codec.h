#pragma once

// A second codec, written for the comparison tests only: recursive, slow and short. It keeps no
// headers, computes every length anew and searches every closing pair anew. Only the test's own
// small documents are given to it.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace zarext::naive {

using Octets = std::vector<std::uint8_t>;
using Path = std::vector<std::int32_t>;

struct OutsideImage {};

inline Octets OidToContent(const std::string& text) {
  std::string copy = text;
  std::vector<long> arcs;
  for (char* arc = std::strtok(copy.data(), "."); arc != nullptr && arcs.size() < 64;
       arc = std::strtok(nullptr, ".")) {
    long number = std::strtol(arc, nullptr, 10);
    if (number > 2147483647L) number = 2147483647L;
    if (number < -2147483648L) number = -2147483648L;
    arcs.push_back(number);
  }
  const std::size_t read = arcs.size();
  arcs.resize(read < 2 ? 2 : read);
  Octets out{static_cast<std::uint8_t>(arcs[0] * 40 + arcs[1])};
  for (std::size_t i = 2; i < read; ++i) {
    const auto arc = static_cast<std::uint32_t>(arcs[i]);
    if (arc >> 21) out.push_back(static_cast<std::uint8_t>(0x80 | (arc >> 21 & 0x7F)));
    if (arc >> 14) out.push_back(static_cast<std::uint8_t>(0x80 | (arc >> 14 & 0x7F)));
    if (arc >> 7) out.push_back(static_cast<std::uint8_t>(0x80 | (arc >> 7 & 0x7F)));
    out.push_back(arc & 0x7F);
  }
  return out;
}

inline std::string ContentToOid(const Octets& content) {
  if (content.empty()) return "";
  std::vector<std::int32_t> arcs{content[0] / 40, content[0] % 40};
  std::uint32_t sum = 0;
  for (std::size_t i = 1; i < content.size() && arcs.size() < 63; ++i) {
    if (content[i] & 0x80) {
      sum = (sum + (content[i] & 0x7F)) << 7;
    } else {
      arcs.push_back(static_cast<std::int32_t>(sum + content[i]));
      sum = 0;
    }
  }
  char text[512];
  std::sprintf(text, "%ld", static_cast<long>(arcs[0]));
  for (std::size_t i = 1; i < arcs.size() && std::strlen(text) <= 256; ++i) {
    std::sprintf(text + std::strlen(text), ".%ld", static_cast<long>(arcs[i]));
  }
  return text;
}

struct Node {
  std::uint8_t tag = 0;
  Octets content;
  std::vector<Node> children;
  std::uint64_t ghost = 0;  // length of children that Clear has left in the header

  bool Constructed() const { return tag & 0x20; }
  std::uint64_t Length() const {
    std::uint64_t length = content.size() + ghost;
    for (const Node& child : children) length += child.Size();
    return length;
  }
  Octets Header() const {
    const std::uint64_t length = Length();
    if (length < 0x80) return {tag, static_cast<std::uint8_t>(length)};
    Octets digits;
    for (std::uint64_t rest = length; rest != 0; rest >>= 8) {
      digits.insert(digits.begin(), static_cast<std::uint8_t>(rest));
    }
    Octets header{tag, static_cast<std::uint8_t>(0x80 | digits.size())};
    header.insert(header.end(), digits.begin(), digits.end());
    return header;
  }
  std::uint64_t Size() const { return Header().size() + Length(); }
  void Encode(Octets* out) const {
    const Octets header = Header();
    out->insert(out->end(), header.begin(), header.end());
    out->insert(out->end(), content.begin(), content.end());
    for (const Node& child : children) child.Encode(out);
  }
};

struct View {
  std::uint8_t tag = 0;
  std::uint32_t count = 0;
  std::uint32_t length = 0;
  Octets value;
  bool operator==(const View&) const = default;
};

class Document {
 public:
  explicit Document(std::uint8_t rootTag) { root_.tag = rootTag; }

  std::int32_t Load(const Octets& image) {
    image_ = image;
    position_ = 0;
    try {
      std::uint8_t tag = 0;
      std::uint64_t length = 0;
      const int header = ReadHeader(0, &tag, &length);
      if (header + length != image.size() || header == 0) return 10;
    } catch (OutsideImage) {
      return 10;
    }
    return Validate();
  }

  std::int32_t AddChild(std::uint8_t tag, const Octets& value, const Path& path, bool raw = false) {
    Node* parent = Walk(path);
    if (parent == nullptr) return 20;
    if (!parent->Constructed()) return 1;
    parent->children.push_back(Make(tag, value, raw));
    return 0;
  }

  std::int32_t InsertBefore(std::uint8_t tag, const Octets& value, Path path) {
    if (path.empty() || Walk(path) == nullptr) return 20;
    const std::int32_t index = path.back();
    path.pop_back();
    Node* parent = Walk(path);
    parent->children.insert(parent->children.begin() + index, Make(tag, value, false));
    return 0;
  }

  std::int32_t GetNode(View* view, const Path& path) {
    const Node* node = Walk(path);
    if (node == nullptr) return 20;
    *view = {node->tag,
             static_cast<std::uint32_t>(node->children.size()),
             static_cast<std::uint32_t>(node->Length()),
             {}};
    if (node->Constructed()) return 0;
    view->value = node->content;
    const Octets& content = node->content;
    if (node->tag == 2 && ((content.size() >= 1 && content.size() <= 4 && content[0] < 0x80) ||
                           (content.size() == 5 && content[0] == 0))) {
      std::uint32_t number = 0;
      for (const std::uint8_t octet : content) number = number * 256 + octet;
      view->value.resize(4);
      std::memcpy(view->value.data(), &number, 4);
    } else if (node->tag == 3 && !content.empty()) {
      view->value.erase(view->value.begin());
    } else if (node->tag == 6) {
      const std::string text = ContentToOid(content);
      view->value.assign(text.begin(), text.end());
    }
    view->length = static_cast<std::uint32_t>(view->value.size());
    return 0;
  }

  std::int32_t SetTag(std::uint8_t tag, const Path& path) {
    Node* node = Walk(path);
    if (node == nullptr) return 20;
    if ((node->tag & 0x20) == (tag & 0x20)) {
      node->tag = tag;
      return 0;
    }
    Octets image;
    node->Encode(&image);
    image.resize(node->Size());
    image[0] = tag;
    Parse(image, path);
    return 0;
  }

  std::int32_t DeleteNode(Path path) {
    if (Walk(path) == nullptr) return 20;
    if (path.empty()) {
      Clear();
      root_.content.clear();
      root_.ghost = 0;
      return 0;
    }
    const std::int32_t index = path.back();
    path.pop_back();
    Node* parent = Walk(path);
    parent->children.erase(parent->children.begin() + index);
    return 0;
  }

  void Clear() {
    if (root_.Constructed()) root_.ghost = root_.Length();
    root_.children.clear();
  }

  std::int32_t Parse(const Octets& image, const Path& path) {
    Node* node = Walk(path);
    if (node == nullptr) return 20;
    image_ = image;
    position_ = 0;
    std::uint8_t tag = 0;
    std::uint64_t length = 0;
    int header = 0;
    if (!TryHeader(&header, &tag, &length)) return 1;
    if (!(tag & 0x20) && header + length > image.size()) return 1;
    // The image ends where its element ends.
    image_.resize(std::min(image_.size(), static_cast<std::size_t>(header) + length));
    *node = Node{};
    node->tag = tag;
    position_ = static_cast<std::uint64_t>(header);
    if (!(tag & 0x20)) {
      node->content.assign(image_.begin() + header,
                           image_.begin() + header + static_cast<std::ptrdiff_t>(length));
      return 0;
    }
    const std::uint64_t end = position_ + length;
    while (position_ < end) {
      std::uint64_t inner = 0;
      if (!TryHeader(&header, &tag, &inner)) return 2;
      if (BuildNode(node) != 0) return 3;
    }
    return Flatten(node);
  }

  std::int32_t ParseInto(const Octets& image, const Path& path) {
    Node* node = Walk(path);
    if (node == nullptr) return 20;
    if (!node->Constructed()) return 0;
    image_ = image;
    position_ = 0;
    // The image ends where its element ends.
    std::uint8_t tag = 0;
    std::uint64_t length = 0;
    int header = 0;
    if (TryHeader(&header, &tag, &length) && header + length < image_.size()) {
      image_.resize(static_cast<std::size_t>(header) + length);
    }
    BuildNode(node);
    Flatten(node);
    return 0;
  }

  Octets Encoding() const {
    Octets out;
    root_.Encode(&out);
    return out;
  }
  const Node& Root() const { return root_; }
  Node* Walk(const Path& path) {
    Node* node = &root_;
    for (const std::int32_t index : path) {
      if (index < 0 || static_cast<std::size_t>(index) >= node->children.size()) return nullptr;
      node = &node->children[static_cast<std::size_t>(index)];
    }
    return node;
  }

 private:
  std::uint8_t At(std::uint64_t offset) const {
    if (offset >= image_.size()) throw OutsideImage{};
    return image_[offset];
  }

  int ReadHeader(std::uint64_t at, std::uint8_t* tag, std::uint64_t* length) const {
    *tag = At(at);
    const std::uint8_t second = At(at + 1);
    *length = 0;
    if (second < 0x80) {
      *length = second;
      return 2;
    }
    if (second == 0x80) {
      *length = Scan(at);
      return 2;
    }
    if (second > 0x84) return 0;
    for (int i = 0; i < second - 0x80; ++i) {
      *length = *length * 256 + At(at + 2 + static_cast<std::uint64_t>(i));
    }
    return second - 0x80 + 2;
  }

  std::uint64_t Scan(std::uint64_t at) const {
    const std::int64_t room = 65535 - static_cast<std::int64_t>(position_);
    const std::uint64_t limit = room < 1 ? 15 : static_cast<std::uint64_t>(room);
    std::uint64_t offset = 0;
    int depth = 0;
    try {
      while (offset < limit) {
        if (At(at + offset + 1) == 0x80) {
          ++depth;
          offset += 2;
        } else if (At(at + offset) == 0 && At(at + offset + 1) == 0) {
          if (depth == 1) return offset;
          --depth;
          offset += 2;
        } else {
          std::uint8_t tag = 0;
          std::uint64_t length = 0;
          const int header = ReadHeader(at + offset, &tag, &length);
          if (header == 0) return limit;
          offset += static_cast<std::uint64_t>(header) + (tag & 0x20 ? 0 : length);
        }
      }
    } catch (OutsideImage) {
    }
    return limit;
  }

  // At the position.
  bool TryHeader(int* header, std::uint8_t* tag, std::uint64_t* length) const {
    try {
      *header = ReadHeader(position_, tag, length);
      return *header != 0;
    } catch (OutsideImage) {
      return false;
    }
  }

  std::int32_t Validate() {
    std::uint8_t tag = 0;
    std::uint64_t length = 0;
    int header = 0;
    try {
      header = ReadHeader(position_, &tag, &length);
    } catch (OutsideImage) {
      return 2;
    }
    if (header == 0) return 1;
    position_ += static_cast<std::uint64_t>(header);
    const std::uint64_t end = position_ + length;
    if (!(tag & 0x20)) {
      position_ = end;
      return 0;
    }
    while (position_ < end) {
      const std::int32_t result = Validate();
      if (result != 0) return result;
    }
    return position_ == end ? 0 : 4;
  }

  std::int32_t BuildNode(Node* parent) {
    std::uint8_t tag = 0;
    std::uint64_t length = 0;
    int header = 0;
    if (!TryHeader(&header, &tag, &length)) return 1;
    if (tag == 0 && length == 0) {
      position_ += 2;
      return 0;
    }
    Node node;
    node.tag = tag;
    const std::uint64_t start = position_ + static_cast<std::uint64_t>(header);
    if (!node.Constructed()) {
      if (length > image_.size() - start) return 2;
      node.content.assign(image_.begin() + static_cast<std::ptrdiff_t>(start),
                          image_.begin() + static_cast<std::ptrdiff_t>(start + length));
      parent->children.push_back(node);
      position_ = start + length;
      return 0;
    }
    parent->children.push_back(node);
    position_ = start;
    const std::uint64_t end = position_ + length;
    while (position_ < end) {
      if (BuildNode(&parent->children.back()) != 0) return 2;
    }
    return 0;
  }

  static std::int32_t Flatten(Node* node) {
    if (!node->Constructed()) return 0;
    if (node->tag != 0x23 && node->tag != 0x24) {
      for (Node& child : node->children) {
        const std::int32_t result = Flatten(&child);
        if (result != 0) return result;
      }
      return 0;
    }
    Octets joined;
    const Node* last = nullptr;
    for (const Node& child : node->children) {
      if (child.tag != (node->tag & 0x1F)) return 21;
      if (!child.content.empty()) last = &child;
    }
    if (node->tag == 0x23 && last == nullptr && !node->children.empty()) return 21;
    if (node->tag == 0x23 && last != nullptr) joined.push_back(last->content[0]);
    for (const Node& child : node->children) {
      const bool final = node->tag == 0x23 && &child == last;
      joined.insert(joined.end(), child.content.begin() + (final ? 1 : 0), child.content.end());
      if (final) break;
    }
    const auto tag = static_cast<std::uint8_t>(node->tag & 0x1F);
    *node = Node{};
    node->tag = tag;
    node->content = joined;
    return 0;
  }

  static Node Make(std::uint8_t tag, const Octets& value, bool raw) {
    Node node;
    node.tag = tag;
    if (node.Constructed()) return node;
    node.content = value;
    if (raw) return node;
    if (tag == 2 && value.size() == 4) {
      std::uint32_t number = 0;
      std::memcpy(&number, value.data(), 4);
      node.content.clear();
      do {
        node.content.insert(node.content.begin(), static_cast<std::uint8_t>(number));
        number >>= 8;
      } while (number != 0);
      if (node.content[0] & 0x80) node.content.insert(node.content.begin(), 0);
    } else if (tag == 3) {
      std::uint8_t unused = 0;
      if (value.size() >= 1 && value.size() <= 4 && value.back() != 0) {
        while (!(value.back() >> unused & 1)) ++unused;
      }
      node.content.insert(node.content.begin(), unused);
    } else if (tag == 6) {
      node.content = OidToContent(std::string(value.begin(), value.end()));
    }
    return node;
  }

  Octets image_;
  std::uint64_t position_ = 0;
  Node root_;
};

}  // namespace zarext::naive
