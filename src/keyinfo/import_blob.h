// From the bit string of a SubjectPublicKeyInfo whose key lies in an OCTET STRING to the blob that
// the provider imports.
#ifndef ZAREXT_KEYINFO_IMPORT_BLOB_H_
#define ZAREXT_KEYINFO_IMPORT_BLOB_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "asn1/tasn1.h"
#include "keyinfo/algorithm_map.h"
#include "keyinfo/key_blob.h"

namespace zarext {

// The octets of the blob for a key of that size. Throws std::bad_alloc if 32 bits do not hold them.
inline std::uint32_t ImportBlobSize(std::size_t keySize) {
  constexpr std::uint32_t kHeadSize = 16;
  return CheckedSize(std::uint64_t{keySize} + kHeadSize);
}

// Finds the key in the octets of the bit string. Octets that `document` accepts give what it reads
// as the root's value, whatever its tag is (a constructed root has none: an empty key). Refused
// ones are read directly as 04, an octet that completes the length, and the key, or as 04, an octet
// that is not looked at, one that completes the length, and the key. Nothing if neither fits.
// The result points into `document` or into `bits`.
std::optional<OctetSpan> ExtractKey(TASN1& document, OctetSpan bits);

// The 16-octet head and the key, unchanged:
//   06 02 00 00 | aiKeyAlg | magic 00 45 43 31 | bit length | key
// Throws std::bad_alloc, also for a key that ImportBlobSize refuses.
std::vector<std::uint8_t> BuildImportBlob(const ImportRule& rule, OctetSpan key);

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_IMPORT_BLOB_H_
