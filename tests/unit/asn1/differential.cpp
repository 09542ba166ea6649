#include "unit/asn1/differential.h"

#include <algorithm>
#include <array>
#include <memory>

#include "asn1/oid.h"
#include "asn1/tasn1.h"
#include "unit/asn1/oracle_image.h"
#include "unit/asn1/oracle_values.h"

namespace zarext {
namespace {

using oracle::Octets;
using oracle::Path;

// The longest path that the comparison reads nodes by; what lies deeper is compared as octets.
constexpr std::size_t kDepth = 6;

// Calls an operation with a path of up to kDepth indices.
template <typename Operation>
std::int32_t At(const Path& path, Operation operation) {
  std::array<std::int32_t, kDepth> p;
  p.fill(kPathEnd);
  std::copy(path.begin(), path.end(), p.begin());
  return operation(p[0], p[1], p[2], p[3], p[4], p[5], kPathEnd);
}

// A copy of exactly the image's size, so that a sanitizer sees every octet read outside it.
class ExactCopy {
 public:
  explicit ExactCopy(std::span<const std::uint8_t> octets)
      : size_(octets.size()), octets_(new std::uint8_t[octets.size()]) {
    std::copy(octets.begin(), octets.end(), octets_.get());
  }
  ExactCopy(std::size_t size, std::uint8_t octet) : size_(size), octets_(new std::uint8_t[size]) {
    std::fill_n(octets_.get(), size, octet);
  }
  [[nodiscard]] std::uint8_t* Data() const { return octets_.get(); }
  [[nodiscard]] std::uint32_t Size() const { return static_cast<std::uint32_t>(size_); }

 private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> octets_;
};

std::string Text(const Path& path) {
  std::string text = "(";
  for (const std::int32_t index : path) {
    text += std::to_string(index) + " ";
  }
  return text + ")";
}

std::string Hex(const Octets& octets) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t octet : octets) {
    text += kDigits[octet / 16];
    text += kDigits[octet % 16];
  }
  return text;
}

class Inspected : public TASN1 {
 public:
  using TASN1::Root;
  using TASN1::TASN1;
};

// Whether a record of the tree is the one that the naive node stands for.
bool SameRecord(const AsnNode& real, const AsnNode* parent, const oracle::Node& naive,
                const Octets& header) {
  const Octets& content = naive.content;
  const bool outside = content.size() >= 38 || naive.joined;
  const std::uint8_t* place = real.octets + 2;
  return real.parent == parent && std::equal(header.begin(), header.end(), real.octets) &&
         static_cast<std::size_t>(real.count) == naive.children.size() &&
         real.capacity == naive.slots && (real.children == nullptr) == (naive.slots == 0) &&
         (real.children == real.branch.slots) == (naive.slots == 4) &&
         (real.content == nullptr) == (content.empty() && !outside) &&
         (content.empty() || (real.content == place) == !outside) &&
         std::equal(content.begin(), content.end(), real.content) &&
         (real.text == nullptr || (naive.tag == 6 && real.text == oracle::OidText(content)));
}

// `header` is room for the octets of one.
std::string CompareRecords(const AsnNode& real, const AsnNode* parent, const oracle::Node& naive,
                           Octets* header) {
  header->clear();
  oracle::AppendHeader(naive, header);
  if (!SameRecord(real, parent, naive, *header)) {
    return "the record of a node with tag " + std::to_string(naive.tag) + " differs";
  }
  for (std::size_t i = 0; i < naive.children.size(); ++i) {
    std::string difference = CompareRecords(*real.children[i], &real, *naive.children[i], header);
    if (!difference.empty()) {
      return difference;
    }
  }
  return "";
}

class Pair {
 public:
  explicit Pair(std::uint8_t rootTag) : real_(rootTag), naive_(rootTag) {}

  std::string Load(const Octets& image) {
    const ExactCopy copy(image);
    return Codes("Load", real_.Load(copy.Data(), copy.Size()), naive_.Load(image));
  }
  // The image must be one that may be parsed: it passed Load, or its element says where it ends.
  std::string LoadAndParse(const Octets& image, const Path& path) {
    const ExactCopy copy(image);
    const std::int32_t loaded = naive_.Load(image);
    std::string difference = Codes("Load", real_.Load(copy.Data(), copy.Size()), loaded);
    if (!difference.empty() || loaded == 10) {
      return difference;
    }
    const std::int32_t code = At(path, [&](auto... p) { return real_.Parse(copy.Data(), p...); });
    return Codes("Parse", code, naive_.Parse(image, path));
  }
  std::string ParseInto(const Octets& image, const Path& path) {
    const ExactCopy copy(image);
    const oracle::ElementHeader header = oracle::ReadHeader(image, 0);
    if (header.size == 0 || header.size + header.length > image.size()) {
      return "";
    }
    const std::int32_t code =
        At(path, [&](auto... p) { return real_.ParseInto(copy.Data(), p...); });
    return Codes("ParseInto", code, naive_.ParseInto(image, path));
  }
  std::string Add(std::uint8_t tag, const Octets& value, bool before, const Path& path) {
    const ExactCopy copy(value);
    if (before) {
      return Codes(
          "InsertBefore",
          At(path,
             [&](auto... p) { return real_.InsertBefore(tag, copy.Size(), copy.Data(), p...); }),
          naive_.InsertBefore(tag, value, path));
    }
    return Codes(
        "AddChild",
        At(path, [&](auto... p) { return real_.AddChild(tag, copy.Size(), copy.Data(), p...); }),
        naive_.AddChild(tag, value, path));
  }
  // An object identifier is passed as a text that ends with a NUL.
  std::string AddOid(const std::string& text, const Path& path) {
    return Codes("AddChild of a text",
                 At(path, [&](auto... p) { return real_.AddChild(6, 1, text.c_str(), p...); }),
                 naive_.AddChild(6, Octets(text.begin(), text.end()), path));
  }
  std::string SetTag(std::uint8_t tag, const Path& path) {
    return Codes("SetTag", At(path, [&](auto... p) { return real_.SetTag(tag, p...); }),
                 naive_.SetTag(tag, path));
  }
  std::string Delete(const Path& path) {
    return Codes("DeleteNode", At(path, [&](auto... p) { return real_.DeleteNode(0, p...); }),
                 naive_.DeleteNode(path));
  }
  void Clear() {
    real_.Clear();
    naive_.Clear();
  }

  // All records, and the encoding.
  std::string CompareTree() {
    Octets header;
    std::string difference = CompareRecords(real_.Root(), nullptr, *naive_.Find({}), &header);
    return difference.empty() ? CompareEncoding({}) : difference;
  }

  // What is read of the nodes, too.
  std::string Compare() {
    Path path;
    std::string difference = CompareNode(&path);
    return difference.empty() ? CompareTree() : difference;
  }

  oracle::Document& Naive() { return naive_; }

 private:
  static std::string Codes(const char* operation, std::int32_t real, std::int32_t naive) {
    if (real == naive) {
      return "";
    }
    return std::string(operation) + " gives " + std::to_string(real) + ", not " +
           std::to_string(naive);
  }

  std::string CompareNode(Path* path) {
    oracle::View real;
    const std::uint8_t* value = nullptr;
    const std::int32_t code = At(*path, [&](auto... p) {
      return real_.GetNode(&real.tag, &real.childCount, &real.length, &value, p...);
    });
    const oracle::View naive = naive_.Read(*path);
    if ((value != nullptr || naive.value) && real.length == naive.length) {
      real.value = real.length == 0 ? Octets{} : Octets(value, value + real.length);
    }
    if (code != 0 || real != naive) {
      return "GetNode differs at " + Text(*path) + " tag " + std::to_string(real.tag) + "/" +
             std::to_string(naive.tag) + " length " + std::to_string(real.length) + "/" +
             std::to_string(naive.length);
    }
    if (path->size() == kDepth) {
      return "";
    }
    for (std::uint32_t i = 0; i < naive.childCount; ++i) {
      path->push_back(static_cast<std::int32_t>(i));
      std::string difference = CompareNode(path);
      path->pop_back();
      if (!difference.empty()) {
        return difference;
      }
    }
    return "";
  }

  std::string CompareEncoding(const Path& path) {
    std::uint32_t size = 0;
    At(path, [&](auto... p) { return real_.GetEncodedSize(&size, p...); });
    oracle::Node* node = naive_.Find(path);
    if (size != oracle::EncodedSize(*node)) {
      return "GetEncodedSize gives " + std::to_string(size);
    }
    // Octets that a stale length counts are not written.
    Octets expected;
    expected.reserve(size);
    oracle::AppendEncoding(*node, &expected);
    expected.resize(size, 0xA5);
    const ExactCopy real(size, 0xA5);
    At(path, [&](auto... p) { return real_.Encode(real.Data(), p...); });
    if (!std::equal(expected.begin(), expected.end(), real.Data())) {
      return "Encode gives " + Hex(Octets(real.Data(), real.Data() + size)) + ", not " +
             Hex(expected);
    }
    return "";
  }

  Inspected real_;
  oracle::Document naive_;
};

// Most often the path of a node that is there; now and then one that leads nowhere.
Path ChoosePath(OctetSource* source, oracle::Document* document) {
  Path path;
  const std::size_t depth = source->Next() % (kDepth + 1);
  while (path.size() < depth) {
    const oracle::Node* node = document->Find(path);
    const std::uint8_t choice = source->Next();
    if (choice == 0xFF) {
      path.push_back(-1);
      break;
    }
    const std::size_t count = node->children.size();
    if (count == 0 || choice == 0xFE) {
      if (choice >= 0xF0) {
        path.push_back(static_cast<std::int32_t>(count));
      }
      break;
    }
    path.push_back(static_cast<std::int32_t>(choice % count));
  }
  return path;
}

std::uint8_t ChooseTag(OctetSource* source) {
  static constexpr std::uint8_t kTags[] = {0x02, 0x03, 0x04, 0x05, 0x06, 0x0C, 0x22, 0x23,
                                           0x24, 0x30, 0x31, 0x80, 0x82, 0x83, 0x86, 0xA0};
  const std::uint8_t choice = source->Next();
  return choice < 0xC0 ? kTags[choice % std::size(kTags)] : source->Next();
}

// Mostly short; sometimes of a length around which a header grows.
Octets ChooseValue(OctetSource* source) {
  static constexpr std::size_t kLengths[] = {36, 37, 38, 39, 126, 127, 128, 254, 255, 256};
  const std::uint8_t choice = source->Next();
  if (choice < 0xE0) {
    return source->Take(choice % 8);
  }
  Octets value(kLengths[choice % std::size(kLengths)], source->Next());
  return value;
}

std::string ChooseOid(OctetSource* source) {
  std::string text = std::to_string(source->Next() % 8);
  for (int left = source->Next() % 70; left > 0; --left) {
    const std::uint32_t arc = source->Next();
    text += '.';
    text += std::to_string(arc % 2 == 0 ? arc : arc << (arc % 20));
  }
  return text;
}

std::string Step(OctetSource* source, Pair* pair) {
  const std::uint8_t operation = source->Next();
  const Path path = ChoosePath(source, &pair->Naive());
  switch (operation % 13) {
    case 0:
    case 1:
    case 2: {
      const std::uint8_t tag = ChooseTag(source);
      return tag == 6 ? pair->AddOid(ChooseOid(source), path)
                      : pair->Add(tag, ChooseValue(source), operation % 13 == 2, path);
    }
    case 3:
    case 4:
      return pair->SetTag(ChooseTag(source), path);
    case 5:
    case 6:
      return pair->Delete(path);
    case 7:
    case 8:
      return pair->LoadAndParse(source->Take(source->Next()), path);
    case 9:
    case 10:
      return pair->ParseInto(source->Take(source->Next()), path);
    case 11:
      pair->Clear();
      return "";
    default:
      return pair->Compare();
  }
}

}  // namespace

std::uint8_t OctetSource::Next() {
  if (rest_.empty()) {
    return 0;
  }
  const std::uint8_t octet = rest_.front();
  rest_ = rest_.subspan(1);
  return octet;
}

Octets OctetSource::Take(std::size_t count) {
  count = std::min(count, rest_.size());
  Octets octets(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(count));
  rest_ = rest_.subspan(count);
  return octets;
}

std::string CompareImage(std::span<const std::uint8_t> image) {
  Pair pair(0x30);
  const std::string difference = pair.LoadAndParse(Octets(image.begin(), image.end()), {});
  return difference.empty() ? pair.Compare() : difference;
}

std::string CompareScript(std::span<const std::uint8_t> script) {
  OctetSource source(script);
  Pair pair(ChooseTag(&source));
  for (int step = 0; !source.Empty(); ++step) {
    std::string difference = Step(&source, &pair);
    if (difference.empty()) {
      difference = pair.CompareTree();
    }
    if (!difference.empty()) {
      return "step " + std::to_string(step) + ": " + difference;
    }
  }
  return pair.Compare();
}

std::string CompareOid(std::span<const std::uint8_t> octets) {
  const Octets content(octets.begin(), octets.end());
  const ExactCopy copy(octets);
  if (OidContentToText(copy.Data(), copy.Size()) != oracle::OidText(content)) {
    return "OidContentToText differs";
  }
  OctetSource source(octets);
  const std::string text = ChooseOid(&source);
  const ExactCopy out(Octets(249));
  const std::int32_t count = OidTextToContent(text.c_str(), out.Data());
  if (Octets(out.Data(), out.Data() + count) != oracle::OidContent(text)) {
    return "OidTextToContent differs for " + text;
  }
  // Any text at all: only the bounds count, and that the family test finds what is there.
  const std::string raw(octets.begin(), octets.end());
  OidTextToContent(raw.c_str(), out.Data());
  const std::string seen = raw.substr(0, raw.find('\0'));
  const bool own = seen.find("1.3.6.1.4.1.32473.") != std::string::npos ||
                   seen.find("1.2.643.2.2.") != std::string::npos ||
                   seen.find("1.2.398.3.10.1") != std::string::npos;
  return IsOwnAlgorithmOid(seen.c_str()) == own ? "" : "IsOwnAlgorithmOid differs";
}

}  // namespace zarext
