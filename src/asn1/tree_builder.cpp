#include "asn1/tree_builder.h"

#include <cstring>

#include "asn1/copy_octets.h"
#include "asn1/result_codes.h"
#include "asn1/small_stack.h"

namespace zarext {
namespace {

// An element whose children are being built.
struct OpenElement {
  AsnNode* node;         // where its children go
  AsnNode* owner;        // what they name as their parent
  std::uint64_t end;     // position behind its content
  std::uint64_t length;  // encoded size of the children so far
};

// An empty child with this tag, for the element's owner.
AsnNode* AppendChild(DocumentMemory& memory, const OpenElement& parent, std::uint8_t tag) {
  ReserveSlot(memory, parent.node);
  AsnNode* child = NewNode(memory, parent.owner, tag);
  parent.node->children[parent.node->count++] = child;
  return child;
}

// Gives a new primitive node its content. Returns its encoded size.
std::uint32_t FillContent(DocumentMemory& memory, AsnNode* node, const std::uint8_t* content,
                          std::uint32_t length, std::uint64_t available) {
  if (length >= kInlineOctets || available < kInlineOctets) {
    if (std::uint8_t* place = PlaceContent(memory, node, length)) {
      std::memcpy(place, content, length);
    }
    return EncodedSize(*node);
  }
  node->octets[1] = static_cast<std::uint8_t>(length);
  node->content = length == 0 ? nullptr : InlineContent(node);
  CopyAndClear<kInlineOctets>(InlineContent(node), content, length);
  return kShortHeader + length;
}

// Ends the children of a constructed string and makes it a primitive one with this content.
void BecomePrimitive(DocumentMemory& memory, AsnNode* node, std::uint8_t* content,
                     std::uint32_t length) noexcept {
  const auto tag = static_cast<std::uint8_t>(TagOf(*node) & ~kConstructedBit);
  ReleaseContents(memory, node);
  node->content = content;
  WriteHeader(node, tag, length);
}

bool SegmentsMatch(const AsnNode& node, std::uint32_t* total) {
  *total = 0;
  for (std::int32_t i = 0; i < node.count; ++i) {
    const AsnNode& segment = *node.children[i];
    if (TagOf(segment) != (TagOf(node) & ~kConstructedBit)) {
      return false;
    }
    *total += ContentLength(segment);
  }
  return true;
}

// Copies the contents of the first `count` children.
std::uint8_t* JoinSegments(const AsnNode& node, std::int32_t count, std::uint8_t* out) {
  for (std::int32_t i = 0; i < count; ++i) {
    const AsnNode& segment = *node.children[i];
    if (segment.content == nullptr) {
      continue;
    }
    std::memcpy(out, segment.content, ContentLength(segment));
    out += ContentLength(segment);
  }
  return out;
}

// The last segment that has content gives the unused-bits octet in front. The other segments keep
// theirs, which so become data. Compatibility: signatures over such strings were made this way.
std::int32_t FlattenBitString(DocumentMemory& memory, AsnNode* node, std::uint32_t total) {
  if (total == 0) {
    return kAsnWrongSegment;
  }
  std::int32_t last = node->count - 1;
  while (ContentLength(*node->children[last]) == 0) {
    --last;
  }
  const AsnNode& final = *node->children[last];
  std::uint8_t* content = TakeContent(memory, total);
  content[0] = final.content[0];
  std::uint8_t* out = JoinSegments(*node, last, content + 1);
  std::memcpy(out, final.content + 1, ContentLength(final) - 1);
  BecomePrimitive(memory, node, content, total);
  return kAsnOk;
}

std::int32_t FlattenString(DocumentMemory& memory, AsnNode* node) {
  if (ContentLength(*node) == 0 || node->count == 0) {
    BecomePrimitive(memory, node, nullptr, 0);
    return kAsnOk;
  }
  std::uint32_t total = 0;
  if (!SegmentsMatch(*node, &total)) {
    return kAsnWrongSegment;
  }
  if (TagOf(*node) == (kTagBitString | kConstructedBit)) {
    return FlattenBitString(memory, node, total);
  }
  std::uint8_t* content = TakeContent(memory, total);
  JoinSegments(*node, node->count, content);
  BecomePrimitive(memory, node, content, total);
  return kAsnOk;
}

// The walk down a subtree. Lengths are corrected on the way up, which is also taken when the pass
// stops early or memory runs out.
class FlattenPass {
 public:
  FlattenPass(DocumentMemory& memory, AsnNode* top) : memory_(memory), top_(top) {}
  FlattenPass(const FlattenPass&) = delete;
  FlattenPass& operator=(const FlattenPass&) = delete;
  ~FlattenPass() {
    while (walk_.Size() > 0) {
      GoUp();
    }
    AdjustLengths(top_->parent, change_);
  }

  std::int32_t Run() {
    std::int32_t result = Visit(top_);
    while (result == kAsnOk && walk_.Size() > 0) {
      Step& step = walk_.Top();
      if (step.next < step.node->count) {
        result = Visit(step.node->children[step.next++]);
      } else {
        GoUp();
      }
    }
    return result;
  }

 private:
  struct Step {
    AsnNode* node;
    std::int64_t change;  // of its content length so far
    std::int32_t next;    // index of the child to visit
  };

  std::int32_t Visit(AsnNode* node) {
    if (!IsConstructed(TagOf(*node))) {
      return kAsnOk;
    }
    if (!IsSegmentedString(TagOf(*node))) {
      walk_.Push({node, 0, 0});
      return kAsnOk;
    }
    const std::int64_t before = EncodedSize(*node);
    const std::int32_t result = FlattenString(memory_, node);
    Carry(std::int64_t{EncodedSize(*node)} - before);
    return result;
  }

  void GoUp() {
    const Step done = walk_.Top();
    walk_.Pop();
    if (done.change != 0) {
      Carry(AdjustLength(done.node, done.change));
    }
  }

  void Carry(std::int64_t change) {
    if (walk_.Size() > 0) {
      walk_.Top().change += change;
    } else {
      change_ += change;
    }
  }

  DocumentMemory& memory_;
  AsnNode* top_;
  std::int64_t change_ = 0;
  SmallStack<Step> walk_;
};

}  // namespace

BuildOutcome BuildElements(DocumentMemory& memory, ImageReader& reader, std::uint64_t position,
                           std::uint64_t end, AsnNode* holder, AsnNode* owner) {
  SmallStack<OpenElement> open;
  open.Push({holder, owner, end, 0});
  BuildOutcome built{kAsnOk, false, 0};
  for (;;) {
    OpenElement& parent = open.Top();
    if (position >= parent.end || built.result != kAsnOk) {
      built.contentLength = CheckedLength(parent.length);
      if (open.Size() == 1) {
        return built;
      }
      const std::uint64_t size = std::uint64_t{built.contentLength} +
                                 WriteHeader(parent.node, TagOf(*parent.node), built.contentLength);
      open.Pop();
      open.Top().length += size;
      continue;
    }
    const ElementHeader header = reader.Read(position);
    if (header.state != HeaderState::kReadable) {
      built.result = open.Size() == 1 ? kAsnInnerUnreadable : kAsnInnerFailed;
      continue;
    }
    if (header.tag == 0 && header.length == 0) {
      // Always two octets, even for a length that was written with more: what follows is then read
      // from the middle of the header. Compatibility.
      position += 2;
      continue;
    }
    position += header.size;
    const bool constructed = IsConstructed(header.tag);
    const std::uint64_t available = reader.Size() - position;
    if (!constructed && header.length > available) {
      built.result = kAsnInnerFailed;
      continue;
    }
    AsnNode* node = AppendChild(memory, parent, header.tag);
    if (constructed) {
      built.segmentedStrings = built.segmentedStrings || IsSegmentedString(header.tag);
      open.Push({node, node, position + header.length, 0});
    } else {
      parent.length += FillContent(memory, node, reader.At(position), header.length, available);
      position += header.length;
    }
  }
}

std::int32_t FlattenStrings(DocumentMemory& memory, AsnNode* top) {
  return FlattenPass(memory, top).Run();
}

}  // namespace zarext
