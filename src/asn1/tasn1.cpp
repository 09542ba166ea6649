#include "asn1/tasn1.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

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
  explicit NodeHolder(Release release) : release_(release) {}
  NodeHolder(const NodeHolder&) = delete;
  NodeHolder& operator=(const NodeHolder&) = delete;
  ~NodeHolder() { ReleaseContents(&node_, release_); }
  AsnNode* Get() { return &node_; }

 private:
  AsnNode node_{};
  Release release_;
};

// A zero-filled block for an encoding that is read again.
class ScratchOctets {
 public:
  ScratchOctets(std::uint32_t size, Release release)
      : octets_(AllocateZeroedOctets(size)), size_(size), release_(release) {}
  ScratchOctets(const ScratchOctets&) = delete;
  ScratchOctets& operator=(const ScratchOctets&) = delete;
  ~ScratchOctets() {
    if (release_ == Release::kWiped) {
      WipeOctets(octets_.get(), size_);
    }
  }
  [[nodiscard]] std::uint8_t* Get() const { return octets_.get(); }

 private:
  OwnedOctets octets_;
  std::uint32_t size_;
  Release release_;
};

// The outermost element of an image of at most `known` octets; empty when its header is unreadable.
std::span<const std::uint8_t> OutermostElement(const std::uint8_t* image, std::uint64_t known) {
  if (image == nullptr) {
    return {};
  }
  const ElementHeader header = DecodeHeader(image, known);
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
  const unsigned octets = std::max((std::bit_width(number) + 7U) / 8U, 1U);
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

// An INTEGER that was added with a conversion has this much room behind a content on the heap.
std::uint32_t SpareOctets(std::uint8_t tag) {
  return (tag & kTagNumberMask) == kTagInteger ? kNumberOctets + 1 : 1;
}

void FillContent(AsnNode* node, const std::uint8_t* octets, std::uint32_t length) {
  std::uint8_t* content = PlaceContent(node, length, SpareOctets(TagOf(*node)));
  if (content != nullptr) {
    std::memcpy(content, octets, length);
  }
}

// The content of a new node, converted where its tag asks for it.
void FillValue(AsnNode* node, std::uint32_t length, const void* value) {
  const auto* octets = static_cast<const std::uint8_t*>(value);
  const std::uint8_t tag = TagOf(*node);
  if (tag == kTagInteger && length == kNumberOctets) {
    std::uint32_t number = 0;
    std::uint8_t content[kNumberOctets + 1];
    std::memcpy(&number, value, sizeof(number));
    FillContent(node, content, NumberToContent(number, content));
  } else if (tag == kTagBitString) {
    std::uint8_t* content = PlaceContent(node, length + 1, 1);
    content[0] = UnusedBits(octets, length);
    if (length > 0) {
      std::memcpy(content + 1, octets, length);
    }
  } else if (tag == kTagObjectIdentifier) {
    std::uint8_t content[kMaxOidContent];
    const std::int32_t used = OidTextToContent(static_cast<const char*>(value), content);
    FillContent(node, content, static_cast<std::uint32_t>(used));
  } else {
    FillContent(node, octets, length);
  }
}

OwnedNode MakeNode(AsnNode* parent, std::uint8_t tag, std::uint32_t length, const void* value) {
  OwnedNode node = NewNode(parent, tag);
  if (!IsConstructed(tag)) {
    FillValue(node.get(), length, value);
  }
  return node;
}

// How much content a new node has at most; constructed ones and texts leave the length unused.
std::uint64_t MostContent(std::uint8_t tag, std::uint32_t length) {
  if (IsConstructed(tag)) {
    return 0;
  }
  return tag == kTagObjectIdentifier ? std::uint64_t{kMaxOidContent} : std::uint64_t{length} + 1;
}

bool LacksValue(std::uint8_t tag, std::uint32_t length, const void* value) {
  return value == nullptr && (length != 0 || tag == kTagObjectIdentifier);
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
  // In the inline area also for a joined string that was retagged, whose heap block is full.
  std::uint8_t* place = InlineContent(node) + length;
  std::memcpy(place, &assembled, sizeof(assembled));
  return {place, kNumberOctets};
}

NodeValue BitStringValue(const AsnNode& node) {
  const std::uint32_t length = ContentLength(node);
  if (length == 0) {
    return {nullptr, 0};
  }
  return {node.content + 1, length - 1};
}

NodeValue OidValue(AsnNode* node) {
  if (ContentLength(*node) == 0) {
    return {reinterpret_cast<const std::uint8_t*>(""), 0};
  }
  if (node->text == nullptr) {
    KeepText(node, OidContentToText(node->content, ContentLength(*node)));
  }
  return {reinterpret_cast<const std::uint8_t*>(node->text),
          static_cast<std::uint32_t>(std::strlen(node->text))};
}

NodeValue ValueOf(AsnNode* node) {
  if (IsConstructed(TagOf(*node))) {
    return {nullptr, ContentLength(*node)};
  }
  switch (TagOf(*node)) {
    case kTagInteger:
      return IntegerValue(node);
    case kTagBitString:
      return BitStringValue(*node);
    case kTagObjectIdentifier:
      return OidValue(node);
    default:
      return {node->content, ContentLength(*node)};
  }
}

// Writes the header and, of a primitive node, the content; returns the position behind.
std::uint8_t* WriteElement(const AsnNode& node, std::uint8_t* out) {
  const std::uint32_t length = ContentLength(node);
  if (node.content == node.octets + kShortHeader) {
    CopyShort(out, node.octets, kShortHeader + length);
    return out + kShortHeader + length;
  }
  const std::uint32_t size = HeaderSize(node);
  CopyShort(out, node.octets, size);
  out += size;
  if (node.content == nullptr) {
    return out;
  }
  CopyOctets(out, node.content, length);
  return out + length;
}

void EncodeTree(const AsnNode& top, std::uint8_t* out) {
  struct Siblings {
    AsnNode* const* next;
    AsnNode* const* end;
  };
  SmallStack<Siblings> walk;
  out = WriteElement(top, out);
  walk.Push({top.children, top.children + top.count});
  while (walk.Size() > 0) {
    Siblings& siblings = walk.Top();
    if (siblings.next == siblings.end) {
      walk.Pop();
      continue;
    }
    const AsnNode& node = **siblings.next++;
    out = WriteElement(node, out);
    if (node.count > 0) {
      walk.Push({node.children, node.children + node.count});
    }
  }
}

}  // namespace

TASN1::TASN1(std::uint8_t rootTag, Release release)
    : segmentedStrings_(IsSegmentedString(rootTag)), release_(release) {
  WriteHeader(&root_, rootTag, 0);
}

TASN1::~TASN1() { ReleaseContents(&root_, release_); }

std::int32_t TASN1::ReadHeader(const std::uint8_t* octets, std::uint8_t* tag,
                               std::uint32_t* length) const {
  ElementHeader header = DecodeHeader(octets, kUnknownSize);
  if (header.indefinite) {
    header.length = ScanIndefinite(octets, kUnknownSize, 0);
  }
  if (tag != nullptr) {
    *tag = header.tag;
  }
  if (length != nullptr) {
    *length = header.length;
  }
  return header.size;
}

std::int32_t TASN1::ReadHeader(std::span<const std::uint8_t> image, std::uint8_t* tag,
                               std::uint32_t* length) const {
  ElementHeader header = DecodeHeader(image.data(), image.size());
  if (header.indefinite) {
    header.length = ScanIndefinite(image.data(), image.size(), 0);
  }
  if (tag != nullptr) {
    *tag = header.tag;
  }
  if (length != nullptr) {
    *length = header.length;
  }
  return header.size;
}

std::int32_t TASN1::Load(const std::uint8_t* data, std::uint32_t length) {
  loaded_ = data;
  loadedLength_ = length;
  if (data == nullptr) {
    return kAsnWrongSize;
  }
  ImageReader reader({data, length});
  const ElementHeader header = reader.Read(0);
  if (header.state != HeaderState::kReadable) {
    return kAsnWrongSize;
  }
  if (std::uint64_t{header.size} + header.length != length) {
    return kAsnWrongSize;
  }
  return ValidateImage(&reader);
}

void TASN1::Clear() noexcept {
  if (IsConstructed(TagOf(root_))) {
    ReleaseContents(&root_, release_);
  }
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
void TASN1::CheckRoom(std::uint64_t size) const {
  CheckedLength(ContentLength(root_) + size + (kMaxPathEntries + 1) * kLongestHeader);
}

// Room has been reserved: a node that holds a value already must find its place.
void TASN1::Insert(AsnNode* parent, std::int32_t index, OwnedNode node) noexcept {
  segmentedStrings_ = segmentedStrings_ || IsSegmentedString(TagOf(*node));
  const AsnNode* added = InsertNode(parent, index, std::move(node));
  AdjustLengths(parent, EncodedSize(*added));
}

std::int32_t TASN1::AddChildAt(std::uint8_t tag, std::uint32_t length, const void* value,
                               PathView path) {
  if (LacksValue(tag, length, value)) {
    return kAsnNoValue;
  }
  AsnNode* parent = Locate(path).node;
  if (parent == nullptr) {
    return kAsnBadPath;
  }
  if (!IsConstructed(TagOf(*parent))) {
    return kAsnPrimitiveParent;
  }
  CheckRoom(MostContent(tag, length));
  ReserveSlot(parent);
  Insert(parent, parent->count, MakeNode(parent, tag, length, value));
  return kAsnOk;
}

std::int32_t TASN1::InsertBeforeAt(std::uint8_t tag, std::uint32_t length, const void* value,
                                   PathView path) {
  if (LacksValue(tag, length, value)) {
    return kAsnNoValue;
  }
  const Place place = Locate(path);
  if (place.node == nullptr || place.node == &root_) {
    return kAsnBadPath;
  }
  AsnNode* parent = place.node->parent;
  CheckRoom(MostContent(tag, length));
  ReserveSlot(parent);
  Insert(parent, place.index, MakeNode(parent, tag, length, value));
  return kAsnOk;
}

std::int32_t TASN1::GetNodeAt(const NodeOut& out, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  const NodeValue value = ValueOf(node);
  if (out.tag != nullptr) {
    *out.tag = TagOf(*node);
  }
  if (out.childCount != nullptr) {
    *out.childCount = static_cast<std::uint32_t>(node->count);
  }
  if (out.length != nullptr) {
    *out.length = value.length;
  }
  if (out.value != nullptr) {
    *out.value = value.octets;
  }
  return kAsnOk;
}

std::int32_t TASN1::SetTagAt(std::uint8_t newTag, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  if (IsConstructed(newTag) == IsConstructed(TagOf(*node))) {
    DropText(node);
    node->octets[0] = newTag;
    segmentedStrings_ = segmentedStrings_ || IsSegmentedString(newTag);
    return kAsnOk;
  }
  // Zero-filled: after Clear the root's size counts children that are gone.
  const std::uint32_t size = EncodedSize(*node);
  const ScratchOctets image(size, release_);
  EncodeTree(*node, image.Get());
  image.Get()[0] = newTag;
  // What cannot be rebuilt is left out without a word; callers rely on 0.
  Rebuild(node, {image.Get(), size});
  return kAsnOk;
}

std::int32_t TASN1::GetEncodedSizeAt(std::uint32_t* size, PathView path) {
  const AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  if (size != nullptr) {
    *size = EncodedSize(*node);
  }
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
    ReleaseContents(&root_, release_);
    WriteHeader(&root_, TagOf(root_), 0);
    return kAsnOk;
  }
  AsnNode* parent = place.node->parent;
  const OwnedNode deleted = TakeNode(parent, place.index);
  AdjustLengths(parent, -std::int64_t{EncodedSize(*deleted)});
  ReleaseContents(deleted.get(), release_);
  return kAsnOk;
}

std::int32_t TASN1::ParseAt(const std::uint8_t* image, PathView path) {
  AsnNode* node = Locate(path).node;
  if (node == nullptr) {
    return kAsnBadPath;
  }
  // Once only: the next image at this address may be another one.
  const bool known = image == std::exchange(loaded_, nullptr);
  return Rebuild(node, OutermostElement(image, known ? loadedLength_ : kUnknownSize));
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
  NodeHolder holder(release_);
  ImageReader reader(OutermostElement(image.data(), image.size()));
  const BuildOutcome built = BuildElements(&reader, 0, 1, holder.Get(), parent);
  segmentedStrings_ = segmentedStrings_ || built.segmentedStrings;
  if (holder.Get()->count > 0) {
    CheckRoom(built.contentLength);
    ReserveSlot(parent);
    Insert(parent, parent->count, TakeNode(holder.Get(), 0));
  }
  if (segmentedStrings_) {
    Flatten(parent);
  }
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

  NodeHolder holder(release_);
  BuildOutcome built{BuildState::kBuilt, false, header.length};
  if (constructed) {
    built = BuildElements(&reader, header.size, std::uint64_t{header.size} + header.length,
                          holder.Get(), node);
  } else if (std::uint8_t* content = PlaceContent(holder.Get(), header.length, 1)) {
    std::memcpy(content, reader.At(header.size), header.length);
  }
  CheckRoom(built.contentLength);
  const std::int64_t before = EncodedSize(*node);
  ReleaseContents(node, release_);
  MoveContents(holder.Get(), node);
  WriteHeader(node, header.tag, built.contentLength);
  AdjustLengths(node->parent, EncodedSize(*node) - before);

  const bool flatten = built.segmentedStrings || IsSegmentedString(header.tag);
  segmentedStrings_ = segmentedStrings_ || flatten;
  if (built.state == BuildState::kHeaderUnreadable) {
    return kAsnInnerUnreadable;
  }
  if (built.state == BuildState::kElementFailed) {
    return kAsnInnerFailed;
  }
  return flatten ? Flatten(node) : std::int32_t{kAsnOk};
}

std::int32_t TASN1::Flatten(AsnNode* top) {
  const std::int32_t result = FlattenStrings(top, release_);
  if (result == kAsnOk && top == &root_) {
    segmentedStrings_ = false;
  }
  return result;
}

}  // namespace zarext
