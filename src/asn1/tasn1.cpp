#include "asn1/tasn1.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "asn1/copy_octets.h"
#include "asn1/image_reader.h"
#include "asn1/oid.h"
#include "asn1/small_stack.h"
#include "asn1/tree_builder.h"
#include "frame/wipe.h"

namespace zarext {
namespace {

constexpr std::uint64_t kUnknownSize = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t kNumberOctets = 4;

// A tree's top that lives on the stack until its contents are moved to their place.
class NodeHolder {
 public:
  explicit NodeHolder(DocumentMemory& memory) : memory_(memory) {}
  NodeHolder(const NodeHolder&) = delete;
  NodeHolder& operator=(const NodeHolder&) = delete;
  ~NodeHolder() { ReleaseContents(memory_, &node_); }
  AsnNode* Get() { return &node_; }

 private:
  DocumentMemory& memory_;
  AsnNode node_{};
};

// The outermost element of an image of at most `known` octets; empty when its header is unreadable.
std::span<const std::uint8_t> OutermostElement(const std::uint8_t* image, std::uint64_t known) {
  const ElementHeader header = DecodeHeader(image, image == nullptr ? 0 : known);
  if (header.state != HeaderState::kReadable) {
    return {};
  }
  const std::uint32_t length = header.indefinite ? ScanIndefinite(image, known, 0) : header.length;
  const std::uint64_t limit =
      std::min<std::uint64_t>(known, std::numeric_limits<std::uint32_t>::max());
  return {image, static_cast<std::size_t>(std::min(std::uint64_t{header.size} + length, limit))};
}

// The shortest content of a non-negative INTEGER; returns its length.
std::uint32_t NumberToContent(std::uint32_t number, std::uint8_t* out) {
  const unsigned octets = std::max((static_cast<unsigned>(std::bit_width(number)) + 7U) / 8U, 1U);
  std::uint32_t length = 0;
  if ((number >> (8 * octets - 1) & 1U) != 0) {
    out[length++] = 0;
  }
  for (unsigned i = octets; i-- > 0;) {
    out[length++] = static_cast<std::uint8_t>(number >> 8 * i);
  }
  return length;
}

std::uint8_t UnusedBits(const std::uint8_t* octets, std::uint32_t length) {
  if (length < 1 || length > 4 || octets[length - 1] == 0) {
    return 0;
  }
  return static_cast<std::uint8_t>(std::countr_zero(octets[length - 1]));
}

// Gives a new primitive node its content, converted where its tag asks for it.
void FillValue(DocumentMemory& memory, AsnNode* node, std::uint32_t length, const void* value) {
  const auto* octets = static_cast<const std::uint8_t*>(value);
  const std::uint8_t tag = TagOf(*node);
  if (tag == kTagInteger && length == kNumberOctets) {
    std::uint32_t number = 0;
    std::uint8_t content[kNumberOctets + 1];
    std::memcpy(&number, value, sizeof(number));
    FillContent(memory, node, content, NumberToContent(number, content));
  } else if (tag == kTagBitString) {
    std::uint8_t* content = PlaceContent(memory, node, length + 1);
    content[0] = UnusedBits(octets, length);
    if (length > 0) {
      std::memcpy(content + 1, octets, length);
    }
  } else if (tag == kTagObjectIdentifier) {
    std::uint8_t content[kMaxOidContent];
    const std::int32_t used = OidTextToContent(static_cast<const char*>(value), content);
    FillContent(memory, node, content, static_cast<std::uint32_t>(used));
  } else {
    FillContent(memory, node, octets, length);
  }
}

// How much content a new node has at most; constructed ones and texts leave the length unused.
std::uint64_t MostContent(std::uint8_t tag, std::uint32_t length) {
  if (IsConstructed(tag)) {
    return 0;
  }
  return tag == kTagObjectIdentifier ? std::uint64_t{kMaxOidContent} : std::uint64_t{length} + 1;
}

template <typename T>
void Put(T* out, T value) {
  if (out != nullptr) {
    *out = value;
  }
}

struct NodeValue {
  const std::uint8_t* octets;
  std::uint32_t length;
};

// A content that is a number from 0 to 2^32 - 1 is given as a number of the machine, kept directly
// behind the content.
NodeValue IntegerValue(AsnNode* node) {
  const std::uint32_t length = ContentLength(*node);
  const std::uint8_t* content = node->content;
  const bool number = (length >= 1 && length <= kNumberOctets && content[0] < 0x80) ||
                      (length == kNumberOctets + 1 && content[0] == 0);
  if (!number) {
    return {content, length};
  }
  std::uint32_t assembled = 0;
  for (std::uint32_t i = 0; i < length; ++i) {
    assembled = assembled << 8U | content[i];
  }
  std::uint8_t* place = node->content + length;
  std::memcpy(place, &assembled, sizeof(assembled));
  return {place, kNumberOctets};
}

NodeValue OidValue(DocumentMemory& memory, AsnNode* node) {
  if (ContentLength(*node) == 0) {
    return {reinterpret_cast<const std::uint8_t*>(""), 0};
  }
  if (node->text == nullptr) {
    KeepText(memory, node, OidContentToText(node->content, ContentLength(*node)));
  }
  return {reinterpret_cast<const std::uint8_t*>(node->text),
          static_cast<std::uint32_t>(std::strlen(node->text))};
}

NodeValue ValueOf(DocumentMemory& memory, AsnNode* node) {
  const std::uint32_t length = ContentLength(*node);
  switch (TagOf(*node)) {
    case kTagInteger:
      return IntegerValue(node);
    case kTagBitString:
      return length == 0 ? NodeValue{nullptr, 0} : NodeValue{node->content + 1, length - 1};
    case kTagObjectIdentifier:
      return OidValue(memory, node);
    default:
      return {node->content, length};
  }
}

// Writes the header and, of a primitive node, the content; returns the position behind.
std::uint8_t* WriteElement(const AsnNode& node, std::uint8_t* out) {
  if (node.content == node.octets + kShortHeader) {
    const std::uint32_t size = kShortHeader + node.octets[1];
    CopyShort(out, node.octets, size);
    return out + size;
  }
  const std::uint32_t size = HeaderSize(node);
  CopyShort(out, node.octets, size);
  out += size;
  if (node.content == nullptr) {
    return out;
  }
  const std::uint32_t length = ContentLength(node);
  std::memcpy(out, node.content, length);
  return out + length;
}

void EncodeTree(const AsnNode& top, std::uint8_t* out) {
  struct Siblings {
    AsnNode* const* next;
    AsnNode* const* end;
  };
  SmallStack<Siblings> outer;
  Siblings level{top.children, top.children + top.count};
  out = WriteElement(top, out);
  for (;;) {
    if (level.next != level.end) {
      const AsnNode& node = **level.next++;
      out = WriteElement(node, out);
      if (node.count > 0) {
        outer.Push(level);
        level = {node.children, node.children + node.count};
      }
    } else if (!outer.IsEmpty()) {
      level = outer.Top();
      outer.Pop();
    } else {
      return;
    }
  }
}

}  // namespace

TASN1::TASN1(std::uint8_t rootTag, Release release) : memory_(release) {
  WriteHeader(&root_, rootTag, 0);
}

TASN1::~TASN1() { WipeOctets(&root_, sizeof(root_)); }

std::int32_t TASN1::ReadHeader(const std::uint8_t* octets, std::uint64_t available,
                               std::uint8_t* tag, std::uint32_t* length) {
  const ElementHeader header = DecodeHeader(octets, available);
  Put(tag, header.tag);
  Put(length, header.indefinite ? ScanIndefinite(octets, available, 0) : header.length);
  return header.size;
}

std::int32_t TASN1::Load(const std::uint8_t* data, std::uint32_t length) {
  loaded_ = data;
  loadedLength_ = length;
  loadedNeed_ = 0;
  if (data == nullptr) {
    return kAsnWrongSize;
  }
  ImageReader reader({data, length});
  const ElementHeader header = reader.Read(0);
  if (header.state != HeaderState::kReadable ||
      std::uint64_t{header.size} + header.length != length) {
    return kAsnWrongSize;
  }
  return ValidateImage(reader, &loadedNeed_);
}

void TASN1::Clear() noexcept {
  if (IsConstructed(TagOf(root_))) {
    ReleaseAll();
  }
}

// Nothing below the root is left: the memory ends at once, without a walk.
void TASN1::ReleaseAll() noexcept {
  const std::uint8_t tag = TagOf(root_);
  const std::uint32_t length = ContentLength(root_);
  WipeOctets(&root_, sizeof(root_));
  WriteHeader(&root_, tag, length);
  memory_.Clear();
}

TASN1::Place TASN1::Locate(PathView path) {
  const PathView bounded = path.first(std::min(path.size(), kMaxPathEntries + 1));
  const auto end = std::find(bounded.begin(), bounded.end(), kPathEnd);
  if (end == bounded.end()) {
    return {nullptr, 0};
  }
  Place place{&root_, 0};
  for (auto index = bounded.begin(); index != end; ++index) {
    if (*index < 0 || *index >= place.node->count) {
      return {nullptr, 0};
    }
    place = {place.node->children[*index], *index};
  }
  return place;
}

// Every header above the change may grow, too.
void TASN1::CheckRoom(std::uint64_t size, std::uint32_t replaced) const {
  CheckedLength(ContentLength(root_) - replaced + size + (kMaxPathEntries + 1) * kLongestHeader);
}

std::int32_t TASN1::AddAt(bool before, std::uint8_t tag, std::uint32_t length, const void* value,
                          PathView path) {
  if (value == nullptr && (length != 0 || tag == kTagObjectIdentifier)) {
    return kAsnNoValue;
  }
  const Place place = Locate(path);
  AsnNode* parent = before && place.node != nullptr ? place.node->parent : place.node;
  if (parent == nullptr) {
    return kAsnBadPath;
  }
  if (!IsConstructed(TagOf(*parent))) {
    return kAsnPrimitiveParent;
  }
  CheckRoom(MostContent(tag, length));
  // The value is complete before the tree changes.
  NodeHolder holder(memory_);
  WriteHeader(holder.Get(), tag, 0);
  if (!IsConstructed(tag)) {
    FillValue(memory_, holder.Get(), length, value);
  }
  ReserveSlot(memory_, parent);
  AsnNode* node = NewNode(memory_, parent, tag);
  MoveNode(holder.Get(), node);
  InsertNode(parent, before ? place.index : parent->count, node);
  AdjustLengths(parent, EncodedSize(*node));
  return kAsnOk;
}

std::int32_t TASN1::GetNodeAt(std::uint8_t* tag, std::uint32_t* childCount, std::uint32_t* length,
                              const std::uint8_t** value, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  const NodeValue read = ValueOf(memory_, node);
  Put(tag, TagOf(*node));
  Put(childCount, static_cast<std::uint32_t>(node->count));
  Put(length, read.length);
  Put(value, read.octets);
  return kAsnOk;
}

std::int32_t TASN1::SetTagAt(std::uint8_t newTag, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  if (IsConstructed(newTag) == IsConstructed(TagOf(*node))) {
    DropText(memory_, node);
    node->octets[0] = newTag;
    return kAsnOk;
  }
  const std::uint32_t size = EncodedSize(*node);
  NodeHolder holder(memory_);
  std::uint8_t* image = PlaceContent(memory_, holder.Get(), size);
  // After Clear the root's size counts children that are gone.
  std::memset(image, 0, size);
  EncodeTree(*node, image);
  image[0] = newTag;
  // What cannot be rebuilt is left out without a word; callers rely on 0.
  Rebuild(node, {image, size});
  return kAsnOk;
}

std::int32_t TASN1::GetEncodedSizeAt(std::uint32_t* size, PathView path) {
  const AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  Put(size, EncodedSize(*node));
  return kAsnOk;
}

std::int32_t TASN1::EncodeAt(std::uint8_t* buffer, PathView path) {
  const AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  EncodeTree(*node, buffer);
  return kAsnOk;
}

std::int32_t TASN1::DeleteNodeAt(PathView path) {
  const Place place = Locate(path);
  if (place.node == nullptr) {
    return kAsnBadPath;
  }
  if (place.node == &root_) {
    ReleaseAll();
    WriteHeader(&root_, TagOf(root_), 0);
    return kAsnOk;
  }
  AsnNode* parent = place.node->parent;
  AsnNode* deleted = TakeNode(parent, place.index);
  AdjustLengths(parent, -std::int64_t{EncodedSize(*deleted)});
  ReleaseContents(memory_, deleted);
  memory_.GiveBack(deleted, sizeof(AsnNode));
  return kAsnOk;
}

std::int32_t TASN1::ParseAt(const std::uint8_t* image, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  // Once only: the next image at this address may be another one.
  const bool known = image == std::exchange(loaded_, nullptr);
  memory_.Expect(known ? loadedNeed_ : 0);
  const std::int32_t result =
      Rebuild(node, OutermostElement(image, known ? loadedLength_ : kUnknownSize));
  memory_.Expect(0);
  return result;
}

std::int32_t TASN1::ParseIntoAt(const std::uint8_t* image, PathView path) {
  return ParseIntoAt(OutermostElement(image, kUnknownSize), path);
}

std::int32_t TASN1::ParseIntoAt(std::span<const std::uint8_t> image, PathView path) {
  AsnNode* parent = Locate(path).node;
  if (parent == nullptr) {
    return kAsnBadPath;
  }
  if (!IsConstructed(TagOf(*parent))) {
    return kAsnOk;
  }
  NodeHolder holder(memory_);
  ImageReader reader(OutermostElement(image.data(), image.size()));
  const BuildOutcome built = BuildElements(memory_, reader, 0, 1, holder.Get(), parent);
  if (holder.Get()->count > 0) {
    CheckRoom(built.contentLength);
    ReserveSlot(memory_, parent);
    AsnNode* node = TakeNode(holder.Get(), 0);
    InsertNode(parent, parent->count, node);
    AdjustLengths(parent, EncodedSize(*node));
  }
  FlattenStrings(memory_, parent);
  return kAsnOk;
}

// Puts the element of the image in the node's place. Nothing is released before everything is
// built.
std::int32_t TASN1::Rebuild(AsnNode* node, std::span<const std::uint8_t> image) {
  ImageReader reader(image);
  const ElementHeader header = reader.Read(0);
  if (header.state != HeaderState::kReadable) {
    return kAsnUnreadable;
  }
  const bool constructed = IsConstructed(header.tag);
  if (!constructed && header.length > reader.Size() - header.size) {
    return kAsnUnreadable;
  }

  NodeHolder holder(memory_);
  BuildOutcome built{kAsnOk, false, header.length};
  if (constructed) {
    built = BuildElements(memory_, reader, header.size, std::uint64_t{header.size} + header.length,
                          holder.Get(), node);
  } else {
    FillContent(memory_, holder.Get(), reader.At(header.size), header.length);
  }
  const std::uint32_t before = EncodedSize(*node);
  CheckRoom(built.contentLength, node == &root_ ? ContentLength(root_) : before);
  WriteHeader(holder.Get(), header.tag, built.contentLength);
  ReleaseContents(memory_, node);
  MoveNode(holder.Get(), node);
  AdjustLengths(node->parent, std::int64_t{EncodedSize(*node)} - before);
  const bool flatten = built.segmentedStrings || IsSegmentedString(header.tag);
  return built.result == kAsnOk && flatten ? FlattenStrings(memory_, node) : built.result;
}

}  // namespace zarext
