// One DER document (X.690) as a tree in memory: read from an image, or built node by node, changed
// and written back. Indefinite lengths and constructed strings are read, never written.
//
// Nodes are named by a path: child indices from the root down, each counted from 0, as trailing
// arguments ended by kPathEnd. kPathEnd alone is the root. Every operation that takes a path
// returns kAsnBadPath and changes nothing when an index is negative or not below the number of
// children there, and for a path of more than kMaxPathEntries indices or without its end.
//
//   TASN1 doc(0x30);
//   std::uint32_t version = 0;
//   doc.AddChild(0x02, 4, &version, 0xFFFFFF);   // SEQUENCE { INTEGER 0 }
//
// Operations return one of the codes of AsnResult. A failed operation leaves what it has changed
// already. std::bad_alloc is thrown when memory runs out, or for a document that would not encode
// into 2^32 octets; the document can then still be used and destroyed. No operation recurses on
// the depth of a document. A document is used by one thread at a time.
#ifndef ZAREXT_ASN1_TASN1_H_
#define ZAREXT_ASN1_TASN1_H_

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "asn1/node_tree.h"
#include "asn1/result_codes.h"

namespace zarext {

inline constexpr std::int32_t kPathEnd = 0xFFFFFF;
inline constexpr std::size_t kMaxPathEntries = 64;

class TASN1 {
 public:
  // An empty document: a root with this identifier octet and no content.
  explicit TASN1(std::uint8_t rootTag) : TASN1(rootTag, Release::kPlain) {}
  ~TASN1();
  TASN1(const TASN1&) = delete;
  TASN1& operator=(const TASN1&) = delete;

  // Reads the identifier and length octets at `octets`. Returns their number, 2 to 6, and writes
  // the identifier and the content length; returns 0 with length 0 for a length octet of 0x85 or
  // more. Reads no octet behind the header, except that an indefinite length is looked for up to
  // its closing pair (image_reader.h says what it reports). A null result pointer is left out.
  std::int32_t ReadHeader(const std::uint8_t* octets, std::uint8_t* tag,
                          std::uint32_t* length) const {
    return ReadHeader(octets, UINT64_MAX, tag, length);
  }

  // The same, of an image whose size is known: a header that needs octets beyond it gives 0.
  std::int32_t ReadHeader(std::span<const std::uint8_t> image, std::uint8_t* tag,
                          std::uint32_t* length) const {
    return ReadHeader(image.data(), image.size(), tag, length);
  }

  // Checks an image; builds nothing. kAsnWrongSize unless the outermost element is exactly as long
  // as the image; kAsnUnreadable, kAsnBeyondImage, kAsnBeyondElement for what is inside.
  std::int32_t Load(const std::uint8_t* data, std::uint32_t length);

  // Replaces the node at path by the element of an image that has passed Load, and makes
  // constructed strings below it primitive. kAsnUnreadable for the outermost header (nothing is
  // changed then), kAsnInnerUnreadable, kAsnInnerFailed, and kAsnWrongSegment when a constructed
  // string cannot be joined. The image is the element that begins at the pointer and is nowhere
  // read behind its end; a Load of the same pointer since the last Parse bounds it too. It may lie
  // in the node that is replaced.
  template <std::integral First, std::integral... Rest>
  std::int32_t Parse(const std::uint8_t* image, First first, Rest... rest) {
    return ParseAt(image, Path(first, rest...));
  }

  // Appends the element of an image to the children of the node at path and makes the constructed
  // strings of that node primitive. Building errors are not reported, for the sake of callers that
  // rely on 0: what can be built is. The image ends where its element ends.
  template <std::integral First, std::integral... Rest>
  std::int32_t ParseInto(const std::uint8_t* image, First first, Rest... rest) {
    return ParseIntoAt(image, Path(first, rest...));
  }

  // The same, of an image whose size is known: an element that claims more is cut off there.
  template <std::integral First, std::integral... Rest>
  std::int32_t ParseInto(std::span<const std::uint8_t> image, First first, Rest... rest) {
    return ParseIntoAt(image, Path(first, rest...));
  }

  // Appends a child to the node at path. For a universal primitive tag the value is converted:
  //   0x02 with length 4   an unsigned 32-bit number of the machine, to the shortest INTEGER
  //   0x03                 octets, to a BIT STRING; for one to four octets the trailing zero bits
  //                        of the last one count as unused
  //   0x06                 dotted text, to an OBJECT IDENTIFIER; the length is not used
  // Any other value is the content. A constructed child is empty and takes no value.
  // kAsnNoValue for a null value with a length (found before the path is walked) or a null text,
  // kAsnPrimitiveParent.
  template <std::integral First, std::integral... Rest>
  std::int32_t AddChild(std::uint8_t tag, std::uint32_t length, const void* value, First first,
                        Rest... rest) {
    return AddAt(false, tag, length, value, Path(first, rest...));
  }

  // As AddChild, but puts the new node in front of the node at path. The root has no place in
  // front of it: kAsnBadPath.
  template <std::integral First, std::integral... Rest>
  std::int32_t InsertBefore(std::uint8_t tag, std::uint32_t length, const void* value, First first,
                            Rest... rest) {
    return AddAt(true, tag, length, value, Path(first, rest...));
  }

  // Reads a node. Each result pointer may be null. A constructed node gives its content length and
  // a null value; a primitive one no children and its content, which for universal tags is
  //   0x02   a number of the machine with length 4, when the content is one from 0 to 2^32 - 1;
  //          otherwise (negative or longer, and empty) the content as it is
  //   0x03   what follows the unused-bits octet
  //   0x06   the dotted text, which ends with a NUL that its length does not count
  // The value belongs to the node and holds until the node is changed or goes.
  template <std::integral First, std::integral... Rest>
  std::int32_t GetNode(std::uint8_t* tag, std::uint32_t* childCount, std::uint32_t* length,
                       const std::uint8_t** value, First first, Rest... rest) {
    return GetNodeAt(tag, childCount, length, value, Path(first, rest...));
  }

  // Gives a node another identifier. Between constructed and primitive it is rebuilt from its own
  // encoding under the new identifier: a primitive node gets the encoded children as its content,
  // a constructed one the elements that its content encodes, as far as they can be built.
  template <std::integral First, std::integral... Rest>
  std::int32_t SetTag(std::uint8_t newTag, First first, Rest... rest) {
    return SetTagAt(newTag, Path(first, rest...));
  }

  // The number of octets of the node with everything below it.
  template <std::integral First, std::integral... Rest>
  std::int32_t GetEncodedSize(std::uint32_t* size, First first, Rest... rest) {
    return GetEncodedSizeAt(size, Path(first, rest...));
  }

  // Writes the node with everything below it. The buffer has room for its encoded size.
  template <std::integral First, std::integral... Rest>
  std::int32_t Encode(std::uint8_t* buffer, First first, Rest... rest) {
    return EncodeAt(buffer, Path(first, rest...));
  }

  // Removes a node with everything below it. The root stays, with its tag and without content.
  template <std::integral First, std::integral... Rest>
  std::int32_t DeleteNode(std::int32_t /*unused*/, First first, Rest... rest) {
    return DeleteNodeAt(Path(first, rest...));
  }

  // Releases every node below the root. Unlike DeleteNode it leaves the root's header as it is, so
  // the encoded size stays until the root is deleted or parsed; callers reuse documents either way.
  void Clear() noexcept;

 protected:
  // The same with a choice of what happens to contents that are given back.
  TASN1(std::uint8_t rootTag, Release release);

  [[nodiscard]] const AsnNode& Root() const { return root_; }

 private:
  using PathView = std::span<const std::int32_t>;

  // An entry that is no 32-bit number leads nowhere.
  template <typename Entry>
  static constexpr std::int32_t ToIndex(Entry entry) {
    return std::in_range<std::int32_t>(+entry) ? static_cast<std::int32_t>(entry) : -1;
  }
  template <typename... Entries>
  static constexpr std::array<std::int32_t, sizeof...(Entries)> Path(Entries... entries) {
    return {ToIndex(entries)...};
  }

  std::int32_t ParseAt(const std::uint8_t* image, PathView path);
  std::int32_t ParseIntoAt(const std::uint8_t* image, PathView path);
  std::int32_t ParseIntoAt(std::span<const std::uint8_t> image, PathView path);
  std::int32_t AddAt(bool before, std::uint8_t tag, std::uint32_t length, const void* value,
                     PathView path);
  std::int32_t GetNodeAt(std::uint8_t* tag, std::uint32_t* childCount, std::uint32_t* length,
                         const std::uint8_t** value, PathView path);
  std::int32_t SetTagAt(std::uint8_t newTag, PathView path);
  std::int32_t GetEncodedSizeAt(std::uint32_t* size, PathView path);
  std::int32_t EncodeAt(std::uint8_t* buffer, PathView path);
  std::int32_t DeleteNodeAt(PathView path);

  // The node at path and its index among its siblings (0 for the root); a null node for none.
  struct Place {
    AsnNode* node;
    std::int32_t index;
  };
  Place Locate(PathView path);

  void CheckRoom(std::uint64_t size, std::uint32_t replaced = 0) const;
  std::int32_t Rebuild(AsnNode* node, std::span<const std::uint8_t> image);
  void ReleaseAll() noexcept;
  static std::int32_t ReadHeader(const std::uint8_t* octets, std::uint64_t available,
                                 std::uint8_t* tag, std::uint32_t* length);

  // Left out: pointers `root` and `second` to the root node, which would always be &root_;
  // `position`, a cursor, of which each pass has its own; `limit`, 65,535 and then the image
  // length, which nothing would read; `mode`, which would always be 0, definite lengths.
  AsnNode root_{};
  // The image that the last Load was given; only compared, never read through.
  const std::uint8_t* loaded_ = nullptr;
  std::uint32_t loadedLength_ = 0;
  std::size_t loadedNeed_ = 0;  // what its nodes take from memory_
  DocumentMemory memory_;
};

}  // namespace zarext

#endif  // ZAREXT_ASN1_TASN1_H_
