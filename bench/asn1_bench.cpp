// The codec beside other libraries that build a structure, and beside what its records cost at
// least.
#include <openssl/asn1.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>

#include "asn1/tasn1.h"
#include "bench/asn1_botan.h"
#include "bench/asn1_documents.h"
#include "bench/asn1_floors.h"
#include "bench/asn1_rounds.h"
#include "bench/asn1_tasn1.h"

namespace zarext::bench {
namespace {

void Require(bool condition) {
  if (!condition) {
    throw std::runtime_error("a measured operation failed");
  }
}

// The codec.

void ParseHere(const Octets& image) {
  TASN1 document(0x30);
  Require(document.Load(image.data(), static_cast<std::uint32_t>(image.size())) == 0);
  Require(document.Parse(image.data(), kPathEnd) == 0);
}

std::function<void()> EncodeHere(const Octets& image) {
  auto document = std::make_shared<TASN1>(std::uint8_t{0x30});
  Require(document->Load(image.data(), static_cast<std::uint32_t>(image.size())) == 0);
  Require(document->Parse(image.data(), kPathEnd) == 0);
  auto out = std::make_shared<Octets>(image.size());
  return [document, out, &image] {
    std::uint32_t size = 0;
    Require(document->GetEncodedSize(&size, kPathEnd) == 0 && size == image.size());
    Require(document->Encode(out->data(), kPathEnd) == 0);
  };
}

// OpenSSL's types. It keeps the octets that a certificate was read from and would only copy these;
// as in every other measurement, what is encoded is the structure.

void Forget(PKCS8_PRIV_KEY_INFO* /*key*/) {}
void Forget(X509* certificate) { i2d_re_X509_tbs(certificate, nullptr); }
void Forget(PKCS7* message) {
  STACK_OF(X509)* certificates = message->d.sign->cert;
  for (int i = 0; i < sk_X509_num(certificates); ++i) {
    Forget(sk_X509_value(certificates, i));
  }
}

// What one peer does with a document: nothing where it cannot read it.
struct Work {
  std::function<void()> parse;
  std::function<void()> encode;
};

template <typename T, auto Read, auto Write, auto Free>
Work WorkOfType(const Octets& image) {
  const std::uint8_t* at = image.data();
  std::shared_ptr<T> object(Read(nullptr, &at, static_cast<long>(image.size())), Free);
  Forget(object.get());
  auto out = std::make_shared<Octets>(image.size());
  return {[&image] {
            const std::uint8_t* octets = image.data();
            T* parsed = Read(nullptr, &octets, static_cast<long>(image.size()));
            Require(parsed != nullptr);
            Free(parsed);
          },
          [object, out] {
            std::uint8_t* to = out->data();
            Require(Write(object.get(), nullptr) == static_cast<int>(out->size()));
            Require(Write(object.get(), &to) == static_cast<int>(out->size()));
          }};
}

Work OpenSslTyped(const Document& document) {
  switch (document.kind) {
    case Kind::kPrivateKey:
      return WorkOfType<PKCS8_PRIV_KEY_INFO, d2i_PKCS8_PRIV_KEY_INFO, i2d_PKCS8_PRIV_KEY_INFO,
                        PKCS8_PRIV_KEY_INFO_free>(document.image);
    case Kind::kCertificate:
      return WorkOfType<X509, d2i_X509, i2d_X509, X509_free>(document.image);
    case Kind::kPkcs7:
      return WorkOfType<PKCS7, d2i_PKCS7, i2d_PKCS7, PKCS7_free>(document.image);
    default:
      return {};
  }
}

// OpenSSL without types: each constructed element is a stack of elements of any type. One with a
// context tag is read under the tag of a sequence.

struct AnyTree {
  ASN1_SEQUENCE_ANY* elements = nullptr;
  std::vector<std::unique_ptr<AnyTree>> inner;  // null for an element that is primitive
  bool set = false;
  std::uint8_t tag = 0;

  AnyTree() = default;
  AnyTree(const AnyTree&) = delete;
  AnyTree& operator=(const AnyTree&) = delete;
  ~AnyTree() { sk_ASN1_TYPE_pop_free(elements, ASN1_TYPE_free); }
};

std::unique_ptr<AnyTree> ReadAny(const std::uint8_t* at, long size) {
  auto tree = std::make_unique<AnyTree>();
  tree->tag = *at;
  tree->set = *at == 0x31;
  Octets retagged;
  if ((*at & 0xC0) != 0) {
    retagged.assign(at, at + size);
    retagged[0] = 0x30;
    at = retagged.data();
  }
  tree->elements =
      tree->set ? d2i_ASN1_SET_ANY(nullptr, &at, size) : d2i_ASN1_SEQUENCE_ANY(nullptr, &at, size);
  Require(tree->elements != nullptr);
  const int count = sk_ASN1_TYPE_num(tree->elements);
  tree->inner.resize(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    const ASN1_TYPE* element = sk_ASN1_TYPE_value(tree->elements, i);
    if (element->type == V_ASN1_SET || element->type == V_ASN1_SEQUENCE ||
        element->type == V_ASN1_OTHER) {
      const ASN1_STRING* octets = element->value.sequence;
      const std::uint8_t* start = ASN1_STRING_get0_data(octets);
      if ((*start & 0x20) != 0) {
        tree->inner[static_cast<std::size_t>(i)] = ReadAny(start, ASN1_STRING_length(octets));
      }
    }
  }
  return tree;
}

// The inner elements first: their octets are part of what the outer ones hold.
int WriteAny(AnyTree* tree, std::uint8_t* out) {
  for (std::size_t i = 0; i < tree->inner.size(); ++i) {
    if (tree->inner[i] != nullptr) {
      ASN1_STRING* octets = sk_ASN1_TYPE_value(tree->elements, static_cast<int>(i))->value.sequence;
      Require(WriteAny(tree->inner[i].get(), octets->data) == octets->length);
    }
  }
  std::uint8_t* end = out;
  const int size = tree->set ? i2d_ASN1_SET_ANY(tree->elements, &end)
                             : i2d_ASN1_SEQUENCE_ANY(tree->elements, &end);
  *out = tree->tag;
  return size;
}

Work OpenSslAny(const Octets& image) {
  const auto size = static_cast<long>(image.size());
  std::shared_ptr<AnyTree> tree = ReadAny(image.data(), size);
  auto out = std::make_shared<Octets>(image.size());
  return {
      [&image, size] { ReadAny(image.data(), size); },
      [tree, out] { Require(WriteAny(tree.get(), out->data()) == static_cast<int>(out->size())); }};
}

Work Libtasn1(const Document& document) {
  const auto element = std::make_shared<Tasn1Element>(document);
  auto out = std::make_shared<Octets>(document.image.size());
  return {[&document] { const Tasn1Element parsed(document); },
          [element, out] { element->Encode(out.get()); }};
}

Work Botan2([[maybe_unused]] const Octets& image) {
#ifdef ZAREXT_BOTAN
  const auto tree = std::make_shared<BotanTree>(image);
  return {[&image] { const BotanTree parsed(image); },
          [tree, &image] { Require(tree->Encode().size() == image.size()); }};
#else
  return {};
#endif
}

Work Floors(const Document& document) {
  const Octets& image = document.image;
  auto allocations = std::make_shared<std::vector<Allocation>>(AllocationsFor(image));
  auto blocks = std::make_shared<std::vector<void*>>(allocations->size());
  Work work{[allocations, blocks] { AllocateAndFree(*allocations, blocks->data()); }, {}};
  // The walk recurses.
  if (document.kind != Kind::kNested) {
    std::shared_ptr<FloorNode> tree = MakeFloorTree(image);
    auto out = std::make_shared<Octets>(image.size());
    work.encode = [tree, out] {
      Require(WalkAndCopy(*tree, out->data()) == out->data() + out->size());
    };
  }
  return work;
}

// One row: the document, its octets, nanoseconds of the codec, its faults and allocations, and for
// the floor and each peer nanoseconds, faults and the codec's share of its time; 0 where there is
// none.
void Print(const char* what, const Document& document, const std::vector<Contestant>& all) {
  std::vector<Contestant> able;
  std::copy_if(all.begin(), all.end(), std::back_inserter(able),
               [](const Contestant& contestant) { return contestant.work != nullptr; });
  const std::vector<Standing> standings = TakeTurns(able, 101);
  std::printf("| %s | %s | %zu | %.0f | %.1f | %.0f |", what, document.name.c_str(),
              document.image.size(), standings[0].nanoseconds, standings[0].faults,
              standings[0].allocations);
  std::size_t next = 1;
  for (std::size_t i = 1; i < all.size(); ++i) {
    const Standing none{};
    const Standing& peer = all[i].work != nullptr ? standings[next++] : none;
    std::printf(" %.0f %.1f %.3f |", peer.nanoseconds, peer.faults, peer.ratio);
  }
  std::printf("\n");
  (void)std::fflush(stdout);
}

void MeasureDocument(const Document& document) {
  const Octets& image = document.image;
  const Work floor = Floors(document);
  Work typed;
  Work any;
  Work tasn1;
  Work botan;
  if (document.kind != Kind::kNested) {
    typed = OpenSslTyped(document);
    any = OpenSslAny(image);
    tasn1 = Libtasn1(document);
    botan = Botan2(image);
  }
  Print("parse", document,
        {{"zarext", [&image] { ParseHere(image); }},
         {"floor", floor.parse},
         {"openssl_typed", typed.parse},
         {"openssl_any", any.parse},
         {"libtasn1", tasn1.parse},
         {"botan", botan.parse}});
  Print("encode", document,
        {{"zarext", EncodeHere(image)},
         {"floor", floor.encode},
         {"openssl_typed", typed.encode},
         {"openssl_any", any.encode},
         {"libtasn1", tasn1.encode},
         {"botan", botan.encode}});
}

void WriteDocuments(const std::string& folder) {
  for (const Document& document : Documents()) {
    std::ofstream file(folder + "/" + document.name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(document.image.data()),
               static_cast<std::streamsize>(document.image.size()));
    Require(file.good());
  }
}

}  // namespace
}  // namespace zarext::bench

// Without arguments measures all documents; with names only these; with --write FOLDER writes them
// there for asn1_module_bench.exe.
int main(int argc, char** argv) {
  const std::vector<std::string> names(argv + 1, argv + argc);
  if (names.size() == 2 && names[0] == "--write") {
    zarext::bench::WriteDocuments(names[1]);
    return EXIT_SUCCESS;
  }
  zarext::bench::AgeHeap();
  for (const zarext::bench::Document& document : zarext::bench::Documents()) {
    if (names.empty() || std::find(names.begin(), names.end(), document.name) != names.end()) {
      zarext::bench::MeasureDocument(document);
    }
  }
  return EXIT_SUCCESS;
}
