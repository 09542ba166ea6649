#include <cstring>

#include "asn1/tags.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/pkcs8_names.h"

namespace zarext {
namespace {

using namespace pkcs8;

struct Node {
  std::uint8_t tag = 0;
  std::uint32_t children = 0;
  std::uint32_t length = 0;
  const std::uint8_t* value = nullptr;

  [[nodiscard]] bool HasValue() const { return value != nullptr && length != 0; }
  [[nodiscard]] OctetsRef Value() const {
    return value == nullptr ? OctetsRef{} : OctetsRef{value, length};
  }
};

// The codes of a check: the node is not there, or it is not what it should be.
struct Codes {
  std::int32_t missing;
  std::int32_t wrong;
};

// Checks nodes of a document one after another until a check fails.
class Reader {
 public:
  explicit Reader(TASN1& document) : document_(document) {}

  // Any node that `fits`.
  template <typename Condition, typename... Path>
  Reader& Check(Codes codes, Node& node, Condition fits, Path... path) {
    if (code_ != 0) {
      return *this;
    }
    if (document_.GetNode(&node.tag, &node.children, &node.length, &node.value, path...,
                          kPathEnd) != 0) {
      code_ = codes.missing;
    } else if (!fits(node)) {
      code_ = codes.wrong;
    }
    return *this;
  }

  // A SEQUENCE of `least` to `most` elements.
  template <typename... Path>
  Reader& Sequence(Codes codes, std::uint32_t least, std::uint32_t most, Path... path) {
    Node node;
    return Check(
        codes, node,
        [&](const Node& n) {
          return n.tag == kTagSequence && n.children >= least && n.children <= most;
        },
        path...);
  }

  // An INTEGER that the tree gives as a 32-bit number.
  template <typename... Path>
  Reader& Integer(Codes codes, std::uint32_t& number, Path... path) {
    Node node;
    return Check(
        codes, node,
        [&](const Node& n) {
          if (n.tag != kTagInteger || n.length != sizeof number || n.value == nullptr) {
            return false;
          }
          std::memcpy(&number, n.value, sizeof number);
          return true;
        },
        path...);
  }

  // A non-empty OBJECT IDENTIFIER, as text.
  template <typename... Path>
  Reader& Oid(Codes codes, const char*& text, Path... path) {
    Node node;
    return Check(
        codes, node,
        [&](const Node& n) {
          text = reinterpret_cast<const char*>(n.value);
          return n.tag == kTagObjectIdentifier && n.HasValue();
        },
        path...);
  }

  // An OCTET STRING, which may be empty.
  template <typename... Path>
  Reader& Octets(Codes codes, OctetsRef& octets, Path... path) {
    Node node;
    return Check(
        codes, node,
        [&](const Node& n) {
          octets = n.Value();
          return n.tag == kTagOctetString;
        },
        path...);
  }

  template <typename... Path>
  Reader& NonEmptyOctets(Codes codes, OctetsRef& octets, Path... path) {
    return Octets(codes, octets, path...).Require(codes.wrong, [&] { return octets.Given(); });
  }

  // Goes on with `work`, whose result is a code of its own.
  template <typename Work>
  Reader& Then(Work work) {
    if (code_ == 0) {
      code_ = work();
    }
    return *this;
  }

  // Goes on only if the condition holds.
  template <typename Condition>
  Reader& Require(std::int32_t code, Condition holds) {
    if (code_ == 0 && !holds()) {
      code_ = code;
    }
    return *this;
  }

  [[nodiscard]] std::int32_t Code() const { return code_; }

 private:
  TASN1& document_;
  std::int32_t code_ = 0;
};

bool Anything(const Node& /*node*/) { return true; }

bool Equal(const char* left, const char* right) {
  return left != nullptr && std::strcmp(left, right) == 0;
}

// The encoding of the node at `path`. 0, or the code for its size or for its octets.
template <typename... Path>
std::int32_t CopyEncoding(TASN1& document, std::int32_t sizeCode, std::int32_t octetsCode,
                          std::vector<std::uint8_t>& copy, Path... path) {
  std::uint32_t size = 0;
  if (document.GetEncodedSize(&size, path..., kPathEnd) != 0) {
    return sizeCode;
  }
  copy.resize(size);
  return document.Encode(copy.data(), path..., kPathEnd) == 0 ? 0 : octetsCode;
}

OctetsRef RefTo(const std::vector<std::uint8_t>& octets) {
  return {octets.data(), static_cast<std::uint32_t>(octets.size())};
}

// An OBJECT IDENTIFIER is kept as its text with the terminator, anything else as it is encoded.
std::int32_t KeepParameters(TASN1& document, std::vector<std::uint8_t>& copy) {
  Node node;
  const std::int32_t code = Reader(document).Check({9, 9}, node, Anything, 1, 1).Code();
  if (code != 0) {
    return code;
  }
  if (node.tag != kTagObjectIdentifier) {
    return CopyEncoding(document, 9, 9, copy, 1, 1);
  }
  copy.assign(node.value, node.value + node.length);
  copy.push_back(0);
  return 0;
}

// The attributes are tagged [0]; taken for themselves they are a SET.
std::int32_t KeepAttributes(TASN1& document, std::vector<std::uint8_t>& copy) {
  Node node;
  return Reader(document)
      .Check(
          {12, 13}, node, [](const Node& n) { return n.tag == kTagContext0; }, 3)
      .Require(14, [&] { return document.SetTag(kTagSet, 3, kPathEnd) == 0; })
      .Then([&] { return CopyEncoding(document, 15, 16, copy, 3); })
      .Require(17, [&] { return document.SetTag(kTagContext0, 3, kPathEnd) == 0; })
      .Code();
}

std::int32_t ReadSinglePbe(TASN1& document, EncryptedKeyRecord& record) {
  return Reader(document)
      .NonEmptyOctets({28, 29}, record.salt, 0, 1, 0)
      .Integer({30, 31}, record.iterations, 0, 1, 1)
      .Code();
}

// The third PBKDF2 element, a key length or a pseudo-random function, is not looked at.
std::int32_t ReadPbes2(TASN1& document, EncryptedKeyRecord& record) {
  const char* derivation = nullptr;
  return Reader(document)
      .Sequence({32, 33}, 2, 2, 0, 1, 0)
      .Oid({34, 35}, derivation, 0, 1, 0, 0)
      .Require(36, [&] { return Equal(derivation, kPbkdf2); })
      .Sequence({37, 38}, 2, 3, 0, 1, 0, 1)
      .NonEmptyOctets({39, 40}, record.salt, 0, 1, 0, 1, 0)
      .Integer({41, 42}, record.iterations, 0, 1, 0, 1, 1)
      .Sequence({43, 44}, 2, 2, 0, 1, 1)
      .Oid({45, 46}, record.algorithm, 0, 1, 1, 0)
      .Octets({47, 48}, record.iv, 0, 1, 1, 1)
      .Code();
}

std::int32_t CheckCertBag(const BagRecord& record) {
  if (Equal(record.type, kX509Certificate)) {
    return record.tag == kTagOctetString ? 0 : 70;
  }
  if (Equal(record.type, kSdsiCertificate)) {
    return record.tag == kTagBmpString ? 0 : 71;
  }
  return 69;
}

std::int32_t CheckCrlBag(const BagRecord& record) {
  if (!Equal(record.type, kX509Crl)) {
    return 72;
  }
  return record.tag == kTagOctetString ? 0 : 73;
}

}  // namespace

std::int32_t TPKCS8::ReadPrivateKey() {
  PrivateKeyRecord record;
  Node root;
  Node algorithm;
  Reader read(*this);
  read.Check({2, 2}, root,
             [](const Node& n) {
               return n.tag == kTagSequence && (n.children == 3 || n.children == 4);
             })
      .Integer({3, 4}, record.version, 0)
      .Check(
          {5, 6}, algorithm, [](const Node& n) { return n.children >= 1 && n.children <= 3; }, 1)
      .Oid({7, 8}, record.algorithm, 1, 0);
  if (algorithm.children == 2) {
    read.Then([&] { return KeepParameters(*this, parameters_); });
    record.parameters = RefTo(parameters_);
  }
  read.NonEmptyOctets({10, 11}, record.privateKey, 2);
  if (root.children == 4) {
    read.Then([&] { return KeepAttributes(*this, attributes_); });
    record.attributes = RefTo(attributes_);
  }
  decoded_ = record;
  return read.Code();
}

std::int32_t TPKCS8::ReadEncryptedKey() {
  EncryptedKeyRecord record;
  Node scheme;
  Reader read(*this);
  read.Sequence({20, 21}, 2, 2)
      .Check(
          {22, 23}, scheme, [](const Node& n) { return n.tag == kTagSequence; }, 0)
      .Oid({24, 25}, record.algorithm, 0, 0);
  if (scheme.children == 2) {
    read.Sequence({26, 27}, 2, 2, 0, 1).Then([&] {
      return Equal(record.algorithm, kPbes2) ? ReadPbes2(*this, record)
                                             : ReadSinglePbe(*this, record);
    });
  }
  read.NonEmptyOctets({49, 50}, record.encryptedData, 1);
  decoded_ = record;
  return read.Code();
}

std::int32_t TPKCS8::ReadBag(std::uint32_t kind) {
  BagRecord record;
  Node wrapper;
  Node value;
  Reader read(*this);
  read.Sequence({60, 61}, 2, 2)
      .Oid({62, 63}, record.type, 0)
      .Check(
          {64, 65}, wrapper, [](const Node& n) { return n.tag == kTagContext0; }, 1)
      .Require(66, [&] { return wrapper.children == 1; })
      .Check(
          {67, 68}, value, [](const Node& n) { return n.HasValue(); }, 1, 0);
  record.value = value.Value();
  record.tag = value.tag;
  decoded_ = record;
  return read
      .Then([&] {
        return kind == kCertBag ? CheckCertBag(record)
                                : (kind == kCrlBag ? CheckCrlBag(record) : 0);
      })
      .Code();
}

// The number of the failed check, or 0.
std::int32_t TPKCS8::ReadKind(std::uint32_t kind) {
  switch (kind) {
    case kPrivateKeyInfo:
      return ReadPrivateKey();
    case kEncryptedPrivateKeyInfo:
      return ReadEncryptedKey();
    case kCertBag:
    case kCrlBag:
    case kSecretBag:
      return ReadBag(kind);
    default:
      return 0;
  }
}

std::int32_t TPKCS8::ReadTree(std::uint32_t kind, const std::uint8_t* octets, std::uint32_t size) {
  constexpr std::int32_t kChecksBase = 100;
  if (octets == nullptr || size < 1) {
    return 1;
  }
  if (Load(octets, size) != 0) {
    return 2;
  }
  std::uint8_t tag = 0;
  std::uint32_t length = 0;
  const std::int32_t header = ReadHeader({octets, size}, &tag, &length);
  if (tag != kTagSequence || std::uint64_t{length} + static_cast<std::uint32_t>(header) != size) {
    return 3;
  }
  if (Parse(octets, kPathEnd) != 0) {
    return 4;
  }
  if (kind < kPrivateKeyInfo || kind > kEncoded) {
    return kChecksBase;
  }
  const std::int32_t check = ReadKind(kind);
  return check == 0 ? 0 : kChecksBase + check;
}

std::int32_t TPKCS8::Read(std::uint32_t kind, const std::uint8_t* octets, std::uint32_t size) {
  Clear();
  return Settle(kind, ReadTree(kind, octets, size));
}

}  // namespace zarext
