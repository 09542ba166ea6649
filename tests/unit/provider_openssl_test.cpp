// The provider and OpenSSL sign for each other: for GOST with fresh keys where OpenSSL has its
// engine, and everywhere with what it made and was kept (tests/fixtures/gost).
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

  // Whether openssl succeeded.
  [[nodiscard]] bool Run(const std::string& arguments) const {
    return Shell("openssl " + arguments);
  }
  // Whether the command succeeded. The sanitizers' settings are not for other programs.
  [[nodiscard]] bool Shell(const std::string& text) const {
    const std::string command = "cd '" + folder_.string() +
                                "' && env -u LD_PRELOAD -u ASAN_OPTIONS " + text + " >output 2>&1";
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

// Debian 13 has it no longer.
bool HasGostEngine() {
  static const bool found = OpenSsl().Run("engine gost");
  return found;
}

Bytes Kept(const std::string& name) {
  std::ifstream file(std::string(ZAREXT_FIXTURES "/gost/") + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Nothing changes a signature between the provider's form and a certificate's but the direction.
Bytes Turned(View signature) { return Reversed(signature); }

// The signed part of a certificate, and its signature in the provider's form.
struct SignedCertificate {
  explicit SignedCertificate(View certificate) {
    DerReader outer{certificate};
    DerReader fields = outer.Enter(kDerSequence);
    body = fields.Next().whole;
    fields.Next();
    signature = Turned(ReadBits(fields.Next(kDerBitString)));
  }
  View body;
  Bytes signature;
};

struct Case {
  std::uint32_t key;
  std::uint32_t hash;
  const char* digest;      // OpenSSL's option
  const char* keyName;     // its algorithm
  const char* keyOid;      // of a SubjectPublicKeyInfo
  const char* parameters;  // of the same, DER
  const char* newKey;      // arguments of genpkey
  const char* engine;      // option of every command
  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.keyName << row.digest; }
};

class CrossSignatures : public testing::TestWithParam<Case> {
 protected:
  [[nodiscard]] static bool IsThere() { return *GetParam().engine == '\0' || HasGostEngine(); }
  // What OpenSSL made: now, or, where it has no engine, what was kept under this ending.
  [[nodiscard]] Bytes Made(const char* file, const char* ending) const {
    return IsThere() ? openssl_.Read(file) : Kept(GetParam().keyName + std::string(ending));
  }
  [[nodiscard]] static std::string Command(const char* name) {
    return std::string(name) + " " + GetParam().engine + " ";
  }

  // A new key of OpenSSL's, as key.pem and as key.der.
  void MakeKey() const {
    ASSERT_TRUE(openssl_.Run(Command("genpkey") + GetParam().newKey + " -out key.pem"));
    ASSERT_TRUE(
        openssl_.Run(Command("pkcs8") + "-topk8 -nocrypt -in key.pem -outform DER -out key.der"));
  }
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
  if (!IsThere()) {
    GTEST_SKIP() << "OpenSSL has no GOST engine: none but the provider verifies what it signs";
  }
  const PrivateKey key = GenerateKey(*FindKeyAlgorithm(GetParam().key), 0);
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  openssl_.Write("key.der", PublicKeyInfo(key.publicKey));
  openssl_.Write("text", text_);
  openssl_.Write("signature", Turned(Sign(key, hash, HashOf(hash, text_))));
  const std::string verify =
      Command("dgst") + GetParam().digest + " -verify key.pem -signature signature ";
  ASSERT_TRUE(
      openssl_.Run(Command("pkey") + "-pubin -inform DER -in key.der -pubout -out key.pem"));
  EXPECT_TRUE(openssl_.Run(verify + "text"));
  openssl_.Write("text", AsView("What was not signed.\n"));
  EXPECT_FALSE(openssl_.Run(verify + "text"));
}

TEST_P(CrossSignatures, MadeThereVerifyHere) {
  if (IsThere()) {
    openssl_.Write("text", text_);
    MakeKey();
    ASSERT_TRUE(
        openssl_.Run(Command("dgst") + GetParam().digest + " -sign key.pem -out signature text"));
  }
  const PrivateKey key = ReadPrivateKeyInfo(Made("key.der", ".key.der"));
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  const Bytes signature = Turned(Made("signature", ".signature"));
  EXPECT_TRUE(Verify(key.publicKey, hash, HashOf(hash, text_), signature));
  EXPECT_FALSE(Verify(key.publicKey, hash, HashOf(hash, AsView("else")), signature));
}

TEST_P(CrossSignatures, InACertificateVerifyHere) {
  if (IsThere()) {
    MakeKey();
    ASSERT_TRUE(openssl_.Run(Command("req -new -x509") + GetParam().digest +
                             " -key key.pem -subj /CN=cross -outform DER -out certificate"));
  }
  const PublicKey key = ReadPrivateKeyInfo(Made("key.der", ".key.der")).publicKey;
  const Bytes certificate = Made("certificate", ".certificate.der");
  const SignedCertificate parts{View(certificate)};
  const HashAlgorithm& hash = *FindHashAlgorithm(GetParam().hash);
  EXPECT_TRUE(Verify(key, hash, HashOf(hash, parts.body), parts.signature));
}

INSTANTIATE_TEST_SUITE_P(
    Fresh, CrossSignatures,
    testing::Values(Case{0xAA3A, 0x8015, "-md_gost94", "gost2001", "1.2.643.2.2.19",
                         "301206072a85030202230106072a850302021e01",
                         "-algorithm gost2001 -pkeyopt paramset:A", "-engine gost"},
                    Case{0xA045, 0x8022, "-md_gost12_256", "gost2012_256", "1.2.643.7.1.1.1.1",
                         "301306072a85030202230106082a85030701010202",
                         "-algorithm gost2012_256 -pkeyopt paramset:B", "-engine gost"},
                    Case{0xAA4C, 0x8023, "-md_gost12_512", "gost2012_512", "1.2.643.7.1.1.1.2",
                         "301506092a850307010201020106082a85030701010203",
                         "-algorithm gost2012_512 -pkeyopt paramset:A", "-engine gost"},
                    Case{0xA450, 0x800C, "-sha256", "rsa", "1.2.840.113549.1.1.1", "0500",
                         "-algorithm rsa -pkeyopt rsa_keygen_bits:1024", ""}));

struct KeptCase {
  const char* name;
  std::uint32_t hash;
  friend void PrintTo(const KeptCase& row, std::ostream* out) { *out << row.name; }
};
constexpr KeptCase kKept[] = {
    {"gost2001", 0x8015}, {"gost2012_256", 0x8022}, {"gost2012_512", 0x8023}};

class KeptSignatures : public testing::TestWithParam<KeptCase> {
 protected:
  static Bytes File(const char* ending) { return Kept(GetParam().name + std::string(ending)); }
  const HashAlgorithm& hash_ = *FindHashAlgorithm(GetParam().hash);
  const PublicKey key_ = ReadPrivateKeyInfo(File(".key.der")).publicKey;
};

TEST_P(KeptSignatures, OfATextVerifies) {
  const Bytes signature = Turned(File(".signature"));
  EXPECT_TRUE(Verify(key_, hash_, HashOf(hash_, AsView("What is signed.\n")), signature));
  EXPECT_FALSE(Verify(key_, hash_, HashOf(hash_, AsView("What was not signed.\n")), signature));
}

TEST_P(KeptSignatures, OfACertificateVerifies) {
  const Bytes certificate = File(".certificate.der");
  const SignedCertificate parts{View(certificate)};
  EXPECT_TRUE(Verify(key_, hash_, HashOf(hash_, parts.body), parts.signature));
}

// The last octets of a SubjectPublicKeyInfo are the key's.
TEST_P(KeptSignatures, AreOfTheKeyThatOpenSslFinds) {
  const Bytes info = File(".public.der");
  ASSERT_GT(info.size(), key_.value.size());
  EXPECT_EQ(key_.value,
            Bytes(info.end() - static_cast<std::ptrdiff_t>(key_.value.size()), info.end()));
}

INSTANTIATE_TEST_SUITE_P(OfOpenSsl, KeptSignatures, testing::ValuesIn(kKept));

// Made again with the same keys, everything but the signatures is what was kept.
TEST(KeptFiles, AreWhatTheEngineMakes) {
  if (!HasGostEngine()) GTEST_SKIP() << "OpenSSL has no GOST engine";
  const OpenSsl openssl;
  ASSERT_TRUE(openssl.Shell(ZAREXT_FIXTURES "/gost/make . " ZAREXT_FIXTURES "/gost"));
  for (const KeptCase& row : kKept) {
    for (const char* ending : {".key.der", ".public.der", ".text"}) {
      const std::string name = row.name + std::string(ending);
      EXPECT_EQ(Kept(name), openssl.Read(name.c_str())) << name;
    }
  }
  for (const char* name :
       {"gost2001.certificate.der", "gost2012_256.certificate.der", "gost2012_512.certificate.der",
        "gost-root.der", "gost-authority.der", "gost-user.der"}) {
    const Bytes kept = Kept(name);
    const Bytes made = openssl.Read(name);
    const View was = SignedCertificate(View(kept)).body;
    const View is = SignedCertificate(View(made)).body;
    EXPECT_EQ(Bytes(was.begin(), was.end()), Bytes(is.begin(), is.end())) << name;
  }
}

}  // namespace
}  // namespace zarext::provider
