#include "asn1/image_reader.h"

#include <algorithm>

#include "asn1/node_tree.h"
#include "asn1/result_codes.h"
#include "asn1/small_stack.h"

namespace zarext {
namespace {

// How far closing pairs are looked for; documents of any age depend on both numbers only by being
// refused alike.
constexpr std::uint32_t kScanLimit = 65535;
constexpr std::uint32_t kShortScanLimit = 15;

// Not found, as a position: the first one past all that are searched.
constexpr std::uint16_t kNoClosing = kScanLimit;

// One step of the search: to the next octets, into or out of an indefinite element, or nowhere.
struct ScanStep {
  std::int32_t level;
  std::uint64_t size;  // 0: the search ends here without a result
};

ScanStep StepAt(const std::uint8_t* octets, std::uint64_t available) {
  if (available >= 2 && octets[1] == 0x80) {
    return {1, 2};
  }
  if (available >= 2 && octets[0] == 0 && octets[1] == 0) {
    return {-1, 2};
  }
  const ElementHeader header = DecodeHeader(octets, available);
  if (header.state != HeaderState::kReadable) {
    return {0, 0};
  }
  return {0, header.size + (IsConstructed(header.tag) ? std::uint64_t{0} : header.length)};
}

}  // namespace

std::uint32_t ScanIndefinite(const std::uint8_t* octets, std::uint64_t available,
                             std::uint32_t position) {
  const std::uint32_t limit = position < kScanLimit ? kScanLimit - position : kShortScanLimit;
  std::uint64_t offset = 0;
  std::int32_t depth = 0;
  while (offset < limit && offset < available) {
    const ScanStep step = StepAt(octets + offset, available - offset);
    if (step.size == 0) {
      break;
    }
    depth += step.level;
    if (depth == 0) {
      return static_cast<std::uint32_t>(offset);
    }
    offset += step.size;
  }
  return limit;
}

bool HoldsElement(std::span<const std::uint8_t> image) {
  const ElementHeader header = DecodeHeader(image.data(), image.size());
  if (header.state != HeaderState::kReadable) {
    return false;
  }
  if (!header.indefinite) {
    return header.size + std::uint64_t{header.length} <= image.size();
  }
  const std::uint64_t closing = ScanIndefinite(image.data(), image.size(), 0);
  return closing + 2 <= image.size() && image[closing] == 0 && image[closing + 1] == 0;
}

std::uint32_t ImageReader::Resolve(std::uint32_t position) {
  if (position >= kScanLimit) {
    return ScanIndefinite(At(position), image_.size() - position, position);
  }
  if (closings_.empty()) {
    FillClosings(position);
  }
  // Whether it was found or not: the first position past the search stands for the limit.
  return ClosingAt(std::uint64_t{position} + 2) - position;
}

std::uint16_t ImageReader::ClosingAt(std::uint64_t position) const {
  const std::uint64_t index = position - firstClosing_;
  return index < closings_.size() ? closings_[static_cast<std::size_t>(index)] : kNoClosing;
}

// From the last position to the first, so that each one only needs those that are known already,
// whatever the nesting.
void ImageReader::FillClosings(std::uint32_t position) {
  const auto end = static_cast<std::uint32_t>(std::min<std::uint64_t>(image_.size(), kScanLimit));
  firstClosing_ = position;
  closings_.assign(end - position, kNoClosing);
  for (std::uint32_t at = end; at-- > position;) {
    closings_[at - position] = ClosingFrom(at);
  }
}

std::uint16_t ImageReader::ClosingFrom(std::uint32_t position) const {
  const ScanStep step = StepAt(At(position), image_.size() - position);
  if (step.size == 0) {
    return kNoClosing;
  }
  if (step.level < 0) {
    return static_cast<std::uint16_t>(position);
  }
  const std::uint16_t next = ClosingAt(position + step.size);
  return step.level == 0 || next == kNoClosing ? next : ClosingAt(std::uint64_t{next} + 2);
}

std::int32_t ValidateImage(ImageReader& reader, std::size_t* need) {
  SmallStack<std::uint64_t> outerEnds;
  std::uint64_t end = reader.Size();
  std::uint64_t position = 0;
  std::size_t counted = 0;
  for (;;) {
    while (position >= end) {
      if (position > end) {
        return kAsnBeyondElement;
      }
      if (outerEnds.IsEmpty()) {
        *need = counted;
        return kAsnOk;
      }
      end = outerEnds.Top();
      outerEnds.Pop();
    }
    const ElementHeader header = reader.Read(position);
    if (header.state != HeaderState::kReadable) {
      return header.state == HeaderState::kTruncated ? kAsnBeyondImage : kAsnUnreadable;
    }
    position += header.size;
    if (IsConstructed(header.tag)) {
      counted += NodeNeed(0);
      if (position + header.length != end) {  // else both end at once, however deep
        outerEnds.Push(end);
        end = position + header.length;
      }
    } else {
      counted += NodeNeed(header.length);
      position += header.length;
    }
  }
}

}  // namespace zarext
