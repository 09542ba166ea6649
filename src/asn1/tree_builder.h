// Building the tree of an image, and turning the constructed strings in a tree into primitive ones.
// Both are linear in what they work on, and none recurses: lengths are corrected from the leaves
// up.
#ifndef ZAREXT_ASN1_TREE_BUILDER_H_
#define ZAREXT_ASN1_TREE_BUILDER_H_

#include <cstdint>

#include "asn1/image_reader.h"
#include "asn1/node_tree.h"

namespace zarext {

struct BuildOutcome {
  // kAsnOk; kAsnInnerUnreadable: the header of an element directly below the holder;
  // kAsnInnerFailed: an element further down, or one that ends beyond the image.
  std::int32_t result;
  bool segmentedStrings;        // whether constructed strings are among what was built
  std::uint32_t contentLength;  // encoded size of everything built below the holder
};

// Builds the elements of the image from position until one ends at or behind end, as children of
// `holder`, which has none. Those directly below it name `owner` as their parent: they are built
// for it, and holder is their place until they are complete. The holder's header is not changed.
// What was built before a failure stays. Throws std::bad_alloc.
BuildOutcome BuildElements(DocumentMemory& memory, ImageReader& reader, std::uint64_t position,
                           std::uint64_t end, AsnNode* holder, AsnNode* owner);

// Makes the constructed BIT STRINGs and OCTET STRINGs of the subtree primitive, in the order of
// the document, up to the first with a segment that has not the string's own primitive identifier,
// which gives kAsnWrongSegment. Corrects the lengths of the subtree and of its ancestors, for any
// result. Throws std::bad_alloc, the lengths then being correct too.
std::int32_t FlattenStrings(DocumentMemory& memory, AsnNode* top);

}  // namespace zarext

#endif  // ZAREXT_ASN1_TREE_BUILDER_H_
