#include "asn1/tree_builder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "asn1/copy_octets.h"
#include "asn1/result_codes.h"
#include "asn1/small_stack.h"

namespace zarext {
namespace {

// An element whose children are being built. Its header says at first what the image says, which
// most often stays: the record of one that is as long as its children is not touched again.
struct OpenElement {
  std::uint64_t end;    // position behind its content
  std::int64_t change;  // what its children take beyond what its header says
};

// Closes the elements that end here, `parent` the innermost and `node` its record; both are then
// the element around them. False: the outermost one ends, too.
bool CloseElements(std::uint64_t position, SmallStack<OpenElement>& outer, OpenElement& parent,
                   AsnNode*& node) {
  std::uint32_t left = 0;  // levels: a record that nobody needs is not touched
  const auto climb = [&] {
    for (; left > 0; --left) {
      node = node->parent;
    }
  };
  for (; position >= parent.end; ++left) {
    if (outer.IsEmpty()) {
      return false;
    }
    const std::int64_t change = parent.change;
    parent = outer.Top();
    outer.Pop();
    if (change != 0) {
      climb();
      CheckedLength(static_cast<std::uint64_t>(ContentLength(*node) + change));
      parent.change += AdjustLength(node, change);
    }
  }
  climb();
  return true;
}

// An empty child, which names `owner` as its parent.
AsnNode* AppendChild(DocumentMemory& memory, AsnNode* parent, AsnNode* owner, std::uint8_t tag) {
  ReserveSlot(memory, parent);
  return parent->children[parent->count++] = NewNode(memory, owner, tag);
}

// Gives a new primitive node its content. Returns its encoded size.
std::uint32_t FillFromImage(DocumentMemory& memory, AsnNode* node, const std::uint8_t* content,
                            std::uint32_t length, std::uint64_t available) {
  if (length >= kInlineOctets || available < kInlineOctets) {
    FillContent(memory, node, content, length);
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

std::int32_t FlattenString(DocumentMemory& memory, AsnNode* node) {
  if (ContentLength(*node) == 0 || node->count == 0) {
    BecomePrimitive(memory, node, nullptr, 0);
    return kAsnOk;
  }
  const std::span segments(node->children, static_cast<std::size_t>(node->count));
  const bool bits = TagOf(*node) == (kTagBitString | kConstructedBit);
  std::uint32_t total = 0;
  for (const AsnNode* segment : segments) {
    if (TagOf(*segment) != (TagOf(*node) & ~kConstructedBit)) {
      return kAsnWrongSegment;
    }
    total += ContentLength(*segment);
  }
  if (bits && total == 0) {
    return kAsnWrongSegment;
  }
  std::uint8_t* content = TakeContent(memory, total);
  std::uint8_t* last = content;  // where the last segment that has content begins
  std::uint8_t* end = content;
  for (const AsnNode* segment : segments) {
    if (const std::uint32_t length = ContentLength(*segment); length != 0) {
      last = static_cast<std::uint8_t*>(std::memcpy(end, segment->content, length));
      end += length;
    }
  }
  if (bits) {
    // The last segment gives the unused-bits octet in front. The other segments keep theirs, which
    // so become data. Compatibility: signatures over such strings were made this way.
    std::rotate(content, last, last + 1);
  }
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
    while (!walk_.IsEmpty()) {
      GoUp();
    }
    AdjustLengths(top_->parent, change_);
  }

  std::int32_t Run() {
    std::int32_t result = Visit(top_);
    while (result == kAsnOk && !walk_.IsEmpty()) {
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
    Carry(AdjustLength(done.node, done.change));
  }

  void Carry(std::int64_t change) { (!walk_.IsEmpty() ? walk_.Top().change : change_) += change; }

  DocumentMemory& memory_;
  AsnNode* top_;
  std::int64_t change_ = 0;
  SmallStack<Step> walk_;
};

}  // namespace

BuildOutcome BuildElements(DocumentMemory& memory, ImageReader& reader, std::uint64_t position,
                           std::uint64_t end, AsnNode* holder, AsnNode* owner) {
  SmallStack<OpenElement> outer;
  OpenElement parent{end, 0};
  AsnNode* node = holder;  // the element whose children are being built
  BuildOutcome built{kAsnOk, false, 0};
  const auto fail = [&](std::int32_t result) {
    built.result = result;
    position = std::numeric_limits<std::uint64_t>::max();  // behind every end
  };
  for (;;) {
    if (position >= parent.end) {
      if (!CloseElements(position, outer, parent, node)) {
        built.contentLength = CheckedLength(static_cast<std::uint64_t>(parent.change));
        return built;
      }
      node = outer.IsEmpty() ? holder : node;
    }
    const ElementHeader header = reader.Read(position);
    if (header.state != HeaderState::kReadable) {
      fail(outer.IsEmpty() ? kAsnInnerUnreadable : kAsnInnerFailed);
      continue;
    }
    if (header.tag == 0 && header.length == 0) {
      // Always two octets, even for a length that was written with more: what follows is then read
      // from the middle of the header. Compatibility.
      position += 2;
      continue;
    }
    position += header.size;
    if (IsConstructed(header.tag)) {
      node = AppendChild(memory, node, outer.IsEmpty() ? owner : node, header.tag);
      built.segmentedStrings |= IsSegmentedString(header.tag);
      parent.change += std::int64_t{WriteHeader(node, header.tag, header.length)} + header.length;
      outer.Push(parent);
      parent = {position + header.length, -std::int64_t{header.length}};
      continue;
    }
    const std::uint64_t available = reader.Size() - position;
    if (header.length > available) {
      fail(kAsnInnerFailed);
      continue;
    }
    AsnNode* leaf = AppendChild(memory, node, outer.IsEmpty() ? owner : node, header.tag);
    parent.change += FillFromImage(memory, leaf, reader.At(position), header.length, available);
    position += header.length;
  }
}

std::int32_t FlattenStrings(DocumentMemory& memory, AsnNode* top) {
  return FlattenPass(memory, top).Run();
}

}  // namespace zarext
