#include "unit/keyinfo_properties.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "asn1/tasn1.h"
#include "keyinfo/import_blob.h"
#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_octets.h"

namespace zarext::test {
namespace {

std::string Text(OctetSpan octets) { return HexText(octets.data(), octets.size()); }
std::string Text(const char* oid) { return oid == nullptr ? "-" : oid; }

// Everything that a record says; touches every octet of it.
std::string Show(const PrivateKeyRecord& r) {
  return std::to_string(r.version) + " " + Text(r.algorithm) + " " + Text(r.parameters) + " " +
         Text(r.privateKey) + " " + Text(r.attributes);
}
std::string Show(const EncryptedKeyRecord& r) {
  return Text(r.algorithm) + " " + Text(r.salt) + " " + std::to_string(r.iterations) + " " +
         Text(r.iv) + " " + Text(r.encryptedData);
}
std::string Show(const BagRecord& r) {
  return Text(r.type) + " " + Text(r.value) + " " + std::to_string(r.tag);
}
std::string Show(const EncodedDocument& r) { return Text(r.octets); }
std::string Show(const Pkcs8Record& record) {
  return std::visit([](const auto& r) { return Show(r); }, record);
}

Octets Encoding(TPKCS8& document) {
  const std::int64_t size = document.EncodedSize();
  Octets encoded(size < 0 ? 0 : static_cast<std::size_t>(size));
  if (!encoded.empty()) {
    document.Encode(encoded.data());
  }
  return encoded;
}

// Whether the writer gives an object identifier back: not if it has arcs of more than 28 bits or a
// first arc of 2 or more, or if its text was cut.
bool ComesBack(const char* oid) {
  if (oid == nullptr || std::strlen(oid) > 200 || std::strchr("01", oid[0]) == nullptr ||
      oid[1] != '.') {
    return false;
  }
  std::string_view rest = oid;
  int arcs = 0;
  while (!rest.empty()) {
    const std::size_t dot = std::min(rest.find('.'), rest.size());
    if (dot > 8 || rest[0] == '-') {
      return false;
    }
    rest.remove_prefix(std::min(dot + 1, rest.size()));
    ++arcs;
  }
  return arcs <= 60;
}

// Dotted text with its terminator, as OBJECT IDENTIFIERs among the parameters are read. It comes
// back only if it is encoded first.
bool IsOidText(OctetSpan octets) {
  return !octets.empty() && octets.back() == 0 &&
         std::all_of(octets.begin(), octets.end() - 1, [](std::uint8_t octet) {
           return octet == '.' || octet == '-' || (octet >= '0' && octet <= '9');
         });
}

bool ComesBack(const PrivateKeyRecord& r) {
  return ComesBack(r.algorithm) && !IsOidText(r.parameters);
}
bool ComesBack(const EncryptedKeyRecord& r) {
  return ComesBack(r.algorithm) && (!r.iv.empty() || (!r.salt.empty() && r.iterations != 0));
}
// Numbers, bit strings and object identifiers are read as values, not as octets.
bool ComesBack(const BagRecord& r) {
  return ComesBack(r.type) && r.tag != 0x02 && r.tag != 0x03 && r.tag != 0x06;
}
bool ComesBack(const EncodedDocument&) { return false; }
bool ComesBack(const Pkcs8Record& record) {
  return std::visit([](const auto& r) { return ComesBack(r); }, record);
}

// The default parameters that a build adds are no part of what was read.
void DropDefaults(const Pkcs8Record& before, Pkcs8Record& after) {
  const auto* read = std::get_if<PrivateKeyRecord>(&before);
  if (read != nullptr && read->parameters.empty()) {
    std::get<PrivateKeyRecord>(after).parameters = read->parameters;
  }
}

std::string CheckRoundTrip(std::uint32_t kind, const Pkcs8Record& record) {
  const std::string shown = Show(record);
  TPKCS8 built;
  const std::int32_t code = built.Build(&record);
  if (!ComesBack(record)) {
    return "";
  }
  if (code != 0) {
    return "kind " + std::to_string(kind) + " build " + std::to_string(code) + ": " + shown;
  }
  const Octets encoded = Encoding(built);
  TPKCS8 again;
  if (again.Read(kind, encoded) != 0) {
    return "not read again: " + HexText(encoded);
  }
  Pkcs8Record reread = *again.Decoded();
  DropDefaults(record, reread);
  return Show(reread) == shown ? "" : shown + " became " + Show(reread);
}

std::string CheckRead(std::uint32_t kind, std::span<const std::uint8_t> octets) {
  TPKCS8 document;
  const std::int32_t code = document.Read(kind, octets);
  const bool record = document.Decoded() != nullptr;
  if (code != 0) {
    return record || document.EncodedSize() != -1 || document.Kind() != 0
               ? "something is left after code " + std::to_string(code)
               : "";
  }
  if (record != (kind != TPKCS8::kEncoded) || document.Kind() != kind) {
    return "kind " + std::to_string(kind) + " without its record";
  }
  return record ? CheckRoundTrip(kind, *document.Decoded()) : "";
}

std::string CheckParts(std::span<const std::uint8_t> octets) {
  PrivateKeyRecord record;
  record.algorithm = "1.2.3";
  record.parameters = octets;
  record.privateKey = octets.first(octets.empty() ? 0U : 1U);
  const Pkcs8Record withParameters = record;
  TPKCS8 document;
  if (document.Build(&withParameters) != 0) {
    return "parameters fail a build";
  }
  Encoding(document);
  record.attributes = octets;
  const Pkcs8Record withAttributes = record;
  document.Build(&withAttributes);
  Encoding(document);
  const std::uint8_t tag = octets.empty() ? std::uint8_t{0} : octets[0];
  const Pkcs8Record bag = SecretBagRecord{{"1.2.3", octets, tag}};
  document.Build(&bag);
  Encoding(document);
  const Pkcs8Record adopted = EncodedDocument{octets};
  document.Build(&adopted);
  Encoding(document);
  return "";
}

// The two direct forms, for octets that are no document.
std::optional<std::size_t> DirectKey(std::span<const std::uint8_t> octets) {
  if (octets.size() >= 2 && octets[0] == 4 && octets[1] + 2U == octets.size()) {
    return 2;
  }
  if (octets.size() >= 3 && octets[0] == 4 && octets[2] + 3U == octets.size()) {
    return 3;
  }
  return std::nullopt;
}

}  // namespace

std::string CheckKeyDocument(std::span<const std::uint8_t> octets) {
  // In a block of their own, so that the sanitizer sees a read behind them.
  const std::vector<std::uint8_t> alone(octets.begin(), octets.end());
  for (std::uint32_t kind = 1; kind <= 6; ++kind) {
    if (std::string finding = CheckRead(kind, alone); !finding.empty()) {
      return finding;
    }
  }
  return CheckParts(alone);
}

std::string CheckKeyExtraction(std::span<const std::uint8_t> octets) {
  const std::vector<std::uint8_t> alone(octets.begin(), octets.end());
  TASN1 document(0x30);
  const std::optional<OctetSpan> key = ExtractKey(document, alone);
  TASN1 check(0x30);
  if (check.Load(alone.data(), static_cast<std::uint32_t>(alone.size())) != 0) {
    const std::optional<std::size_t> offset = DirectKey(alone);
    if (key.has_value() != offset.has_value() ||
        (key && (key->data() != alone.data() + *offset || key->size() != alone.size() - *offset))) {
      return "wrong direct key: " + HexText(alone);
    }
  } else if (!key) {
    return "no key from a document: " + HexText(alone);
  }
  if (!key) {
    return "";
  }
  const std::vector<std::uint8_t> blob = BuildImportBlob(ImportRuleOf("1.2.643.2.2.19"), *key);
  const bool same =
      blob.size() == key->size() + 16 && std::equal(key->begin(), key->end(), blob.begin() + 16);
  return same ? "" : "wrong blob: " + HexText(alone);
}

}  // namespace zarext::test
