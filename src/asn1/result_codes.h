#ifndef ZAREXT_ASN1_RESULT_CODES_H_
#define ZAREXT_ASN1_RESULT_CODES_H_

#include <cstdint>

namespace zarext {

// What the operations on a document return. Callers pass some of them on as part of their own
// codes, so the numbers are fixed; one number may mean different things in different operations.
enum AsnResult : std::int32_t {
  kAsnOk = 0,
  kAsnUnreadable = 1,       // a header cannot be read
  kAsnPrimitiveParent = 1,  // an element is to be added below a primitive one
  kAsnBeyondImage = 2,      // checking: an element's header ends beyond the image
  kAsnInnerUnreadable = 2,  // parsing: the header of an element directly inside is unreadable
  kAsnInnerFailed = 3,      // parsing: one of those elements cannot be built
  kAsnBeyondElement = 4,    // checking: children run past the end of their element
  kAsnWrongSize = 10,       // checking: the outermost element is not as long as the image
  kAsnNoValue = 19,         // adding: a value that has a length but no octets
  kAsnBadPath = 20,         // a path that leads nowhere
  kAsnWrongSegment = 21,    // parsing: a constructed string with a segment that is none
};

}  // namespace zarext

#endif  // ZAREXT_ASN1_RESULT_CODES_H_
