#include "bench/asn1_tasn1.h"

#include <libtasn1.h>

#include <stdexcept>

namespace zarext::bench {
namespace {

void Require(int result, const char* what) {
  if (result != ASN1_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + asn1_strerror(result));
  }
}

asn1_node ReadDefinitions() {
  asn1_node definitions = nullptr;
  char message[ASN1_MAX_ERROR_DESCRIPTION_SIZE] = "";
  Require(asn1_parser2tree(ZAREXT_DEFINITIONS, &definitions, message), message);
  return definitions;
}

asn1_node Definitions() {
  static const asn1_node definitions = ReadDefinitions();
  return definitions;
}

}  // namespace

Tasn1Element::Tasn1Element(const Document& document) {
  asn1_node element = nullptr;
  Require(asn1_create_element(Definitions(), document.type, &element), document.type);
  element_ = element;
  int size = static_cast<int>(document.image.size());
  Require(asn1_der_decoding2(&element, document.image.data(), &size, ASN1_DECODE_FLAG_STRICT_DER,
                             nullptr),
          document.type);
}

Tasn1Element::~Tasn1Element() {
  auto* element = static_cast<asn1_node>(element_);
  asn1_delete_structure(&element);
}

void Tasn1Element::Encode(Octets* out) const {
  int size = static_cast<int>(out->size());
  Require(asn1_der_coding(static_cast<asn1_node>(element_), "", out->data(), &size, nullptr),
          "asn1_der_coding");
}

}  // namespace zarext::bench
