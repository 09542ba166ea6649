#include "unit/asn1/oracle.h"

#include "unit/asn1/oracle_image.h"

namespace zarext::oracle {
namespace {

using NodePtr = std::unique_ptr<Node>;

std::size_t LengthSize(std::size_t length) {
  std::size_t size = 1;
  if (length >= 128) {
    for (; length > 0; length /= 256) {
      ++size;
    }
  }
  return size;
}

// The child that fills the last slot makes the array grow.
void CountSlots(Node* parent) {
  if (parent->slots == 0) {
    parent->slots = 4;
  }
  if (parent->children.size() == parent->slots) {
    parent->slots *= 2;
  }
}

void DropChildren(Node* node) {
  node->children.clear();
  node->slots = 0;
}

std::int32_t BuildNode(const Octets& image, std::uint64_t* position, Node* parent) {
  const ElementHeader header = ReadHeader(image, *position);
  if (header.size == 0) {
    return 1;
  }
  if (header.tag == 0 && header.length == 0) {
    *position += 2;
    return 0;
  }
  auto child = std::make_unique<Node>();
  child->tag = header.tag;
  const std::uint64_t start = *position + header.size;
  const std::uint64_t end = start + header.length;
  if (!child->Constructed()) {
    if (end > image.size()) {
      return 1;
    }
    child->content.assign(image.begin() + static_cast<std::ptrdiff_t>(start),
                          image.begin() + static_cast<std::ptrdiff_t>(end));
    parent->children.push_back(std::move(child));
    CountSlots(parent);
    *position = end;
    return 0;
  }
  Node* built = child.get();
  parent->children.push_back(std::move(child));
  CountSlots(parent);
  *position = start;
  while (*position < end) {
    if (BuildNode(image, position, built) != 0) {
      return 2;
    }
  }
  return 0;
}

bool JoinSegments(Node* node) {
  const std::uint8_t segmentTag = node->tag & 0x1F;
  for (const NodePtr& segment : node->children) {
    if (segment->tag != segmentTag) {
      return false;
    }
  }
  std::size_t last = node->children.size();
  while (last > 0 && node->children[last - 1]->content.empty()) {
    --last;
  }
  Octets joined;
  if (segmentTag == 3) {
    if (last == 0 && !node->children.empty()) {
      return false;
    }
    for (std::size_t i = 0; i < last; ++i) {
      const Octets& content = node->children[i]->content;
      const bool isFinal = i + 1 == last;
      joined.insert(joined.end(), content.begin() + (isFinal ? 1 : 0), content.end());
    }
    if (last > 0) {
      joined.insert(joined.begin(), node->children[last - 1]->content[0]);
    }
  } else {
    for (const NodePtr& segment : node->children) {
      joined.insert(joined.end(), segment->content.begin(), segment->content.end());
    }
  }
  node->tag = segmentTag;
  node->joined = !node->children.empty();
  DropChildren(node);
  node->content = joined;
  node->stale = 0;
  return true;
}

std::int32_t Flatten(Node* node) {
  if (node->tag == 0x23 || node->tag == 0x24) {
    return JoinSegments(node) ? 0 : 21;
  }
  for (const NodePtr& child : node->children) {
    if (Flatten(child.get()) != 0) {
      return 21;
    }
  }
  return 0;
}

NodePtr NewNode(std::uint8_t tag, const Octets& value) {
  auto node = std::make_unique<Node>();
  node->tag = tag;
  if (!node->Constructed()) {
    node->content = Content(tag, value);
  }
  return node;
}

}  // namespace

std::size_t ContentLength(const Node& node) {
  if (!node.Constructed()) {
    return node.content.size();
  }
  std::size_t length = node.stale;
  for (const NodePtr& child : node.children) {
    length += EncodedSize(*child);
  }
  return length;
}

std::size_t EncodedSize(const Node& node) {
  const std::size_t length = ContentLength(node);
  return 1 + LengthSize(length) + length;
}

void AppendHeader(const Node& node, Octets* out) {
  const std::size_t length = ContentLength(node);
  const std::size_t digits = LengthSize(length) - 1;
  out->push_back(node.tag);
  out->push_back(static_cast<std::uint8_t>(digits == 0 ? length : 0x80 + digits));
  for (std::size_t left = digits; left > 0; --left) {
    out->push_back(static_cast<std::uint8_t>(length >> (8 * (left - 1))));
  }
}

void AppendEncoding(const Node& node, Octets* out) {
  AppendHeader(node, out);
  out->insert(out->end(), node.content.begin(), node.content.end());
  for (const NodePtr& child : node.children) {
    AppendEncoding(*child, out);
  }
}

std::int32_t Document::Load(const Octets& image) {
  const ElementHeader header = ReadHeader(image, 0);
  if (header.size == 0 || header.size + header.length != image.size()) {
    return 10;
  }
  std::uint64_t position = 0;
  return Validate(image, &position);
}

std::int32_t Document::Parse(const Octets& image, const Path& path) {
  Node* node = Find(path);
  return node == nullptr ? 20 : Rebuild(node, image);
}

std::int32_t Document::Rebuild(Node* node, const Octets& image) {
  const Octets element = OutermostElement(image);
  const ElementHeader header = ReadHeader(element, 0);
  if (header.size == 0) {
    return 1;
  }
  const std::uint64_t end = header.size + header.length;
  const bool constructed = (header.tag & 0x20) != 0;
  if (!constructed && end > element.size()) {
    return 1;
  }
  node->tag = header.tag;
  node->stale = 0;
  DropChildren(node);
  node->content.clear();
  node->joined = false;
  if (!constructed) {
    node->content.assign(element.begin() + static_cast<std::ptrdiff_t>(header.size), element.end());
    return 0;
  }
  std::uint64_t position = header.size;
  while (position < end) {
    if (ReadHeader(element, position).size == 0) {
      return 2;
    }
    if (BuildNode(element, &position, node) != 0) {
      return 3;
    }
  }
  return Flatten(node);
}

std::int32_t Document::ParseInto(const Octets& image, const Path& path) {
  Node* node = Find(path);
  if (node == nullptr) {
    return 20;
  }
  if (node->Constructed()) {
    std::uint64_t position = 0;
    BuildNode(OutermostElement(image), &position, node);
    Flatten(node);
  }
  return 0;
}

std::int32_t Document::AddChild(std::uint8_t tag, const Octets& value, const Path& path) {
  Node* parent = Find(path);
  if (parent == nullptr) {
    return 20;
  }
  if (!parent->Constructed()) {
    return 1;
  }
  parent->children.push_back(NewNode(tag, value));
  CountSlots(parent);
  return 0;
}

std::int32_t Document::InsertBefore(std::uint8_t tag, const Octets& value, const Path& path) {
  if (path.empty() || Find(path) == nullptr) {
    return 20;
  }
  Node* parent = Find(Path(path.begin(), path.end() - 1));
  parent->children.insert(parent->children.begin() + path.back(), NewNode(tag, value));
  CountSlots(parent);
  return 0;
}

std::int32_t Document::SetTag(std::uint8_t tag, const Path& path) {
  Node* node = Find(path);
  if (node == nullptr) {
    return 20;
  }
  if (((node->tag ^ tag) & 0x20) == 0) {
    node->tag = tag;
    return 0;
  }
  Octets image;
  AppendEncoding(*node, &image);
  image.resize(EncodedSize(*node));
  image[0] = tag;
  Rebuild(node, image);
  return 0;
}

std::int32_t Document::DeleteNode(const Path& path) {
  if (path.empty()) {
    DropChildren(&root_);
    root_.content.clear();
    root_.stale = 0;
    root_.joined = false;
    return 0;
  }
  if (Find(path) == nullptr) {
    return 20;
  }
  Node* parent = Find(Path(path.begin(), path.end() - 1));
  parent->children.erase(parent->children.begin() + path.back());
  return 0;
}

void Document::Clear() {
  if (root_.Constructed()) {
    root_.stale = ContentLength(root_);
    DropChildren(&root_);
  }
}

Node* Document::Find(const Path& path) {
  Node* node = &root_;
  for (const std::int32_t index : path) {
    if (index < 0 || static_cast<std::size_t>(index) >= node->children.size()) {
      return nullptr;
    }
    node = node->children[static_cast<std::size_t>(index)].get();
  }
  return node;
}

View Document::Read(const Path& path) {
  const Node& node = *Find(path);
  View view;
  view.tag = node.tag;
  view.childCount = static_cast<std::uint32_t>(node.children.size());
  if (!node.Constructed()) {
    view.value = Value(node.tag, node.content);
  }
  view.length = static_cast<std::uint32_t>(view.value ? view.value->size() : ContentLength(node));
  return view;
}

}  // namespace zarext::oracle
