#pragma once

// Runs the codec and the naive one side by side, driven by a string of octets: random ones in the
// property test, chosen ones in the fuzz targets. A difference is thrown as a text.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "asn1/oid.h"
#include "asn1/tasn1.h"
#include "unit/asn1/naive_codec.h"

namespace zarext {

struct Difference : std::logic_error {
  using std::logic_error::logic_error;
};

inline void Same(bool same, const char* what) {
  if (!same) throw Difference(what);
}

// Takes decisions off the front of the input; zeros when it is used up.
class Decisions {
 public:
  explicit Decisions(std::span<const std::uint8_t> input) : input_(input) {}
  bool Empty() const { return input_.empty(); }
  std::uint8_t Octet() {
    if (input_.empty()) return 0;
    const std::uint8_t octet = input_.front();
    input_ = input_.subspan(1);
    return octet;
  }
  naive::Octets Take(std::size_t count) {
    const auto taken = input_.first(std::min(count, input_.size()));
    input_ = input_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const std::uint8_t> input_;
};

class Comparison {
 public:
  explicit Comparison(std::uint8_t rootTag) : fast_(rootTag), slow_(rootTag) {}

  std::int32_t Load(const naive::Octets& image) {
    const auto copy = Copy(image);
    const std::int32_t result = fast_.Load(copy.get(), static_cast<std::uint32_t>(image.size()));
    Same(result == slow_.Load(image), "Load");
    return result;
  }

  std::int32_t LoadAndParse(const naive::Octets& image, const naive::Path& path) {
    const auto copy = Copy(image);
    const auto size = static_cast<std::uint32_t>(image.size());
    const std::int32_t loaded = fast_.Load(copy.get(), size);
    Same(loaded == slow_.Load(image), "Load");
    const std::int32_t result = fast_.Parse(copy.get(), At(path, 0), At(path, 1), At(path, 2),
                                            At(path, 3), At(path, 4), At(path, 5), kPathEnd);
    Same(result == slow_.Parse(image, path), "Parse");
    return loaded != 0 ? loaded : result;
  }

  // One edit, chosen by the decisions.
  void Edit(Decisions* choice) {
    const std::uint8_t kind = choice->Octet();
    const naive::Path path = ChoosePath(choice);
    switch (kind % 8) {
      case 0:
      case 1:
        return Add(choice, path, kind % 16 < 8);
      case 2:
        return Retag(choice->Octet(), path);
      case 3:
        return Delete(path);
      case 4:
        LoadAndParse(choice->Take(choice->Octet()), path);
        return;
      case 5:
        return ParseInto(choice->Take(choice->Octet()), path);
      case 6:
        if (kind > 0xF0) {
          fast_.Clear();
          slow_.Clear();
        }
        return;
      default:
        return Read(path);
    }
  }

  // Sizes, encodings and what GetNode says of every node.
  void Compare() {
    const naive::Octets expected = slow_.Encoding();
    std::uint32_t size = 0;
    Same(fast_.GetEncodedSize(&size, kPathEnd) == 0, "GetEncodedSize");
    Same(size == slow_.Root().Size(), "encoded size");
    const std::unique_ptr<std::uint8_t[]> encoding(new std::uint8_t[size]);
    Same(fast_.Encode(encoding.get(), kPathEnd) == 0, "Encode");
    // After Clear less is written than the size says.
    Same(expected.size() <= size && std::equal(expected.begin(), expected.end(), encoding.get()),
         "encoding");
    naive::Path path;
    ReadAll(slow_.Root(), &path);
  }

  TASN1& Fast() { return fast_; }
  const naive::Document& Slow() const { return slow_; }

 private:
  static std::unique_ptr<std::uint8_t[]> Copy(const naive::Octets& octets) {
    std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[octets.size()]);
    std::copy(octets.begin(), octets.end(), copy.get());
    return copy;
  }
  static std::int32_t At(const naive::Path& path, std::size_t index) {
    return index < path.size() ? path[index] : kPathEnd;
  }

  naive::Path ChoosePath(Decisions* choice) {
    naive::Path path;
    const std::size_t depth = choice->Octet() % 6;
    while (path.size() < depth) {
      // Mostly where there is something, sometimes behind it.
      const naive::Node* node = slow_.Walk(path);
      const std::uint8_t octet = choice->Octet();
      if (octet == 0xFF) {
        path.push_back(-1);
      } else if (node != nullptr && octet < 0xE0) {
        if (node->children.empty()) break;
        path.push_back(octet % static_cast<std::int32_t>(node->children.size()));
      } else {
        path.push_back(octet % 8);
      }
    }
    return path;
  }

  void Add(Decisions* choice, const naive::Path& path, bool append) {
    const std::uint8_t tag = choice->Octet();
    naive::Octets value = choice->Take(choice->Octet() % 64);
    std::string text;
    if (tag == kTagObjectIdentifier) {
      for (std::uint8_t& octet : value)
        octet = static_cast<std::uint8_t>("0123456789...- x"[octet % 16]);
      text.assign(value.begin(), value.end());
    }
    const auto copy = Copy(value);
    const auto length = static_cast<std::uint32_t>(value.size());
    const void* from =
        tag == kTagObjectIdentifier ? static_cast<const void*>(text.c_str()) : copy.get();
    const std::int32_t p[] = {At(path, 0), At(path, 1), At(path, 2), At(path, 3), At(path, 4)};
    if (append) {
      Same(fast_.AddChild(tag, length, from, p[0], p[1], p[2], p[3], p[4], kPathEnd) ==
               slow_.AddChild(tag, value, path),
           "AddChild");
    } else {
      Same(fast_.InsertBefore(tag, length, from, p[0], p[1], p[2], p[3], p[4], kPathEnd) ==
               slow_.InsertBefore(tag, value, path),
           "InsertBefore");
    }
  }

  void Retag(std::uint8_t tag, const naive::Path& path) {
    Same(fast_.SetTag(tag, At(path, 0), At(path, 1), At(path, 2), At(path, 3), At(path, 4),
                      kPathEnd) == slow_.SetTag(tag, path),
         "SetTag");
  }

  void Delete(const naive::Path& path) {
    Same(fast_.DeleteNode(0, At(path, 0), At(path, 1), At(path, 2), At(path, 3), At(path, 4),
                          kPathEnd) == slow_.DeleteNode(path),
         "DeleteNode");
  }

  void ParseInto(const naive::Octets& image, const naive::Path& path) {
    const auto copy = Copy(image);
    const std::span<const std::uint8_t> bounded(copy.get(), image.size());
    Same(fast_.ParseInto(bounded, At(path, 0), At(path, 1), At(path, 2), At(path, 3), At(path, 4),
                         kPathEnd) == slow_.ParseInto(image, path),
         "ParseInto");
  }

  void Read(const naive::Path& path) {
    const std::uint8_t* value = nullptr;
    naive::View seen;
    const std::int32_t result =
        fast_.GetNode(&seen.tag, &seen.count, &seen.length, &value, At(path, 0), At(path, 1),
                      At(path, 2), At(path, 3), At(path, 4), kPathEnd);
    if (value != nullptr) seen.value.assign(value, value + seen.length);
    naive::View expected;
    Same(result == slow_.GetNode(&expected, path), "GetNode");
    if (result == 0) Same(seen == expected, "what GetNode gives");
  }

  void ReadAll(const naive::Node& node, naive::Path* path) {
    Read(*path);
    if (path->size() == 5) return;
    for (std::size_t i = 0; i < node.children.size(); ++i) {
      path->push_back(static_cast<std::int32_t>(i));
      ReadAll(node.children[i], path);
      path->pop_back();
    }
  }

  TASN1 fast_;
  naive::Document slow_;
};

// The first octet is the root's tag, the others are edits.
inline void CompareScript(std::span<const std::uint8_t> input) {
  Decisions choice(input);
  Comparison both(choice.Octet());
  for (int edits = 0; edits < 64 && !choice.Empty(); ++edits) {
    both.Edit(&choice);
    if (edits % 4 == 3) both.Compare();
  }
  both.Compare();
}

// An image: load, parse, read everything, encode; and what was encoded is read back unchanged.
inline void CompareImage(std::span<const std::uint8_t> input) {
  const naive::Octets image(input.begin(), input.end());
  Comparison both(0x30);
  const std::int32_t result = both.LoadAndParse(image, {});
  both.Compare();
  if (result != 0) return;
  const naive::Octets encoding = both.Slow().Encoding();
  Comparison again(0x04);
  Same(again.LoadAndParse(encoding, {}) == 0, "own encoding is refused");
  Same(again.Slow().Encoding() == encoding, "own encoding reads differently");
  again.Compare();
}

// The octets as content, and again as text.
inline void CompareOid(std::span<const std::uint8_t> input) {
  const naive::Octets content(input.begin(), input.end());
  const std::string text =
      OidContentToText(content.data(), static_cast<std::uint32_t>(content.size()));
  Same(text == naive::ContentToOid(content), "OidContentToText");
  const std::string given(content.begin(), std::find(content.begin(), content.end(), 0));
  std::uint8_t out[kMaxOidContent];
  const std::int32_t length = OidTextToContent(given.c_str(), out);
  Same(naive::Octets(out, out + length) == naive::OidToContent(given), "OidTextToContent");
  const bool own = given.find("1.3.6.1.4.1.32473.") != std::string::npos ||
                   given.find("1.2.643.2.2.") != std::string::npos ||
                   given.find("1.2.398.3.10.1") != std::string::npos;
  Same(IsOwnAlgorithmOid(given.c_str()) == own, "IsOwnAlgorithmOid");
}

}  // namespace zarext
