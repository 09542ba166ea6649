#include <cstring>

#include "asn1/oid.h"
#include "asn1/tags.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/pkcs8_parts.h"

namespace zarext {
namespace {

using namespace pkcs8;

struct Node {
  std::uint8_t tag = 0;
  std::uint32_t children = 0;
  OctetSpan value;
};

// The codes of a check: the node is not there, or it is not what it should be.
struct Codes {
  std::int32_t missing;
  std::int32_t wrong;
};

// Reads nodes of a document one after another. After a check that failed nothing is read any more,
// and what is asked for comes empty.
class Reader {
 public:
  explicit Reader(TASN1& document) : document_(document) {}

  template <std::int32_t... entries>
  Node Get(std::int32_t missing, Path<entries...>) {
    Node node;
    if (code_ != 0) {
      return node;
    }
    const std::uint8_t* value = nullptr;
    std::uint32_t length = 0;
    if (document_.GetNode(&node.tag, &node.children, &length, &value, entries..., kPathEnd) != 0) {
      code_ = missing;
      return {};
    }
    node.value = OctetsOf(value, length);
    return node;
  }

  void Require(std::int32_t code, bool holds) {
    if (code_ == 0 && !holds) {
      code_ = code;
    }
  }

  // A SEQUENCE of `least` to `most` elements.
  Node Sequence(Codes codes, std::uint32_t least, std::uint32_t most, auto path) {
    const Node node = Get(codes.missing, path);
    Require(codes.wrong,
            node.tag == kTagSequence && node.children >= least && node.children <= most);
    return node;
  }

  // An INTEGER that the tree gives as a 32-bit number.
  std::uint32_t Integer(Codes codes, auto path) {
    std::uint32_t number = 0;
    const Node node = Get(codes.missing, path);
    Require(codes.wrong, node.tag == kTagInteger && node.value.size() == sizeof number);
    if (code_ == 0) {
      std::memcpy(&number, node.value.data(), sizeof number);
    }
    return number;
  }

  // A non-empty OBJECT IDENTIFIER, as text.
  const char* Oid(Codes codes, auto path) {
    const Node node = Get(codes.missing, path);
    Require(codes.wrong, node.tag == kTagObjectIdentifier && !node.value.empty());
    return reinterpret_cast<const char*>(node.value.data());
  }

  // An OCTET STRING, which may be empty.
  OctetSpan Octets(Codes codes, auto path) {
    const Node node = Get(codes.missing, path);
    Require(codes.wrong, node.tag == kTagOctetString);
    return node.value;
  }

  OctetSpan NonEmptyOctets(Codes codes, auto path) {
    const OctetSpan octets = Octets(codes, path);
    Require(codes.wrong, !octets.empty());
    return octets;
  }

  // A node as it is encoded. The codes are for its size and for its octets.
  template <std::int32_t... entries>
  std::vector<std::uint8_t> Encoding(std::int32_t sizeCode, std::int32_t octetsCode,
                                     Path<entries...>) {
    std::uint32_t size = 0;
    Require(sizeCode, code_ != 0 || document_.GetEncodedSize(&size, entries..., kPathEnd) == 0);
    std::vector<std::uint8_t> octets(size);
    Require(octetsCode, code_ != 0 || document_.Encode(octets.data(), entries..., kPathEnd) == 0);
    return octets;
  }

  template <std::int32_t... entries>
  void Retag(std::int32_t code, std::uint8_t tag, Path<entries...>) {
    Require(code, code_ != 0 || document_.SetTag(tag, entries..., kPathEnd) == 0);
  }

  [[nodiscard]] std::int32_t Code() const { return code_; }

 private:
  TASN1& document_;
  std::int32_t code_ = 0;
};

// An OBJECT IDENTIFIER is kept as its text with the terminator, anything else as it is encoded.
std::vector<std::uint8_t> KeepParameters(Reader& read) {
  const Node node = read.Get(9, kAt<1, 1>);
  if (node.tag != kTagObjectIdentifier) {
    return read.Encoding(9, 9, kAt<1, 1>);
  }
  std::vector<std::uint8_t> text(node.value.begin(), node.value.end());
  text.push_back(0);
  return text;
}

// The attributes are tagged [0]; taken for themselves they are a SET.
std::vector<std::uint8_t> KeepAttributes(Reader& read) {
  read.Require(13, read.Get(12, kAt<3>).tag == kTagContext0);
  read.Retag(14, kTagSet, kAt<3>);
  std::vector<std::uint8_t> set = read.Encoding(15, 16, kAt<3>);
  read.Retag(17, kTagContext0, kAt<3>);
  return set;
}

// What a record of a private key points at and the tree does not hold in that form.
struct Copies {
  std::vector<std::uint8_t>& parameters;
  std::vector<std::uint8_t>& attributes;
};

PrivateKeyRecord ReadPrivateKey(Reader& read, const Copies& copies) {
  PrivateKeyRecord record;
  const Node root = read.Sequence({2, 2}, 3, 4, kAt<>);
  record.version = read.Integer({3, 4}, kAt<0>);
  const Node algorithm = read.Get(5, kAt<1>);
  read.Require(6, algorithm.children >= 1 && algorithm.children <= 3);
  record.algorithm = read.Oid({7, 8}, kAt<1, 0>);
  if (algorithm.children == 2) {
    copies.parameters = KeepParameters(read);
    record.parameters = copies.parameters;
  }
  record.privateKey = read.NonEmptyOctets({10, 11}, kAt<2>);
  if (root.children == 4) {
    copies.attributes = KeepAttributes(read);
    record.attributes = copies.attributes;
  }
  return record;
}

void ReadSinglePbe(Reader& read, EncryptedKeyRecord& record) {
  record.salt = read.NonEmptyOctets({28, 29}, kAt<0, 1, 0>);
  record.iterations = read.Integer({30, 31}, kAt<0, 1, 1>);
}

// The third PBKDF2 element, a key length or a pseudo-random function, is not looked at.
void ReadPbes2(Reader& read, EncryptedKeyRecord& record) {
  read.Sequence({32, 33}, 2, 2, kAt<0, 1, 0>);
  const char* const derivation = read.Oid({34, 35}, kAt<0, 1, 0, 0>);
  read.Require(36, SameOid(derivation, kPbkdf2));
  read.Sequence({37, 38}, 2, 3, kAt<0, 1, 0, 1>);
  record.salt = read.NonEmptyOctets({39, 40}, kAt<0, 1, 0, 1, 0>);
  record.iterations = read.Integer({41, 42}, kAt<0, 1, 0, 1, 1>);
  read.Sequence({43, 44}, 2, 2, kAt<0, 1, 1>);
  record.algorithm = read.Oid({45, 46}, kAt<0, 1, 1, 0>);
  record.iv = read.Octets({47, 48}, kAt<0, 1, 1, 1>);
}

EncryptedKeyRecord ReadEncryptedKey(Reader& read) {
  EncryptedKeyRecord record;
  read.Sequence({20, 21}, 2, 2, kAt<>);
  const Node scheme = read.Get(22, kAt<0>);
  read.Require(23, scheme.tag == kTagSequence);
  record.algorithm = read.Oid({24, 25}, kAt<0, 0>);
  if (scheme.children == 2) {
    read.Sequence({26, 27}, 2, 2, kAt<0, 1>);
    if (SameOid(record.algorithm, kPbes2)) {
      ReadPbes2(read, record);
    } else {
      ReadSinglePbe(read, record);
    }
  }
  record.encryptedData = read.NonEmptyOctets({49, 50}, kAt<1>);
  return record;
}

BagRecord ReadBag(Reader& read) {
  BagRecord record;
  read.Sequence({60, 61}, 2, 2, kAt<>);
  record.type = read.Oid({62, 63}, kAt<0>);
  const Node wrapper = read.Get(64, kAt<1>);
  read.Require(65, wrapper.tag == kTagContext0);
  read.Require(66, wrapper.children == 1);
  const Node value = read.Get(67, kAt<1, 0>);
  read.Require(68, !value.value.empty());
  record.value = value.value;
  record.tag = value.tag;
  return record;
}

CertBagRecord ReadCertBag(Reader& read) {
  const BagRecord record = ReadBag(read);
  const bool x509 = SameOid(record.type, kX509Certificate);
  const bool sdsi = SameOid(record.type, kSdsiCertificate);
  read.Require(69, x509 || sdsi);
  read.Require(70, !x509 || record.tag == kTagOctetString);
  read.Require(71, !sdsi || record.tag == kTagBmpString);
  return {record};
}

CrlBagRecord ReadCrlBag(Reader& read) {
  const BagRecord record = ReadBag(read);
  read.Require(72, SameOid(record.type, kX509Crl));
  read.Require(73, record.tag == kTagOctetString);
  return {record};
}

// Nothing for a document that is adopted as it stands.
std::optional<Pkcs8Record> ReadRecord(Reader& read, std::uint32_t kind, const Copies& copies) {
  switch (kind) {
    case TPKCS8::kPrivateKeyInfo:
      return ReadPrivateKey(read, copies);
    case TPKCS8::kEncryptedPrivateKeyInfo:
      return ReadEncryptedKey(read);
    case TPKCS8::kCertBag:
      return ReadCertBag(read);
    case TPKCS8::kCrlBag:
      return ReadCrlBag(read);
    case TPKCS8::kSecretBag:
      return SecretBagRecord{ReadBag(read)};
    default:
      return std::nullopt;
  }
}

}  // namespace

std::int32_t TPKCS8::ReadTree(std::uint32_t kind, OctetSpan octets) {
  constexpr std::int32_t kChecksBase = 100;
  if (octets.empty()) {
    return 1;
  }
  // Also sees to it that the outermost element spans exactly the octets.
  if (Load(octets.data(), CheckedSize(octets.size())) != 0) {
    return 2;
  }
  if (octets[0] != kTagSequence) {
    return 3;
  }
  if (Parse(octets.data(), kPathEnd) != 0) {
    return 4;
  }
  if (kind < kPrivateKeyInfo || kind > kEncoded) {
    return kChecksBase;
  }
  Reader read(*this);
  std::optional<Pkcs8Record> record = ReadRecord(read, kind, {parameters_, attributes_});
  if (read.Code() != 0) {
    return kChecksBase + read.Code();
  }
  decoded_ = record;
  return 0;
}

std::int32_t TPKCS8::Read(std::uint32_t kind, OctetSpan octets) {
  Clear();
  return Settle(kind, ReadTree(kind, octets));
}

}  // namespace zarext
