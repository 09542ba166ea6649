#include <cstring>
#include <limits>
#include <new>
#include <span>

#include "asn1/tags.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/pkcs8_names.h"

namespace zarext {
namespace {

using namespace pkcs8;

// Appends elements to a document, each as the last child of the node at a path (none: the root),
// until a step fails; each step carries the code that its failure gives.
class Builder {
 public:
  explicit Builder(TASN1& document) : document_(document) {}

  template <typename... Path>
  Builder& Sequence(std::int32_t code, Path... path) {
    return Add(code, kTagSequence, 0, nullptr, path...);
  }

  template <typename... Path>
  Builder& Integer(std::int32_t code, std::uint32_t number, Path... path) {
    return Add(code, kTagInteger, sizeof number, &number, path...);
  }

  // A null text fails.
  template <typename... Path>
  Builder& Oid(std::int32_t code, const char* text, Path... path) {
    return Add(code, kTagObjectIdentifier, 1, text, path...);
  }

  // No data for a size other than 0 fails.
  template <typename... Path>
  Builder& Octets(std::int32_t code, OctetsRef octets, Path... path) {
    return Add(code, kTagOctetString, octets.size, octets.data, path...);
  }

  template <typename... Path>
  Builder& Null(std::int32_t code, Path... path) {
    return Add(code, kTagNull, 0, nullptr, path...);
  }

  template <typename... Path>
  Builder& Wrapper(std::int32_t code, Path... path) {
    return Add(code, kTagContext0, 0, nullptr, path...);
  }

  // An element that is encoded already. One that does not end within its stated size adds nothing,
  // and that is no failure.
  template <typename... Path>
  Builder& Element(std::int32_t code, OctetsRef element, Path... path) {
    return Step(code, [&] {
      const std::span<const std::uint8_t> image(element.data, element.size);
      return Ends(image) ? document_.ParseInto(image, path..., kPathEnd) : 0;
    });
  }

  template <typename... Path>
  Builder& Retag(std::int32_t code, std::uint8_t tag, Path... path) {
    return Step(code, [&] { return document_.SetTag(tag, path..., kPathEnd); });
  }

  Builder& Require(std::int32_t code, bool condition) {
    return Step(code, [&] { return condition ? 0 : 1; });
  }

  [[nodiscard]] std::int32_t Code() const { return code_; }

 private:
  // Whether the first element of the image ends within it.
  [[nodiscard]] bool Ends(std::span<const std::uint8_t> image) const {
    std::uint32_t length = 0;
    const std::int32_t header = document_.ReadHeader(image, nullptr, &length);
    if (header == 0 || std::uint64_t{length} + static_cast<std::uint32_t>(header) > image.size()) {
      return false;
    }
    // An indefinite length leads to the closing pair, if one was found.
    return image[1] != 0x80 || (image[length] == 0 && image[length + 1] == 0);
  }

  template <typename Work>
  Builder& Step(std::int32_t code, Work work) {
    if (code_ == 0 && work() != 0) {
      code_ = code;
    }
    return *this;
  }

  template <typename... Path>
  Builder& Add(std::int32_t code, std::uint8_t tag, std::uint32_t length, const void* value,
               Path... path) {
    return Step(code, [&] { return document_.AddChild(tag, length, value, path..., kPathEnd); });
  }

  TASN1& document_;
  std::int32_t code_ = 0;
};

bool Equal(const char* left, const char* right) {
  return left != nullptr && std::strcmp(left, right) == 0;
}

void AddAlgorithmParameters(Builder& build, const PrivateKeyRecord& input) {
  // The key's length is all that tells the curves apart: a compatibility fact.
  constexpr std::uint32_t kSecp384r1KeySize = 55;
  if (input.parameters.Given()) {
    build.Element(5, input.parameters, 1);
  } else if (Equal(input.algorithm, kEcPublicKey)) {
    build.Oid(6, input.privateKey.size == kSecp384r1KeySize ? kSecp384r1 : kSecp256r1, 1);
  } else {
    build.Null(6, 1);
  }
}

std::int32_t BuildPrivateKey(TASN1& document, const PrivateKeyRecord& input) {
  Builder build(document);
  build.Integer(2, input.version).Sequence(3).Oid(4, input.algorithm, 1);
  AddAlgorithmParameters(build, input);
  build.Octets(7, input.privateKey);
  if (input.attributes.Given()) {
    build.Element(8, input.attributes).Retag(9, kTagContext0, 3);
  }
  return build.Code();
}

void AddPbes2(Builder& build, const EncryptedKeyRecord& input) {
  build.Oid(21, kPbes2, 0)
      .Require(22, input.salt.Given())
      .Sequence(23, 0)
      .Sequence(24, 0, 1)
      .Oid(25, kPbkdf2, 0, 1, 0)
      .Sequence(26, 0, 1, 0)
      .Octets(27, input.salt, 0, 1, 0, 1)
      .Integer(28, input.iterations, 0, 1, 0, 1);
  // Only this cipher names its pseudo-random function: a compatibility fact.
  if (Equal(input.algorithm, kAes256Cbc)) {
    build.Sequence(28, 0, 1, 0, 1).Oid(28, kHmacWithSha256, 0, 1, 0, 1, 2).Null(28, 0, 1, 0, 1, 2);
  }
  build.Sequence(29, 0, 1).Oid(30, input.algorithm, 0, 1, 1).Octets(31, input.iv, 0, 1, 1);
}

void AddSinglePbe(Builder& build, const EncryptedKeyRecord& input) {
  build.Oid(32, input.algorithm, 0);
  if (input.salt.Given() && input.iterations != 0) {
    build.Sequence(33, 0).Octets(34, input.salt, 0, 1).Integer(35, input.iterations, 0, 1);
  }
}

std::int32_t BuildEncryptedKey(TASN1& document, const EncryptedKeyRecord& input) {
  Builder build(document);
  build.Sequence(20);
  if (input.iv.Given()) {
    AddPbes2(build, input);
  } else {
    AddSinglePbe(build, input);
  }
  return build.Octets(36, input.encryptedData).Code();
}

std::int32_t BuildBag(TASN1& document, const BagRecord& input) {
  return Builder(document)
      .Oid(40, input.type)
      .Wrapper(41)
      .Octets(42, input.value, 1)
      .Retag(43, input.tag, 1, 0)
      .Code();
}

std::int32_t AdoptDocument(TASN1& document, const EncodedDocument& input) {
  if (!input.octets.Given()) {
    return 50;
  }
  if (document.Load(input.octets.data, input.octets.size) != 0) {
    return 51;
  }
  return document.Parse(input.octets.data, kPathEnd) == 0 ? 0 : 52;
}

// Octets that the input brings along.
std::uint64_t SizeOf(const PrivateKeyRecord& input) {
  return std::uint64_t{input.parameters.size} + input.privateKey.size + input.attributes.size;
}
std::uint64_t SizeOf(const EncryptedKeyRecord& input) {
  return std::uint64_t{input.salt.size} + input.iv.size + input.encryptedData.size;
}
std::uint64_t SizeOf(const BagRecord& input) { return input.value.size; }
std::uint64_t SizeOf(const EncodedDocument& input) { return input.octets.size; }

// Runs `build` on the record if it is of the kind's type.
template <typename Record, typename Work>
std::int32_t BuildFrom(const Pkcs8Record& input, TASN1& document, Work build) {
  // More than headers and object identifiers can add.
  constexpr std::uint32_t kOverhead = 0x1000;
  const Record* record = std::get_if<Record>(&input);
  if (record == nullptr) {
    return 1;
  }
  if (SizeOf(*record) > std::numeric_limits<std::uint32_t>::max() - kOverhead) {
    throw std::bad_alloc();
  }
  return build(document, *record);
}

}  // namespace

std::int32_t TPKCS8::BuildTree(std::uint32_t kind, const Pkcs8Record& input) {
  switch (kind) {
    case kPrivateKeyInfo:
      return BuildFrom<PrivateKeyRecord>(input, *this, BuildPrivateKey);
    case kEncryptedPrivateKeyInfo:
      return BuildFrom<EncryptedKeyRecord>(input, *this, BuildEncryptedKey);
    case kCertBag:
    case kCrlBag:
    case kSecretBag:
      return BuildFrom<BagRecord>(input, *this, BuildBag);
    case kEncoded:
      return BuildFrom<EncodedDocument>(input, *this, AdoptDocument);
    default:
      return 100;
  }
}

std::int32_t TPKCS8::Build(std::uint32_t kind, const Pkcs8Record* input) {
  Clear();
  return Settle(kind, input == nullptr ? 1 : BuildTree(kind, *input));
}

}  // namespace zarext
