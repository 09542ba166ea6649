// The provider and OpenSSL with its GOST engine sign for each other, with fresh keys.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "provider/der.h"
#include "provider/hash.h"
#include "provider/key.h"
#include "provider_hex.h"

namespace zarext::provider {
namespace {

// A folder of its own, and the openssl command in it.
class OpenSsl {
 public:
  OpenSsl() {
    std::string name = std::filesystem::temp_directory_path() / ("openssl-" + std::string(6, 'X'));
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = name;
  }
  ~OpenSsl() { std::filesystem::remove_all(folder_); }
  OpenSsl(const OpenSsl&) = delete;
  OpenSsl& operator=(const OpenSsl&) = delete;

  // Whether the command succeeded. The sanitizers' settings are not for that program.
  [[nodiscard]] bool Run(const std::string& arguments) const {
    const std::string command = "cd '" + folder_.string() +
                                "' && env -u LD_PRELOAD -u ASAN_OPTIONS openssl " + arguments +
                                " >output 2>&1";
    return std::system(command.c_str()) == 0;
  }
  void Write(const char* name, View content) const {
    std::ofstream(folder_ / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
  }
  [[nodiscard]] Bytes Read(const char* name) const {
    std::ifstream file(folder_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path folder_;
};

struct Case {
  std::uint32_t key;
  std::uint32_t hash;
  const char* digest;      // OpenSSL's option
  const char* keyName;     // its algorithm
  const char* keyOid;      // of a SubjectPublicKeyInfo
  const char* parameters;  // of the same, DER
  const char* newKey;      // arguments of genpkey
  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.keyName << row.digest; }
};

class CrossSignatures : public testing::TestWithParam<Case> {
 protected:
  // Nothing changes a signature between the provider's form and a certificate's but the direction.
  static Bytes Turned(View signature) { return Reversed(signature); }

  [[nodiscard]] Bytes PublicKeyInfo(const PublicKey& key) const {
    const Bytes octets =
        key.curve ? Der(kDerOctetString, key.value)
                  : DerSequence(DerUnsigned(key.rsa.modulus), DerUnsigned(key.rsa.exponent));
    return DerSequence(DerSequence(DerOid(GetParam().keyOid), test::Hex(GetParam().parameters)),
                       DerBits(octets));
  }

  OpenSsl openssl_;
  const Bytes text_ = ToBytes(AsView("What is signed.\n"));
};

TEST_P(CrossSignatures, MadeHereVerifyThere) {
  const PrivateKey key = GenerateKey(*FindKeyAlgorithm(GetParam().key), 0);
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  openssl_.Write("key.der", PublicKeyInfo(key.publicKey));
  openssl_.Write("text", text_);
  openssl_.Write("signature", Turned(Sign(key, hash, HashOf(hash, text_))));
  const std::string verify = std::string("dgst -engine gost ") + GetParam().digest +
                             " -verify key.pem -signature signature ";
  ASSERT_TRUE(
      openssl_.Run("pkey -engine gost -pubin -inform DER -in key.der -pubout -out key.pem"));
  EXPECT_TRUE(openssl_.Run(verify + "text"));
  openssl_.Write("text", AsView("What was not signed.\n"));
  EXPECT_FALSE(openssl_.Run(verify + "text"));
}

TEST_P(CrossSignatures, MadeThereVerifyHere) {
  openssl_.Write("text", text_);
  ASSERT_TRUE(
      openssl_.Run(std::string("genpkey -engine gost ") + GetParam().newKey + " -out key.pem"));
  ASSERT_TRUE(
      openssl_.Run("pkcs8 -engine gost -topk8 -nocrypt -in key.pem -outform DER -out key.der"));
  ASSERT_TRUE(openssl_.Run(std::string("dgst -engine gost ") + GetParam().digest +
                           " -sign key.pem -out signature text"));
  const PrivateKey key = ReadPrivateKeyInfo(openssl_.Read("key.der"));
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  const Bytes signature = Turned(openssl_.Read("signature"));
  EXPECT_TRUE(Verify(key.publicKey, hash, HashOf(hash, text_), signature));
  EXPECT_FALSE(Verify(key.publicKey, hash, HashOf(hash, AsView("else")), signature));
}

TEST_P(CrossSignatures, InACertificateVerifyHere) {
  ASSERT_TRUE(
      openssl_.Run(std::string("genpkey -engine gost ") + GetParam().newKey + " -out key.pem"));
  ASSERT_TRUE(openssl_.Run(std::string("req -new -x509 -engine gost ") + GetParam().digest +
                           " -key key.pem -subj /CN=cross -outform DER -out certificate"));
  ASSERT_TRUE(
      openssl_.Run("pkcs8 -engine gost -topk8 -nocrypt -in key.pem -outform DER -out key.der"));
  const PublicKey key = ReadPrivateKeyInfo(openssl_.Read("key.der")).publicKey;
  const Bytes certificate = openssl_.Read("certificate");
  DerReader outer{View(certificate)};
  DerReader fields = outer.Enter(kDerSequence);
  const View body = fields.Next().whole;
  fields.Next();
  const Bytes signature = Turned(ReadBits(fields.Next(kDerBitString)));
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  EXPECT_TRUE(Verify(key, hash, HashOf(hash, body), signature));
}

INSTANTIATE_TEST_SUITE_P(
    Fresh, CrossSignatures,
    testing::Values(Case{0xAA3A, 0x8015, "-md_gost94", "gost2001", "1.2.643.2.2.19",
                         "301206072a85030202230106072a850302021e01",
                         "-algorithm gost2001 -pkeyopt paramset:A"},
                    Case{0xA045, 0x8022, "-md_gost12_256", "gost2012_256", "1.2.643.7.1.1.1.1",
                         "301306072a85030202230106082a85030701010202",
                         "-algorithm gost2012_256 -pkeyopt paramset:B"},
                    Case{0xAA4C, 0x8023, "-md_gost12_512", "gost2012_512", "1.2.643.7.1.1.1.2",
                         "301506092a850307010201020106082a85030701010203",
                         "-algorithm gost2012_512 -pkeyopt paramset:A"},
                    Case{0xA450, 0x800C, "-sha256", "rsa", "1.2.840.113549.1.1.1", "0500",
                         "-algorithm rsa -pkeyopt rsa_keygen_bits:1024"}));

}  // namespace
}  // namespace zarext::provider
