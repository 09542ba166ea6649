// PKCS#8 and PKCS#12 key documents (RFC 5208, RFC 8018, RFC 7292) on the DER tree. Parameters of
// encrypted documents are laid out and read; nothing is encrypted or decrypted here.
#ifndef ZAREXT_KEYINFO_PKCS8_H_
#define ZAREXT_KEYINFO_PKCS8_H_

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "asn1/tasn1.h"
#include "keyinfo/octets.h"

namespace zarext {

// Kind 1. Object identifiers are dotted text.
struct PrivateKeyRecord {
  std::uint32_t version = 0;
  const char* algorithm = nullptr;
  // To build: one encoded element. Read: its encoding, but for an OBJECT IDENTIFIER its dotted text
  // with the terminator, which counts.
  OctetSpan parameters;
  OctetSpan privateKey;
  OctetSpan attributes;  // the encoded SET
};

// Kind 2.
struct EncryptedKeyRecord {
  const char* algorithm = nullptr;  // with PBES2 the encryption scheme
  OctetSpan salt;
  std::uint32_t iterations = 0;
  OctetSpan iv;  // given: PBES2 with PBKDF2
  OctetSpan encryptedData;
};

// A bag's type and the element inside its [0] wrapper.
struct BagRecord {
  const char* type = nullptr;
  OctetSpan value;
  std::uint8_t tag = 0;
};
struct CertBagRecord : BagRecord {};    // kind 3
struct CrlBagRecord : BagRecord {};     // kind 4
struct SecretBagRecord : BagRecord {};  // kind 5

// Kind 6.
struct EncodedDocument {
  OctetSpan octets;
};

// The kind of a document is the place of its record here, from 1.
using Pkcs8Record = std::variant<PrivateKeyRecord, EncryptedKeyRecord, CertBagRecord, CrlBagRecord,
                                 SecretBagRecord, EncodedDocument>;

// What Decoded gives points into the tree, so that nobody else may change it.
class TPKCS8 : private TASN1 {
 public:
  // Document kinds.
  static constexpr std::uint32_t kPrivateKeyInfo = 1;
  static constexpr std::uint32_t kEncryptedPrivateKeyInfo = 2;
  static constexpr std::uint32_t kCertBag = 3;
  static constexpr std::uint32_t kCrlBag = 4;
  static constexpr std::uint32_t kSecretBag = 5;
  static constexpr std::uint32_t kEncoded = 6;

  TPKCS8();
  virtual ~TPKCS8();
  TPKCS8(const TPKCS8&) = delete;
  TPKCS8& operator=(const TPKCS8&) = delete;

  // Builds a document of the record's kind in place of the one that is held. 0; 1: no input; else
  // the number of the step that failed, and nothing is held. Encoded elements of the input are
  // taken only as far as they end within their stated size; one that does not adds nothing. The
  // input is not the document's own: that one goes first. Throws std::bad_alloc, also for an input
  // of about 4 GiB.
  std::int32_t Build(const Pkcs8Record* input);

  // Reads a document in place of the one that is held, whose octets these are not. 0; 1: no octets;
  // 2: not loadable; 3: not one SEQUENCE that spans exactly the octets; 4: the tree cannot be
  // built; 100 and the number of the check that failed. After a failure nothing is held. A document
  // of kind kEncoded is not checked further and has no record; an unknown kind is 100. Throws
  // std::bad_alloc.
  std::int32_t Read(std::uint32_t kind, OctetSpan octets);

  // Octets of the whole document in DER, or -1 if nothing is held.
  [[nodiscard]] std::int64_t EncodedSize();

  // Writes EncodedSize() octets. 0; 1: nothing is held or no buffer.
  std::int32_t Encode(std::uint8_t* buffer);

  // What the last successful read found, or null. It points into the document: good until the next
  // build, read or clear.
  [[nodiscard]] const Pkcs8Record* Decoded() const { return decoded_ ? &*decoded_ : nullptr; }

  // The kind last built or read; 0 when nothing is held.
  [[nodiscard]] std::uint32_t Kind() const { return kind_; }

  // Empties the document, wiping what it held.
  void Clear();

 private:
  void WipeCopies() noexcept;
  // The end of a build or read: holds the document if the code is 0, else nothing. Returns the
  // code.
  std::int32_t Settle(std::uint32_t kind, std::int32_t code);
  std::int32_t ReadTree(std::uint32_t kind, OctetSpan octets);

  std::uint32_t kind_ = 0;  // 0: nothing is held
  std::optional<Pkcs8Record> decoded_;
  // What a kind-1 record points at and the tree does not hold in that form.
  std::vector<std::uint8_t> parameters_;
  std::vector<std::uint8_t> attributes_;
};

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_PKCS8_H_
