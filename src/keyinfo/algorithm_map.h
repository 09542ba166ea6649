// Which object identifier a key is exported under, and which ALG_ID it is imported as. The two
// directions are deliberately not each other's inverse: issued certificates and containers in use
// depend on both.
#ifndef ZAREXT_KEYINFO_ALGORITHM_MAP_H_
#define ZAREXT_KEYINFO_ALGORITHM_MAP_H_

#include <cstdint>

namespace zarext {

// The algorithm OID for a provider key's ALG_ID, by exact value; never null. The longest text has
// 24 characters.
const char* OidOfAlgorithm(std::uint32_t aiKeyAlg);

// How a key that travels as an OCTET STRING is handed to the provider.
struct ImportRule {
  const char* contains;     // searched for anywhere in the OID
  std::uint32_t aiKeyAlg;   // of the blob
  std::uint32_t bitLength;  // of the blob; not compared with the key
};

// The first rule that applies to the OID (not null); the last one applies to every OID.
const ImportRule& ImportRuleOf(const char* oid);

// True for the CryptoPro and the national arc, whose keys lie in an OCTET STRING; the maker's own
// keys travel as the provider's whole blob. Both arcs are searched for anywhere in the text.
bool TravelsAsOctetString(const char* oid);

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_ALGORITHM_MAP_H_
