#include "support/certificates.h"

#include <cstdlib>

namespace zarext::test {
namespace {

using Octets = std::vector<std::uint8_t>;

Octets Join(const std::vector<Octets>& parts) {
  Octets all;
  for (const Octets& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Octets Sequence(const std::vector<Octets>& parts) { return MakeElement(0x30, Join(parts)); }

Octets Text(std::uint8_t tag, const std::string& text) {
  return MakeElement(tag, Octets(text.begin(), text.end()));
}

Octets Oid(const std::string& text) {
  std::vector<unsigned long> arcs;
  const char* position = text.c_str();
  while (*position != '\0') {
    char* end = nullptr;
    arcs.push_back(std::strtoul(position, &end, 10));
    position = *end == '.' ? end + 1 : end;
  }
  Octets content = {static_cast<std::uint8_t>(arcs.at(0) * 40 + arcs.at(1))};
  for (std::size_t i = 2; i < arcs.size(); ++i) {
    Octets arc = {static_cast<std::uint8_t>(arcs[i] & 0x7F)};
    for (unsigned long rest = arcs[i] >> 7; rest != 0; rest >>= 7) {
      arc.insert(arc.begin(), static_cast<std::uint8_t>(rest & 0x7F) | 0x80);
    }
    content.insert(content.end(), arc.begin(), arc.end());
  }
  return MakeElement(0x06, content);
}

Octets Name(const std::string& commonName) {
  return Sequence({MakeElement(0x31, Sequence({Oid("2.5.4.3"), Text(0x0C, commonName)}))});
}

Octets Algorithm(const std::string& oid) { return Sequence({Oid(oid), MakeElement(0x05, {})}); }

Octets BitString(std::size_t size) {
  Octets content(size + 1);
  for (std::size_t i = 1; i <= size; ++i) {
    content[i] = static_cast<std::uint8_t>(i);
  }
  content[0] = 0;
  return MakeElement(0x03, content);
}

}  // namespace

Octets MakeElement(std::uint8_t tag, const Octets& content) {
  Octets element = {tag};
  const std::size_t length = content.size();
  if (length < 0x80) {
    element.push_back(static_cast<std::uint8_t>(length));
  } else if (length < 0x100) {
    element.insert(element.end(), {0x81, static_cast<std::uint8_t>(length)});
  } else if (length < 0x10000) {
    element.insert(element.end(), {0x82, static_cast<std::uint8_t>(length >> 8),
                                   static_cast<std::uint8_t>(length)});
  } else {
    element.insert(element.end(),
                   {0x83, static_cast<std::uint8_t>(length >> 16),
                    static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)});
  }
  element.insert(element.end(), content.begin(), content.end());
  return element;
}

Octets MakeCertificate(const CertificateOrder& order) {
  const Octets version = MakeElement(0xA0, MakeElement(0x02, {2}));
  const Octets validity = Sequence({Text(0x17, "200101000000Z"), Text(0x17, "491231235959Z")});
  const Octets key = Sequence({Algorithm(order.publicKeyOid), BitString(order.keySize)});
  const Octets body =
      Sequence({version, MakeElement(0x02, order.serial), Algorithm(order.signatureOid),
                Name(order.issuer), validity, Name(order.subject), key});
  return Sequence({body, Algorithm(order.signatureOid), BitString(64)});
}

Octets MakeChain(const std::vector<Octets>& certificates) {
  const Octets content = Sequence({Oid("1.2.840.113549.1.7.1")});
  const Octets signedData =
      Sequence({MakeElement(0x02, {1}), MakeElement(0x31, {}), content,
                MakeElement(0xA0, Join(certificates)), MakeElement(0x31, {})});
  return Sequence({Oid("1.2.840.113549.1.7.2"), MakeElement(0xA0, signedData)});
}

}  // namespace zarext::test
