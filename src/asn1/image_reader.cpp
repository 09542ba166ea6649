#include "asn1/image_reader.h"

#include <algorithm>

#include "asn1/asn_node.h"
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

std::uint32_t ScanLimitAt(std::uint32_t position) {
  return position < kScanLimit ? kScanLimit - position : kShortScanLimit;
}

// One step of a scan over octets that are no indefinite header and no closing pair: how far the
// next step is, or 0 when the scan ends here.
std::uint64_t StepOver(const std::uint8_t* octets, std::uint64_t available) {
  const ElementHeader header = DecodeHeader(octets, available);
  if (header.state != HeaderState::kReadable) {
    return 0;
  }
  return header.size + (IsConstructed(header.tag) ? std::uint64_t{0} : header.length);
}

}  // namespace

std::uint32_t ScanIndefinite(const std::uint8_t* octets, std::uint64_t available,
                             std::uint32_t position) {
  const std::uint32_t limit = ScanLimitAt(position);
  std::uint64_t offset = 0;
  std::uint32_t depth = 0;
  while (offset < limit && offset + 1 < available) {
    const std::uint8_t* at = octets + offset;
    if (at[1] == 0x80) {
      ++depth;
      offset += 2;
    } else if (at[0] == 0 && at[1] == 0) {
      if (depth == 1) {
        return static_cast<std::uint32_t>(offset);
      }
      --depth;
      offset += 2;
    } else {
      const std::uint64_t step = StepOver(at, available - offset);
      if (step == 0) {
        break;
      }
      offset += step;
    }
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
  const std::uint64_t available = image_.size() - position;
  if (available < 2) {
    return kNoClosing;
  }
  const std::uint8_t* octets = At(position);
  if (octets[1] == 0x80) {
    const std::uint16_t inner = ClosingAt(std::uint64_t{position} + 2);
    return inner == kNoClosing ? kNoClosing : ClosingAt(std::uint64_t{inner} + 2);
  }
  if (octets[0] == 0 && octets[1] == 0) {
    return static_cast<std::uint16_t>(position);
  }
  const std::uint64_t step = StepOver(octets, available);
  return step == 0 ? kNoClosing : ClosingAt(position + step);
}

std::int32_t ValidateImage(ImageReader* reader) {
  SmallStack<std::uint64_t> outerEnds;
  std::uint64_t end = reader->Size();
  std::uint64_t position = 0;
  for (;;) {
    while (position >= end) {
      if (position > end) {
        return kAsnBeyondElement;
      }
      if (outerEnds.Size() == 0) {
        return kAsnOk;
      }
      end = outerEnds.Top();
      outerEnds.Pop();
    }
    const ElementHeader header = reader->Read(position);
    if (header.state == HeaderState::kUnreadable) {
      return kAsnUnreadable;
    }
    if (header.state == HeaderState::kTruncated) {
      return kAsnBeyondImage;
    }
    position += header.size;
    if (IsConstructed(header.tag)) {
      outerEnds.Push(end);
      end = position + header.length;
    } else {
      position += header.length;
    }
  }
}

}  // namespace zarext
