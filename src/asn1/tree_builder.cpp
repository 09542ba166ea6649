#include "asn1/tree_builder.h"

#include <cstring>
#include <utility>

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

class Builder {
 public:
  Builder(ImageReader* reader, std::uint64_t position) : reader_(*reader), position_(position) {}

  BuildOutcome Run(const OpenElement& outermost);

 private:
  BuildState BuildChildren();
  void CloseTop();

  ImageReader& reader_;
  std::uint64_t position_;
  SmallStack<OpenElement> open_;
  bool segmentedStrings_ = false;
};

BuildOutcome Builder::Run(const OpenElement& outermost) {
  open_.Push(outermost);
  BuildState state = BuildState::kBuilt;
  for (;;) {
    state = BuildChildren();
    if (state != BuildState::kBuilt) {
      break;
    }
    if (position_ < open_.Top().end) {
      continue;  // of an element that was opened
    }
    if (open_.Size() == 1) {
      break;
    }
    CloseTop();
  }
  while (open_.Size() > 1) {
    CloseTop();
  }
  return {state, segmentedStrings_, CheckedLength(open_.Top().length)};
}

// An empty child of the element with this tag.
AsnNode* AppendChild(const OpenElement& parent, std::uint8_t tag) {
  ReserveSlot(parent.node);
  return AppendNode(parent.node, NewNode(parent.owner, tag));
}

// Builds children of the innermost open element up to its end, or up to a constructed one, which
// then is the innermost.
BuildState Builder::BuildChildren() {
  OpenElement& parent = open_.Top();
  std::uint64_t position = position_;
  while (position < parent.end) {
    const ElementHeader header = reader_.Read(position);
    if (header.state != HeaderState::kReadable) {
      return open_.Size() == 1 ? BuildState::kHeaderUnreadable : BuildState::kElementFailed;
    }
    if (header.tag == 0 && header.length == 0) {
      // Always two octets, even for a length that was written with more: what follows is then read
      // from the middle of the header. Compatibility.
      position += 2;
      continue;
    }
    position += header.size;
    const bool constructed = IsConstructed(header.tag);
    if (!constructed && header.length > reader_.Size() - position) {
      return BuildState::kElementFailed;
    }
    AsnNode* node = AppendChild(parent, header.tag);
    if (constructed) {
      segmentedStrings_ = segmentedStrings_ || IsSegmentedString(header.tag);
      open_.Push({node, node, position + header.length, 0});
      break;
    }
    CopyOctets(PlaceContent(node, header.length, 1), reader_.At(position), header.length);
    parent.length += EncodedSize(*node);
    position += header.length;
  }
  position_ = position;
  return BuildState::kBuilt;
}

// The element is complete: its header gets its length, and its parent one child's size more.
void Builder::CloseTop() {
  const OpenElement& closed = open_.Top();
  AsnNode* node = closed.node;
  WriteHeader(node, TagOf(*node), CheckedLength(closed.length));
  open_.Pop();
  open_.Top().length += EncodedSize(*node);
}

// Makes node a primitive string whose content is the block.
void BecomePrimitive(AsnNode* node, OwnedOctets block, std::uint32_t length,
                     Release release) noexcept {
  const auto tag = static_cast<std::uint8_t>(TagOf(*node) & ~kConstructedBit);
  ReleaseContents(node, release);
  node->content = block.release();
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

std::int32_t FlattenOctetString(AsnNode* node, std::uint32_t total, Release release) {
  OwnedOctets block = AllocateZeroedOctets(std::size_t{total} + 1);
  JoinSegments(*node, node->count, block.get());
  BecomePrimitive(node, std::move(block), total, release);
  return kAsnOk;
}

// The last segment that has content gives the unused-bits octet in front. The other segments keep
// theirs, which so become data. Compatibility: signatures over such strings were made this way.
std::int32_t FlattenBitString(AsnNode* node, std::uint32_t total, Release release) {
  if (total == 0) {
    return kAsnWrongSegment;
  }
  std::int32_t last = node->count - 1;
  while (ContentLength(*node->children[last]) == 0) {
    --last;
  }
  const AsnNode& final = *node->children[last];
  OwnedOctets block = AllocateZeroedOctets(std::size_t{total} + 4);
  block[0] = final.content[0];
  std::uint8_t* out = JoinSegments(*node, last, block.get() + 1);
  std::memcpy(out, final.content + 1, ContentLength(final) - 1);
  BecomePrimitive(node, std::move(block), total, release);
  return kAsnOk;
}

std::int32_t FlattenString(AsnNode* node, Release release) {
  if (ContentLength(*node) == 0 || node->count == 0) {
    BecomePrimitive(node, nullptr, 0, release);
    return kAsnOk;
  }
  std::uint32_t total = 0;
  if (!SegmentsMatch(*node, &total)) {
    return kAsnWrongSegment;
  }
  const bool octets = TagOf(*node) == (kTagOctetString | kConstructedBit);
  return octets ? FlattenOctetString(node, total, release) : FlattenBitString(node, total, release);
}

// The walk down a subtree. Lengths are corrected on the way up, which is also taken when the pass
// stops early or memory runs out.
class FlattenPass {
 public:
  FlattenPass(AsnNode* top, Release release) : top_(top), release_(release) {}
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
    const std::int32_t result = FlattenString(node, release_);
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

  AsnNode* top_;
  Release release_;
  std::int64_t change_ = 0;
  SmallStack<Step> walk_;
};

}  // namespace

BuildOutcome BuildElements(ImageReader* reader, std::uint64_t position, std::uint64_t end,
                           AsnNode* holder, AsnNode* owner) {
  return Builder(reader, position).Run({holder, owner, end, 0});
}

std::int32_t FlattenStrings(AsnNode* top, Release release) {
  return FlattenPass(top, release).Run();
}

}  // namespace zarext
