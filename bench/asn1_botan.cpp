#include "bench/asn1_botan.h"

#include <botan/ber_dec.h>
#include <botan/der_enc.h>

namespace zarext::bench {

struct BotanTree::Element {
  Botan::BER_Object object;  // of a primitive element with its content
  std::vector<Element> children;
};

namespace {

bool IsConstructed(const Botan::BER_Object& object) {
  return (object.get_class() & Botan::CONSTRUCTED) != 0;
}

void Read(Botan::BER_Object object, BotanTree::Element* element) {
  element->object = std::move(object);
  if (!IsConstructed(element->object)) {
    return;
  }
  Botan::BER_Decoder inner(element->object.bits(), element->object.length());
  while (inner.more_items()) {
    element->children.emplace_back();
    Read(inner.get_next_object(), &element->children.back());
  }
}

void Write(const BotanTree::Element& element, Botan::DER_Encoder* encoder) {
  const Botan::BER_Object& object = element.object;
  if (!IsConstructed(object)) {
    encoder->add_object(object.type(), object.get_class(), object.bits(), object.length());
    return;
  }
  const auto kind = static_cast<Botan::ASN1_Tag>(object.get_class() & ~Botan::CONSTRUCTED);
  encoder->start_cons(object.type(), kind);
  for (const BotanTree::Element& child : element.children) {
    Write(child, encoder);
  }
  encoder->end_cons();
}

}  // namespace

BotanTree::BotanTree(const Octets& image) : top_(std::make_unique<Element>()) {
  Botan::BER_Decoder decoder(image.data(), image.size());
  Read(decoder.get_next_object(), top_.get());
}

BotanTree::~BotanTree() = default;

Octets BotanTree::Encode() const {
  Octets out;
  Botan::DER_Encoder encoder(out);
  Write(*top_, &encoder);
  return out;
}

}  // namespace zarext::bench
