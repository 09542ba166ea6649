// A second, deliberately naive implementation of the document tree, against which the tests and the
// fuzz targets compare the real one: it keeps contents instead of headers, recurses, counts every
// length anew and scans every indefinite length from its own header on. What the real records say
// besides (the slots of a child array, which content is outside its record) it only counts. It
// shares no code with src/.
#ifndef ZAREXT_TESTS_UNIT_ASN1_ORACLE_H_
#define ZAREXT_TESTS_UNIT_ASN1_ORACLE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "unit/asn1/oracle_values.h"

namespace zarext::oracle {

using Path = std::vector<std::int32_t>;

struct Node {
  std::uint8_t tag = 0;
  Octets content;                               // of a primitive node
  std::vector<std::unique_ptr<Node>> children;  // of a constructed node
  std::size_t stale = 0;  // content octets that the header of a cleared root still counts
  std::size_t slots = 0;  // that are used before the child array grows
  bool joined = false;    // the content was made of segments

  [[nodiscard]] bool Constructed() const { return (tag & 0x20) != 0; }
};

std::size_t ContentLength(const Node& node);
std::size_t EncodedSize(const Node& node);
void AppendHeader(const Node& node, Octets* out);
void AppendEncoding(const Node& node, Octets* out);

// What a test reads of a node.
struct View {
  std::uint8_t tag = 0;
  std::uint32_t childCount = 0;
  std::uint32_t length = 0;
  std::optional<Octets> value;  // none: a null pointer

  bool operator==(const View&) const = default;
};

class Document {
 public:
  explicit Document(std::uint8_t rootTag) { root_.tag = rootTag; }

  std::int32_t Load(const Octets& image);
  std::int32_t Parse(const Octets& image, const Path& path);
  std::int32_t ParseInto(const Octets& image, const Path& path);
  // value: as Content() takes it.
  std::int32_t AddChild(std::uint8_t tag, const Octets& value, const Path& path);
  std::int32_t InsertBefore(std::uint8_t tag, const Octets& value, const Path& path);
  std::int32_t SetTag(std::uint8_t tag, const Path& path);
  std::int32_t DeleteNode(const Path& path);
  void Clear();

  Node* Find(const Path& path);
  View Read(const Path& path);

 private:
  std::int32_t Rebuild(Node* node, const Octets& image);

  Node root_;
};

}  // namespace zarext::oracle

#endif  // ZAREXT_TESTS_UNIT_ASN1_ORACLE_H_
