#include "bench/asn1_documents.h"

#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace zarext::bench {
namespace {

template <auto Free>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Pkcs8 = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Release<PKCS8_PRIV_KEY_INFO_free>>;
using SignedMessage = std::unique_ptr<PKCS7, Release<PKCS7_free>>;

template <typename T>
T* Made(T* object) {
  if (object == nullptr) {
    throw std::runtime_error("OpenSSL cannot make a document");
  }
  return object;
}

template <auto Write, typename T>
Octets Image(T* object) {
  std::uint8_t* block = nullptr;
  const int size = Write(object, &block);
  if (size <= 0) {
    throw std::runtime_error("OpenSSL cannot write a document");
  }
  Octets image(block, block + size);
  OPENSSL_free(block);
  return image;
}

Octets PrivateKeyImage(EVP_PKEY* key) {
  const Pkcs8 info(Made(EVP_PKEY2PKCS8(key)));
  return Image<i2d_PKCS8_PRIV_KEY_INFO>(info.get());
}

void AddText(X509_NAME* name, const char* field, const char* text) {
  X509_NAME_add_entry_by_txt(name, field, MBSTRING_ASC, reinterpret_cast<const std::uint8_t*>(text),
                             -1, -1, 0);
}

void AddExtension(X509* certificate, int nid, const char* text) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = Made(X509V3_EXT_conf_nid(nullptr, &context, nid, text));
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

Certificate MakeCertificate(EVP_PKEY* key, long serial) {
  Certificate certificate(Made(X509_new()));
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400L * 365);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  AddText(name, "C", "KZ");
  AddText(name, "O", "Benchmark Organisation");
  AddText(name, "OU", "Department of Measurements");
  AddText(name, "CN", "bench.example");
  X509_set_issuer_name(certificate.get(), name);
  X509_set_pubkey(certificate.get(), key);
  AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
  AddExtension(certificate.get(), NID_key_usage, "critical,keyCertSign,digitalSignature");
  AddExtension(certificate.get(), NID_subject_key_identifier, "hash");
  AddExtension(certificate.get(), NID_subject_alt_name,
               "DNS:bench.example,DNS:www.bench.example,email:bench@bench.example");
  if (X509_sign(certificate.get(), key, EVP_sha256()) == 0) {
    throw std::runtime_error("OpenSSL cannot sign a certificate");
  }
  return certificate;
}

Octets ChainImage(EVP_PKEY* key, long certificates, std::size_t leastOctets) {
  const SignedMessage message(Made(PKCS7_new()));
  PKCS7_set_type(message.get(), NID_pkcs7_signed);
  PKCS7_content_new(message.get(), NID_pkcs7_data);
  PKCS7_set_detached(message.get(), 1);
  Octets image;
  for (long serial = 1; serial <= certificates || image.size() < leastOctets; ++serial) {
    PKCS7_add_certificate(message.get(), MakeCertificate(key, serial).get());
    image = Image<i2d_PKCS7>(message.get());
  }
  return image;
}

void Append(Octets* to, std::uint8_t tag, const Octets& content) {
  to->push_back(tag);
  std::size_t octets = 0;
  while (content.size() >= 128 && content.size() >> (8 * octets) != 0) {
    ++octets;
  }
  to->push_back(static_cast<std::uint8_t>(octets == 0 ? content.size() : 0x80 + octets));
  while (octets-- > 0) {
    to->push_back(static_cast<std::uint8_t>(content.size() >> (8 * octets)));
  }
  to->insert(to->end(), content.begin(), content.end());
}

// Contents of all the same size, or of 100 to 900 octets.
Octets EntriesImage(std::size_t size) {
  Octets entries;
  for (int i = 0; i < 100; ++i) {
    Octets entry;
    for (int j = 0; j < 4; ++j) {
      const std::size_t mixed = 100 + static_cast<std::size_t>(i * 4 + j) * 37 % 801;
      Append(&entry, 0x04, Octets(size != 0 ? size : mixed, static_cast<std::uint8_t>(i + j)));
    }
    Append(&entries, 0x30, entry);
  }
  Octets image;
  Append(&image, 0x30, entries);
  return image;
}

Octets SmallEntriesImage(int count) {
  Octets entries;
  for (int i = 0; i < count; ++i) {
    Octets entry;
    Append(&entry, 0x02, {static_cast<std::uint8_t>(1 + i / 256), static_cast<std::uint8_t>(i)});
    Append(&entry, 0x04, Octets(12, static_cast<std::uint8_t>(i)));
    Append(&entries, 0x30, entry);
  }
  Octets image;
  Append(&image, 0x30, entries);
  return image;
}

Octets NestedImage(int levels) {
  Octets reversed;
  for (int level = 0; level < levels; ++level) {
    const std::size_t size = reversed.size();
    std::uint8_t octets = 0;
    for (std::size_t rest = size; size >= 128 && rest > 0; rest >>= 8U, ++octets) {
      reversed.push_back(static_cast<std::uint8_t>(rest));
    }
    reversed.push_back(static_cast<std::uint8_t>(size < 128 ? size : 0x80U + octets));
    reversed.push_back(0x30);
  }
  return {reversed.rbegin(), reversed.rend()};
}

std::vector<Document> MakeDocuments() {
  const Key ec(Made(EVP_EC_gen("P-256")));
  const Key rsa(Made(EVP_RSA_gen(2048)));
  return {
      {"pkcs8_ec", Kind::kPrivateKey, "BENCH.PrivateKeyInfo", PrivateKeyImage(ec.get())},
      {"pkcs8_rsa", Kind::kPrivateKey, "BENCH.PrivateKeyInfo", PrivateKeyImage(rsa.get())},
      {"certificate", Kind::kCertificate, "BENCH.Certificate",
       Image<i2d_X509>(MakeCertificate(rsa.get(), 1).get())},
      {"chain_32k", Kind::kPkcs7, "BENCH.ContentInfo",
       ChainImage(rsa.get(), 0, std::size_t{32} * 1024)},
      {"entries_256k", Kind::kOther, "BENCH.Entries", EntriesImage(650)},
      {"small_2000", Kind::kOther, "BENCH.SmallEntries", SmallEntriesImage(2000)},
      {"chain_5", Kind::kPkcs7, "BENCH.ContentInfo", ChainImage(rsa.get(), 5, 0)},
      {"entries_mixed", Kind::kOther, "BENCH.Entries", EntriesImage(0)},
      {"small_5000", Kind::kOther, "BENCH.SmallEntries", SmallEntriesImage(5000)},
      {"nested_200k", Kind::kNested, "", NestedImage(200000)},
  };
}

}  // namespace

const std::vector<Document>& Documents() {
  static const std::vector<Document> documents = MakeDocuments();
  return documents;
}

}  // namespace zarext::bench
