// Random documents, edits and identifiers, compared with the naive codec. The seeds are fixed: a
// failure can be repeated.

#include <random>

#include "unit/asn1/comparison.h"
#include "unit/asn1/documents.h"

namespace zarext {
namespace {

class RandomImages {
 public:
  explicit RandomImages(std::uint32_t seed) : random_(seed) {}

  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

  Octets Some(std::uint32_t count) {
    Octets octets(count);
    for (std::uint8_t& octet : octets) octet = static_cast<std::uint8_t>(random_());
    return octets;
  }

  // An element as a careless or hostile sender might write it.
  Octets Element(int depth) {
    static constexpr std::uint8_t kPrimitive[] = {2, 3, 4, 4, 5, 6, 0x80, 0x86, 0x0C, 0};
    static constexpr std::uint8_t kConstructed[] = {0x30, 0x30, 0x31, 0xA0, 0x24, 0x23, 0x22};
    if (Below(40) == 0) return Hex("00 81 00");
    if (depth > 6 || Below(5) < 2) {
      const std::uint32_t size = Below(12) == 0 ? Below(400) : Below(6);
      const std::uint8_t tag = kPrimitive[Below(std::size(kPrimitive))];
      if (Below(60) == 0) return Octets{tag, 0x80} + Element(7) + Hex("00 00");
      return Octets{tag} + Length(size) + Some(size);
    }
    const std::uint8_t tag = kConstructed[Below(std::size(kConstructed))];
    Octets content;
    for (std::uint32_t children = Below(5); children > 0; --children) {
      content = content + (tag == 0x24 || tag == 0x23 ? Segment(tag) : Element(depth + 1));
    }
    if (Below(4) == 0) return Octets{tag, 0x80} + content + Hex("00 00");
    return Octets{tag} + Length(content.size()) + content;
  }

  // The same with an octet or two changed, cut off or added.
  Octets Damaged(Octets image) {
    for (std::uint32_t changes = Below(3); changes > 0 && !image.empty(); --changes) {
      static constexpr std::uint8_t kTelling[] = {0, 0x80, 0x81, 0x84, 0x85, 0xFF, 0x30, 0x24, 2};
      const std::uint32_t at = Below(static_cast<std::uint32_t>(image.size()));
      switch (Below(4)) {
        case 0:
          image.resize(at);
          break;
        case 1:
          image = image + Some(1);
          break;
        default:
          image[at] = kTelling[Below(std::size(kTelling))];
      }
    }
    return image;
  }

 private:
  Octets Segment(std::uint8_t tag) {
    if (Below(20) == 0) return Element(7);
    const std::uint32_t size = Below(4);
    return Octets{static_cast<std::uint8_t>(tag & 0x1F)} + Length(size) + Some(size);
  }

  Octets Length(std::size_t length) {
    std::uint32_t octets = length < 0x80 ? 0 : length < 0x100 ? 1 : 2;
    if (Below(10) == 0) octets = std::max(octets, Below(5));
    if (octets == 0) return {static_cast<std::uint8_t>(length)};
    Octets header{static_cast<std::uint8_t>(0x80 | octets)};
    while (octets-- > 0)
      header.push_back(static_cast<std::uint8_t>(octets < 4 ? length >> 8 * octets : 0));
    return header;
  }

  std::mt19937 random_;
};

TEST(PropertyTest, WellFormedImages) {
  RandomImages images(1);
  for (int i = 0; i < 4000; ++i) {
    const Octets image = images.Element(0);
    ASSERT_NO_THROW(CompareImage(image)) << testing::PrintToString(image);
  }
}

TEST(PropertyTest, DamagedImages) {
  RandomImages images(2);
  for (int i = 0; i < 8000; ++i) {
    const Octets image = images.Damaged(images.Element(0));
    ASSERT_NO_THROW(CompareImage(image)) << testing::PrintToString(image);
  }
}

// Images whose interesting part lies around the end of the search for closing pairs.
TEST(PropertyTest, ImagesAtTheScanLimit) {
  RandomImages images(3);
  for (int i = 0; i < 150; ++i) {
    const Octets rest = images.Damaged(images.Element(3) + images.Element(3) + images.Element(3));
    const std::uint32_t filler = 65535 - 14 - images.Below(60);
    const Octets before =
        Hex("04 83 00") +
        Octets{static_cast<std::uint8_t>(filler >> 8), static_cast<std::uint8_t>(filler)} +
        Octets(filler, 0x55);
    const std::size_t size = before.size() + rest.size();
    const Octets definite =
        Octets{0x30, 0x83, static_cast<std::uint8_t>(size >> 16),
               static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)} +
        before + rest;
    ASSERT_NO_THROW(CompareImage(definite)) << i << testing::PrintToString(rest);
    ASSERT_NO_THROW(CompareImage(Hex("30 80") + before + rest + Hex("00 00"))) << i;
  }
}

TEST(PropertyTest, Scripts) {
  RandomImages images(4);
  for (int i = 0; i < 1500; ++i) {
    Octets script = images.Some(1);
    for (int edits = 0; edits < 30; ++edits) {
      // A kind, a path of up to five, and what the kind asks for: an element is an image as well
      // as a tag with some octets.
      script = script + images.Some(1);
      const std::uint32_t depth = images.Below(4);
      script.push_back(static_cast<std::uint8_t>(depth));
      script = script + images.Some(depth);
      const Octets element = images.Element(4);
      if (element.size() < 256) {
        script.push_back(static_cast<std::uint8_t>(element.size()));
        script = script + element;
      }
    }
    script[0] = images.Below(3) == 0 ? script[0] : 0x30;
    ASSERT_NO_THROW(CompareScript(script)) << testing::PrintToString(script);
  }
}

TEST(PropertyTest, RandomScripts) {
  RandomImages images(5);
  for (int i = 0; i < 4000; ++i) {
    const Octets script = images.Some(400);
    ASSERT_NO_THROW(CompareScript(script)) << testing::PrintToString(script);
  }
}

TEST(PropertyTest, Identifiers) {
  RandomImages images(6);
  for (int i = 0; i < 5000; ++i) {
    Octets octets = images.Some(images.Below(300));
    ASSERT_NO_THROW(CompareOid(octets)) << testing::PrintToString(octets);
    for (std::uint8_t& octet : octets)
      octet = static_cast<std::uint8_t>("0123456789.... -"[octet % 16]);
    ASSERT_NO_THROW(CompareOid(octets)) << testing::PrintToString(octets);
  }
}

}  // namespace
}  // namespace zarext
