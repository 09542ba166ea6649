// Bounded reading of identifier and length octets (X.690, 8.1). A reader carries the bounds of its
// image and never looks past them.
#ifndef ZAREXT_ASN1_IMAGE_READER_H_
#define ZAREXT_ASN1_IMAGE_READER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zarext {

// Of 32 bits: for Windows, clang keeps a header of 8 octets in one register, which is slower.
enum class HeaderState : std::uint32_t {
  kReadable,
  kUnreadable,  // a length octet of 0x85 or more
  kTruncated,   // the header needs octets beyond the image
};

struct ElementHeader {
  HeaderState state;
  std::uint8_t tag;
  std::uint8_t size;     // 2 to 6 when readable
  bool indefinite;       // the length octet is 0x80; the length is then to be found by a scan
  std::uint32_t length;  // of the content
};

// Reads one header of the available octets. In line, as Read is: clang would call both, and take
// half as long again for a document.
[[gnu::always_inline]] inline ElementHeader DecodeHeader(const std::uint8_t* octets,
                                                         std::uint64_t available) {
  if (available < 2) {
    return {HeaderState::kTruncated, 0, 0, false, 0};
  }
  const std::uint8_t tag = octets[0];
  const std::uint8_t first = octets[1];
  if (first < 0x80) {
    return {HeaderState::kReadable, tag, 2, false, first};
  }
  if (first == 0x80) {
    return {HeaderState::kReadable, tag, 2, true, 0};
  }
  const unsigned lengthOctets = first & 0x7FU;
  if (lengthOctets > 4) {
    return {HeaderState::kUnreadable, tag, 0, false, 0};
  }
  if (available < 2 + lengthOctets) {
    return {HeaderState::kTruncated, tag, 0, false, 0};
  }
  std::uint32_t length = 0;
  for (unsigned i = 0; i < lengthOctets; ++i) {
    length = length << 8U | octets[2 + i];
  }
  return {HeaderState::kReadable, tag, static_cast<std::uint8_t>(2 + lengthOctets), false, length};
}

// The length that an indefinite header at `position` of an image reports: the offset, counted from
// the header, at which its closing end-of-contents pair starts. So header size plus length covers
// the whole element with its closing pair; the builder reads the pair as the last element of the
// content and skips it. The scan takes every octet pair xx 80 for an opening and enters every
// constructed element. It looks for the pair in the first 65,535 octets of an image; beyond these
// it looks 15 octets far. When it does not find one there, or leaves the image (`octets` are those
// from the header on, `available` their number), the length is that limit.
std::uint32_t ScanIndefinite(const std::uint8_t* octets, std::uint64_t available,
                             std::uint32_t position);

// Whether the element that begins an image ends within it; one of indefinite length has to have its
// closing pair there.
bool HoldsElement(std::span<const std::uint8_t> image);

class ImageReader {
 public:
  explicit ImageReader(std::span<const std::uint8_t> image) : image_(image) {}

  [[nodiscard]] std::uint64_t Size() const { return image_.size(); }
  [[nodiscard]] const std::uint8_t* At(std::uint64_t position) const {
    return image_.data() + position;
  }

  // The header at a position, an indefinite length resolved as ScanIndefinite does it. All
  // resolving of one image together takes time linear in its size. Throws std::bad_alloc.
  [[gnu::always_inline]] ElementHeader Read(std::uint64_t position) {
    if (position > image_.size()) {
      return {HeaderState::kTruncated, 0, 0, false, 0};
    }
    ElementHeader header = DecodeHeader(At(position), image_.size() - position);
    if (header.indefinite) {
      header.length = Resolve(static_cast<std::uint32_t>(position));
    }
    return header;
  }

 private:
  std::uint32_t Resolve(std::uint32_t position);
  void FillClosings(std::uint32_t position);
  [[nodiscard]] std::uint16_t ClosingAt(std::uint64_t position) const;
  [[nodiscard]] std::uint16_t ClosingFrom(std::uint32_t position) const;

  std::span<const std::uint8_t> image_;
  // For each position from firstClosing_ on: where a scan that starts there inside an indefinite
  // element meets that element's closing pair. Filled when the first indefinite length is met.
  std::vector<std::uint16_t> closings_;
  std::uint32_t firstClosing_ = 0;
};

// Checks the elements of an image, the root header having been found to span it: 0, 1 for an
// unreadable header, 2 for a header that ends beyond the image, 4 for children that run past the
// end of their element. For 0, `need` is what the nodes of the image take from a document's memory.
// Throws std::bad_alloc.
std::int32_t ValidateImage(ImageReader& reader, std::size_t* need);

}  // namespace zarext

#endif  // ZAREXT_ASN1_IMAGE_READER_H_
