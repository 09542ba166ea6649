// Files as the openssl command writes them, made anew for each run.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

class OpensslFiles : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::filesystem::temp_directory_path() /
              ("zarext_asn1_" + std::to_string(std::random_device{}()));
    std::filesystem::create_directory(folder_);
    ASSERT_TRUE(
        Run("openssl req -x509 -newkey rsa:2048 -nodes -keyout rsa.pem -out rsa.crt -days 30 "
            "-subj /C=KZ/O=Tests/CN=rsa -addext subjectAltName=DNS:a.example,email:b@c.example && "
            "openssl ecparam -name secp384r1 -genkey -noout -out ec.pem && "
            "openssl req -x509 -new -key ec.pem -out ec.crt -days 30 -subj /CN=ec && "
            "cat rsa.crt ec.crt >both.pem && head -c 100000 /dev/zero >long.bin"));
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(folder_); }

  static bool Run(const std::string& commands) {
    const std::string line =
        "cd " + folder_.string() + " && export ASAN_OPTIONS= && (" + commands + ") >log 2>&1";
    return std::system(line.c_str()) == 0;
  }

  // What the command writes to the file out.
  static Octets Made(const std::string& command) {
    EXPECT_TRUE(Run(command + " -out out")) << command;
    std::ifstream file(folder_ / "out", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static void ExpectReencoded(const Octets& file) {
    ASSERT_GT(file.size(), 60U);
    TASN1 document(0x04);
    EXPECT_EQ(ParseOf(document, file), 0);
    EXPECT_EQ(EncodingOf(document), file);
  }

  static inline std::filesystem::path folder_;
};

TEST_F(OpensslFiles, CertificatesRequestsAndKeys) {
  for (const char* command :
       {"openssl x509 -in rsa.crt -outform DER", "openssl x509 -in ec.crt -outform DER",
        "openssl req -new -key ec.pem -subj /CN=request -outform DER",
        "openssl rsa -in rsa.pem -outform DER", "openssl ec -in ec.pem -outform DER",
        "openssl pkcs8 -topk8 -nocrypt -in rsa.pem -outform DER",
        "openssl pkcs8 -topk8 -nocrypt -in ec.pem -outform DER",
        "openssl pkcs8 -topk8 -in rsa.pem -passout pass:x -outform DER",
        "openssl pkey -in ec.pem -pubout -outform DER"}) {
    SCOPED_TRACE(command);
    ExpectReencoded(Made(command));
  }
}

TEST_F(OpensslFiles, Messages) {
  for (const char* command :
       {"openssl crl2pkcs7 -nocrl -certfile both.pem -outform DER",
        "openssl smime -sign -binary -nodetach -in rsa.crt -signer rsa.crt -inkey rsa.pem "
        "-outform DER",
        "openssl cms -encrypt -in rsa.crt -recip ec.crt -outform DER",
        "openssl cms -encrypt -in rsa.crt -recip rsa.crt -outform DER"}) {
    SCOPED_TRACE(command);
    ExpectReencoded(Made(command));
  }
}

// A PKCS#12 file holds two further documents, each in an OCTET STRING: the safe, and in it the
// bags.
TEST_F(OpensslFiles, Pkcs12AndItsContents) {
  const Octets file = Made(
      "openssl pkcs12 -export -in rsa.crt -inkey rsa.pem -passout pass: -certpbe NONE "
      "-keypbe NONE");
  ExpectReencoded(file);
  Parsed document(file);
  // PFX { version, authSafe { type, [0] { OCTET STRING } }, macData }
  const NodeSeen safe = Seen(document, 1, 1, 0);
  ASSERT_EQ(safe.tag, 0x04);
  ExpectReencoded(safe.value);
  Parsed contents(safe.value);
  ASSERT_EQ(Seen(contents).count, 2U);
  for (const int bag : {0, 1}) {
    EXPECT_EQ(Seen(contents, bag, 0).Text(), "1.2.840.113549.1.7.1");
    const NodeSeen bags = Seen(contents, bag, 1, 0);
    ASSERT_EQ(bags.tag, 0x04);
    ExpectReencoded(bags.value);
  }
  // The certificate bag: SafeContents { { type, [0] { { type, [0] { OCTET STRING } } } } }
  Parsed bags(Seen(contents, 0, 1, 0).value);
  EXPECT_EQ(Seen(bags, 0, 0).Text(), "1.2.840.113549.1.12.10.1.3");
  EXPECT_EQ(Seen(bags, 0, 1, 0, 0).Text(), "1.2.840.113549.1.9.22.1");
  EXPECT_EQ(Seen(bags, 0, 1, 0, 1, 0).value, Made("openssl x509 -in rsa.crt -outform DER"));
}

// A streamed message has indefinite lengths and a segmented OCTET STRING around its content; what
// is written in its place has neither, and is still the same message to the command.
TEST_F(OpensslFiles, StreamedMessageBecomesDer) {
  const Octets streamed = Made(
      "openssl cms -sign -binary -nodetach -stream -in ec.crt -signer rsa.crt -inkey rsa.pem "
      "-outform DER");
  ASSERT_GT(streamed.size(), 100U);
  EXPECT_EQ((Octets{streamed[0], streamed[1]}), Hex("30 80"));
  Parsed document(streamed);
  const NodeSeen content = Seen(document, 1, 0, 2, 1, 0);
  EXPECT_EQ(content.tag, 0x04);
  std::ifstream source(folder_ / "ec.crt", std::ios::binary);
  EXPECT_EQ(content.value, Octets(std::istreambuf_iterator<char>(source), {}));

  const Octets der = EncodingOf(document);
  ExpectReencoded(der);
  std::ofstream(folder_ / "message.der", std::ios::binary)
      .write(reinterpret_cast<const char*>(der.data()), static_cast<std::streamsize>(der.size()));
  EXPECT_TRUE(Run(
      "openssl cms -verify -binary -inform DER -in message.der -CAfile rsa.crt -out verified && "
      "cmp verified ec.crt"));
}

// The search for closing pairs ends at 65,535 octets: a longer streamed message is not one.
TEST_F(OpensslFiles, LongStreamedMessageIsRefused) {
  const Octets streamed = Made(
      "openssl cms -sign -binary -nodetach -stream -in long.bin -signer rsa.crt "
      "-inkey rsa.pem -outform DER");
  ASSERT_GT(streamed.size(), 100000U);
  TASN1 document(0x30);
  EXPECT_EQ(LoadOf(document, streamed), 10);
}

}  // namespace
}  // namespace zarext
