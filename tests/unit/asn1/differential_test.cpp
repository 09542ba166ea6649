// Random documents, images and edit scripts against the naive implementation.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "asn1/tasn1.h"
#include "unit/asn1/differential.h"

namespace zarext {
namespace {

using oracle::Octets;

// How many documents of each kind, as a multiple of the usual number.
std::uint32_t Times(std::uint32_t usual) {
  const char* times = std::getenv("ZAREXT_DOCUMENTS");
  return times == nullptr ? usual
                          : usual * static_cast<std::uint32_t>(std::strtoul(times, nullptr, 10));
}

// Random documents as images: any mixture of definite and indefinite lengths and of length forms
// with more octets than needed.
class ImageMaker {
 public:
  enum class Form { kDer, kAny };

  ImageMaker(std::uint32_t seed, Form form) : random_(seed), form_(form) {}

  Octets Element(int depth) {
    const bool constructed = depth > 0 && Below(10) < 6;
    const std::uint8_t tag = Tag(constructed);
    return constructed ? Finish(tag, Children(depth)) : Finish(tag, Value());
  }

  // Constructed strings whose segments fit, and now and then do not.
  Octets Segmented() {
    const auto tag = static_cast<std::uint8_t>(3 + Below(2));
    Octets content;
    for (std::uint32_t left = Below(6); left > 0; --left) {
      Append(&content, Finish(Below(20) == 0 ? 2 : tag, Value()));
    }
    return Finish(tag | 0x20, content);
  }

  // Changes a few octets, or cuts or lengthens the image.
  void Damage(Octets* image) {
    for (std::uint32_t left = 1 + Below(3); left > 0 && !image->empty(); --left) {
      static constexpr std::uint8_t kOctets[] = {0x00, 0x80, 0x81, 0x82, 0x84, 0x85, 0xFF, 0x30};
      std::uint8_t& octet = (*image)[Below(static_cast<std::uint32_t>(image->size()))];
      octet = Below(2) == 0 ? kOctets[Below(8)] : static_cast<std::uint8_t>(octet + 1);
    }
    if (Below(8) == 0) {
      image->resize(image->size() - image->size() / 4);
    }
    if (Below(8) == 0) {
      image->resize(image->size() + Below(4));
    }
  }

  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_()) % limit; }

 private:
  static void Append(Octets* to, const Octets& octets) {
    to->insert(to->end(), octets.begin(), octets.end());
  }

  std::uint8_t Tag(bool constructed) {
    static constexpr std::uint8_t kPrimitive[] = {2, 3, 4, 5, 6, 12, 0x80, 0x82, 0x86, 0xC2};
    static constexpr std::uint8_t kConstructed[] = {0x30, 0x31, 0xA0, 0xA3, 0x22, 0x60};
    return constructed ? kConstructed[Below(6)] : kPrimitive[Below(10)];
  }

  Octets Value() {
    static constexpr std::uint32_t kLengths[] = {37, 38, 127, 128, 255, 256};
    Octets value(Below(12) == 0 ? kLengths[Below(6)] : Below(8));
    for (std::uint8_t& octet : value) {
      octet = static_cast<std::uint8_t>(Below(3) == 0 ? 0 : Below(256));
    }
    return value;
  }

  Octets Children(int depth) {
    Octets content;
    for (std::uint32_t left = Below(6); left > 0; --left) {
      const bool segmented = form_ == Form::kAny && Below(8) == 0;
      Append(&content, segmented ? Segmented() : Element(depth - 1));
    }
    return content;
  }

  Octets Finish(std::uint8_t tag, const Octets& content) {
    Octets element = {tag};
    if (form_ == Form::kAny && (tag & 0x20) != 0 && Below(3) == 0) {
      element.push_back(0x80);
      Append(&element, content);
      Append(&element, {0, 0});
      return element;
    }
    std::size_t least = 0;
    while (content.size() >= 128 && content.size() >> (8 * least) != 0) {
      ++least;
    }
    if (form_ == Form::kAny && Below(10) == 0) {
      least = least + Below(static_cast<std::uint32_t>(5 - least));
    }
    element.push_back(static_cast<std::uint8_t>(least == 0 ? content.size() : 0x80 + least));
    for (std::size_t i = least; i-- > 0;) {
      element.push_back(static_cast<std::uint8_t>(content.size() >> (8 * i)));
    }
    Append(&element, content);
    return element;
  }

  std::mt19937 random_;
  Form form_;
};

TEST(Asn1Differential, DerReencodesToItself) {
  for (std::uint32_t seed = 0; seed < Times(3000); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kDer);
    const Octets image = maker.Element(6);
    const auto size = static_cast<std::uint32_t>(image.size());
    TASN1 document(0x30);
    ASSERT_EQ(document.Load(image.data(), size), 0) << seed;
    ASSERT_EQ(document.Parse(image.data(), kPathEnd), 0) << seed;
    std::uint32_t encodedSize = 0;
    ASSERT_EQ(document.GetEncodedSize(&encodedSize, kPathEnd), 0);
    ASSERT_EQ(encodedSize, size) << seed;
    Octets encoded(size);
    ASSERT_EQ(document.Encode(encoded.data(), kPathEnd), 0);
    ASSERT_EQ(encoded, image) << seed;
  }
}

TEST(Asn1Differential, ImagesGiveWhatTheNaiveParserGives) {
  for (std::uint32_t seed = 0; seed < Times(4000); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    ASSERT_EQ(CompareImage(maker.Element(5)), "") << seed;
  }
}

TEST(Asn1Differential, SegmentedStringsGiveWhatTheNaiveParserGives) {
  for (std::uint32_t seed = 0; seed < Times(4000); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    ASSERT_EQ(CompareImage(maker.Segmented()), "") << seed;
  }
}

TEST(Asn1Differential, DamagedImagesGiveWhatTheNaiveParserGives) {
  for (std::uint32_t seed = 0; seed < Times(6000); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    Octets image = maker.Element(5);
    maker.Damage(&image);
    ASSERT_EQ(CompareImage(image), "") << seed;
  }
}

// Parse of images whose Load failed inside, where the tree stays as far as it was built: the outer
// header is made to fit again, so that the damage is inside.
TEST(Asn1Differential, ImagesDamagedInsideGiveWhatTheNaiveParserGives) {
  for (std::uint32_t seed = 0; seed < Times(6000); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    Octets content = maker.Element(4);
    const Octets more = maker.Element(3);
    content.insert(content.end(), more.begin(), more.end());
    maker.Damage(&content);
    content.resize(content.size() < 0x10000 ? content.size() : 0xFFFF);
    const auto size = static_cast<std::uint32_t>(content.size());
    Octets image = {0x30, 0x82, static_cast<std::uint8_t>(size >> 8),
                    static_cast<std::uint8_t>(size)};
    image.insert(image.end(), content.begin(), content.end());
    ASSERT_EQ(CompareImage(image), "") << seed;
  }
}

// Around and beyond the first 65,535 octets, where the search for a closing pair has other bounds.
TEST(Asn1Differential, IndefiniteLengthsFarInsideGiveWhatTheNaiveParserGives) {
  for (std::uint32_t seed = 0; seed < Times(300); ++seed) {
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    const std::uint32_t filler = 65440 + maker.Below(90);
    Octets content = {0x04, 0x82, static_cast<std::uint8_t>(filler >> 8),
                      static_cast<std::uint8_t>(filler)};
    content.resize(content.size() + filler, 0x55);
    for (int left = 12; left > 0; --left) {
      Octets element = maker.Element(3);
      if (maker.Below(4) == 0) {
        maker.Damage(&element);
      }
      content.insert(content.end(), element.begin(), element.end());
    }
    const std::size_t size = content.size();
    Octets image = {0x30, 0x83, static_cast<std::uint8_t>(size >> 16),
                    static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
    if (maker.Below(2) == 0) {
      image = {0x30, 0x80};
      content.insert(content.end(), {0, 0});
    }
    image.insert(image.end(), content.begin(), content.end());
    ASSERT_EQ(CompareImage(image), "") << seed;
  }
}

TEST(Asn1Differential, ScriptsLeaveWhatTheNaiveDocumentHolds) {
  for (std::uint32_t seed = 0; seed < Times(3000); ++seed) {
    std::mt19937 random(seed);
    ImageMaker maker(seed, ImageMaker::Form::kAny);
    Octets script(20 + random() % 400);
    for (std::uint8_t& octet : script) {
      octet = static_cast<std::uint8_t>(random());
    }
    // Images among the octets: most random octets are none.
    for (std::size_t at = random() % 40; at + 2 < script.size(); at += random() % 60) {
      const Octets image = maker.Below(3) == 0 ? maker.Segmented() : maker.Element(3);
      if (image.size() < 250) {
        const Octets step = {
            static_cast<std::uint8_t>(7 + random() % 4), static_cast<std::uint8_t>(random() % 3),
            static_cast<std::uint8_t>(random() % 4), static_cast<std::uint8_t>(random() % 4),
            static_cast<std::uint8_t>(image.size())};
        const auto place = script.begin() + static_cast<std::ptrdiff_t>(at);
        script.insert(script.insert(place, step.begin(), step.end()) + 5, image.begin(),
                      image.end());
        at += image.size();
      }
    }
    ASSERT_EQ(CompareScript(script), "") << seed;
  }
}

TEST(Asn1Differential, ObjectIdentifiersGiveWhatTheNaiveConversionsGive) {
  for (std::uint32_t seed = 0; seed < Times(6000); ++seed) {
    std::mt19937 random(seed);
    Octets octets(random() % 120);
    for (std::uint8_t& octet : octets) {
      octet = static_cast<std::uint8_t>(random());
    }
    ASSERT_EQ(CompareOid(octets), "") << seed;
  }
}

}  // namespace
}  // namespace zarext
