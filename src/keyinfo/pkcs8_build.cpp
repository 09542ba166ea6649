#include "asn1/image_reader.h"
#include "asn1/oid.h"
#include "asn1/tags.h"
#include "keyinfo/pkcs8.h"
#include "keyinfo/pkcs8_parts.h"

namespace zarext {
namespace {

using namespace pkcs8;

// Appends elements to a document, each as the last child of the node at a path, until a step fails;
// each step carries the code that its failure gives.
class Builder {
 public:
  explicit Builder(TASN1& document) : document_(document) {}

  Builder& Sequence(std::int32_t code, auto path) {
    return Add(code, kTagSequence, 0, nullptr, path);
  }

  Builder& Integer(std::int32_t code, std::uint32_t number, auto path) {
    return Add(code, kTagInteger, sizeof number, &number, path);
  }

  // A null text fails.
  Builder& Oid(std::int32_t code, const char* text, auto path) {
    return Add(code, kTagObjectIdentifier, 1, text, path);
  }

  Builder& Octets(std::int32_t code, OctetSpan octets, auto path) {
    return Add(code, kTagOctetString, static_cast<std::uint32_t>(octets.size()), octets.data(),
               path);
  }

  Builder& Null(std::int32_t code, auto path) { return Add(code, kTagNull, 0, nullptr, path); }

  Builder& Wrapper(std::int32_t code) { return Add(code, kTagContext0, 0, nullptr, kAt<>); }

  // An element that is encoded already. One that does not end within its stated size adds nothing,
  // and that is no failure.
  template <std::int32_t... entries>
  Builder& Element(std::int32_t code, OctetSpan element, Path<entries...>) {
    return Step(code, [&] {
      return HoldsElement(element) ? document_.ParseInto(element, entries..., kPathEnd) : 0;
    });
  }

  template <std::int32_t... entries>
  Builder& Retag(std::int32_t code, std::uint8_t tag, Path<entries...>) {
    return Step(code, [&] { return document_.SetTag(tag, entries..., kPathEnd); });
  }

  Builder& Require(std::int32_t code, bool condition) {
    return Step(code, [&] { return condition ? 0 : 1; });
  }

  [[nodiscard]] std::int32_t Code() const { return code_; }

 private:
  template <typename Work>
  Builder& Step(std::int32_t code, Work work) {
    if (code_ == 0 && work() != 0) {
      code_ = code;
    }
    return *this;
  }

  template <std::int32_t... entries>
  Builder& Add(std::int32_t code, std::uint8_t tag, std::uint32_t length, const void* value,
               Path<entries...>) {
    return Step(code, [&] { return document_.AddChild(tag, length, value, entries..., kPathEnd); });
  }

  TASN1& document_;
  std::int32_t code_ = 0;
};

void AddAlgorithmParameters(Builder& build, const PrivateKeyRecord& input) {
  // Without parameters nothing but the key's length tells the curves apart.
  constexpr std::size_t kSecp384r1KeySize = 55;
  if (!input.parameters.empty()) {
    build.Element(5, input.parameters, kAt<1>);
  } else if (SameOid(input.algorithm, kEcPublicKey)) {
    build.Oid(6, input.privateKey.size() == kSecp384r1KeySize ? kSecp384r1 : kSecp256r1, kAt<1>);
  } else {
    build.Null(6, kAt<1>);
  }
}

std::int32_t BuildDocument(TASN1& document, const PrivateKeyRecord& input) {
  Builder build(document);
  build.Integer(2, input.version, kAt<>).Sequence(3, kAt<>).Oid(4, input.algorithm, kAt<1>);
  AddAlgorithmParameters(build, input);
  build.Octets(7, input.privateKey, kAt<>);
  if (!input.attributes.empty()) {
    build.Element(8, input.attributes, kAt<>).Retag(9, kTagContext0, kAt<3>);
  }
  return build.Code();
}

void AddPbes2(Builder& build, const EncryptedKeyRecord& input) {
  build.Oid(21, kPbes2, kAt<0>)
      .Require(22, !input.salt.empty())
      .Sequence(23, kAt<0>)
      .Sequence(24, kAt<0, 1>)
      .Oid(25, kPbkdf2, kAt<0, 1, 0>)
      .Sequence(26, kAt<0, 1, 0>)
      .Octets(27, input.salt, kAt<0, 1, 0, 1>)
      .Integer(28, input.iterations, kAt<0, 1, 0, 1>);
  // Only this cipher names its pseudo-random function. Readers of the other documents assume
  // HMAC with SHA-1, the default of RFC 8018.
  if (SameOid(input.algorithm, kAes256Cbc)) {
    build.Sequence(28, kAt<0, 1, 0, 1>)
        .Oid(28, kHmacWithSha256, kAt<0, 1, 0, 1, 2>)
        .Null(28, kAt<0, 1, 0, 1, 2>);
  }
  build.Sequence(29, kAt<0, 1>)
      .Oid(30, input.algorithm, kAt<0, 1, 1>)
      .Octets(31, input.iv, kAt<0, 1, 1>);
}

void AddSinglePbe(Builder& build, const EncryptedKeyRecord& input) {
  build.Oid(32, input.algorithm, kAt<0>);
  if (!input.salt.empty() && input.iterations != 0) {
    build.Sequence(33, kAt<0>)
        .Octets(34, input.salt, kAt<0, 1>)
        .Integer(35, input.iterations, kAt<0, 1>);
  }
}

std::int32_t BuildDocument(TASN1& document, const EncryptedKeyRecord& input) {
  Builder build(document);
  build.Sequence(20, kAt<>);
  if (input.iv.empty()) {
    AddSinglePbe(build, input);
  } else {
    AddPbes2(build, input);
  }
  return build.Octets(36, input.encryptedData, kAt<>).Code();
}

std::int32_t BuildDocument(TASN1& document, const BagRecord& input) {
  return Builder(document)
      .Oid(40, input.type, kAt<>)
      .Wrapper(41)
      .Octets(42, input.value, kAt<1>)
      .Retag(43, input.tag, kAt<1, 0>)
      .Code();
}

std::int32_t BuildDocument(TASN1& document, const EncodedDocument& input) {
  if (input.octets.empty()) {
    return 50;
  }
  if (document.Load(input.octets.data(), static_cast<std::uint32_t>(input.octets.size())) != 0) {
    return 51;
  }
  return document.Parse(input.octets.data(), kPathEnd) == 0 ? 0 : 52;
}

// Octets that the input brings along.
std::uint64_t SizeOf(const PrivateKeyRecord& input) {
  return std::uint64_t{input.parameters.size()} + input.privateKey.size() + input.attributes.size();
}
std::uint64_t SizeOf(const EncryptedKeyRecord& input) {
  return std::uint64_t{input.salt.size()} + input.iv.size() + input.encryptedData.size();
}
std::uint64_t SizeOf(const BagRecord& input) { return input.value.size(); }
std::uint64_t SizeOf(const EncodedDocument& input) { return input.octets.size(); }

}  // namespace

std::int32_t TPKCS8::Build(const Pkcs8Record* input) {
  Clear();
  if (input == nullptr) {
    return 1;
  }
  const std::int32_t code = std::visit(
      [this](const auto& record) {
        // More than headers and object identifiers can add.
        constexpr std::uint32_t kOverhead = 0x1000;
        CheckedSize(SizeOf(record) + kOverhead);
        return BuildDocument(*this, record);
      },
      *input);
  return Settle(static_cast<std::uint32_t>(input->index() + 1), code);
}

}  // namespace zarext
