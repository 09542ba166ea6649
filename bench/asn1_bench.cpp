// The codec beside other libraries that build a structure, and beside what its records cost at
// least. Run with --benchmark_filter=certificate and the like for one document.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "asn1/tasn1.h"
#include "bench/allocation_count.h"
#include "bench/asn1_documents.h"
#include "bench/asn1_floors.h"
#include "bench/asn1_tasn1.h"

namespace zarext::bench {
namespace {

void Require(bool condition) {
  if (!condition) {
    throw std::runtime_error("a measured operation failed");
  }
}

void Measure(const std::string& name, const std::function<void()>& work) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [work](benchmark::State& state) {
                                 work();
                                 const std::uint64_t before = AllocationCount();
                                 work();
                                 state.counters["allocations"] =
                                     static_cast<double>(AllocationCount() - before);
                                 for (auto _ : state) {
                                   work();
                                   benchmark::ClobberMemory();
                                 }
                               })
      ->MinTime(0.1)
      // Of several repetitions the quickest: what else the machine does only ever adds.
      ->ComputeStatistics("min", [](const std::vector<double>& times) {
        return *std::min_element(times.begin(), times.end());
      });
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

template <typename T, auto Read, auto Write, auto Free>
void MeasureType(const Document& document) {
  const Octets& image = document.image;
  Measure("parse/" + document.name + "/openssl_typed", [&image] {
    const std::uint8_t* at = image.data();
    T* object = Read(nullptr, &at, static_cast<long>(image.size()));
    Require(object != nullptr);
    Free(object);
  });
  const std::uint8_t* at = image.data();
  std::shared_ptr<T> object(Read(nullptr, &at, static_cast<long>(image.size())), Free);
  Forget(object.get());
  auto out = std::make_shared<Octets>(image.size());
  Measure("encode/" + document.name + "/openssl_typed", [object, out] {
    std::uint8_t* to = out->data();
    Require(Write(object.get(), nullptr) == static_cast<int>(out->size()));
    Require(Write(object.get(), &to) == static_cast<int>(out->size()));
  });
}

void MeasureOpenSslTyped(const Document& document) {
  switch (document.kind) {
    case Kind::kPrivateKey:
      MeasureType<PKCS8_PRIV_KEY_INFO, d2i_PKCS8_PRIV_KEY_INFO, i2d_PKCS8_PRIV_KEY_INFO,
                  PKCS8_PRIV_KEY_INFO_free>(document);
      break;
    case Kind::kCertificate:
      MeasureType<X509, d2i_X509, i2d_X509, X509_free>(document);
      break;
    case Kind::kPkcs7:
      MeasureType<PKCS7, d2i_PKCS7, i2d_PKCS7, PKCS7_free>(document);
      break;
    default:
      break;
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

void MeasureOpenSslAny(const Document& document) {
  const Octets& image = document.image;
  const auto size = static_cast<long>(image.size());
  Measure("parse/" + document.name + "/openssl_any",
          [&image, size] { ReadAny(image.data(), size); });
  std::shared_ptr<AnyTree> tree = ReadAny(image.data(), size);
  auto out = std::make_shared<Octets>(image.size());
  Measure("encode/" + document.name + "/openssl_any", [tree, out] {
    Require(WriteAny(tree.get(), out->data()) == static_cast<int>(out->size()));
  });
}

void MeasureTasn1(const Document& document) {
  const auto element = std::make_shared<Tasn1Element>(document);
  Measure("parse/" + document.name + "/libtasn1",
          [&document] { const Tasn1Element parsed(document); });
  auto out = std::make_shared<Octets>(document.image.size());
  Measure("encode/" + document.name + "/libtasn1", [element, out] { element->Encode(out.get()); });
}

void MeasureFloors(const Document& document) {
  const Octets& image = document.image;
  std::shared_ptr<FloorNode> tree = MakeFloorTree(image);
  auto allocations = std::make_shared<std::vector<Allocation>>(AllocationsFor(*tree));
  auto blocks = std::make_shared<std::vector<void*>>(allocations->size());
  Measure("parse/" + document.name + "/floor_allocations",
          [allocations, blocks] { AllocateAndFree(*allocations, blocks->data()); });
  auto out = std::make_shared<Octets>(image.size());
  Measure("encode/" + document.name + "/floor_walk",
          [tree, out] { Require(WalkAndCopy(*tree, out->data()) == out->data() + out->size()); });
  Measure("encode/" + document.name + "/floor_memcpy",
          [out, &image] { std::memcpy(out->data(), image.data(), image.size()); });
}

void MeasureAll() {
  for (const Document& document : Documents()) {
    const Octets& image = document.image;
    benchmark::AddCustomContext(document.name, std::to_string(image.size()) + " octets");
    Measure("parse/" + document.name + "/zarext", [&image] { ParseHere(image); });
    Measure("encode/" + document.name + "/zarext", EncodeHere(image));
    MeasureFloors(document);
    MeasureOpenSslTyped(document);
    MeasureOpenSslAny(document);
    MeasureTasn1(document);
  }
}

}  // namespace
}  // namespace zarext::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return EXIT_FAILURE;
  }
  zarext::bench::MeasureAll();
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
