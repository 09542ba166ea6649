#include <algorithm>

#include "e2e/envelope_fixture.h"
#include "support/certificates.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kAes[] = "2.16.840.1.101.3.4.1.2";
constexpr char kBlockCipher[] = "1.3.6.1.4.1.32473.1.2.4";
constexpr char kRsaExchangeOid[] = "1.3.6.1.4.1.32473.1.8.22";

TEST_F(EnvelopeTest, ReachesTheRecipient) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  EXPECT_FALSE(MessageHolds(content));
  EXPECT_TRUE(MessageHolds(sender.PublicBlob()));
  const Message received(message);
  ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
  EXPECT_EQ(content, received.Content());
}

TEST_F(EnvelopeTest, TracesBothSides) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  TraceCapture trace;
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  const auto sent = trace.Messages();
  const std::string exporting = "EXT : ZarMsgExportKeyTrans : ";
  ASSERT_EQ(15u, sent.size());
  EXPECT_EQ(exporting + "ContentEncryptionAlgorithm = 2.16.840.1.101.3.4.1.2.", sent[0]);
  EXPECT_EQ(exporting + "rgCmsRecipients.dwRecipientChoice = 1.", sent[3]);
  EXPECT_EQ(exporting + "pKeyTransEncodeInfo->KeyEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.8.8.",
            sent[7]);
  EXPECT_THAT(sent[10], HasSubstr("pKeyTransEncodeInfo->RecipientPublicKeySize = 80 ("));
  EXPECT_EQ(exporting + "pKeyTransEncryptInfo->EncryptedKeySize=0.", sent[13]);
  // 32 octets of head, 24 of the wrapped key, 80 of the sender's key.
  EXPECT_EQ(exporting + "EncryptedKeySize=136.", sent[14]);

  const Message received(message);
  trace.Clear();
  ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
  const auto read = trace.Messages();
  const std::string importing = "EXT : ZarMsgImportKeyTrans : ";
  ASSERT_EQ(7u, read.size());
  EXPECT_EQ(importing + "ContentEncryptionAlgorithm = 2.16.840.1.101.3.4.1.2.", read[0]);
  EXPECT_EQ(importing + "dwKeySpec = 1, dwRecipientIndex=0.", read[2]);
  EXPECT_EQ(importing + "KeyEncryptionAlgorithm = 1.3.6.1.4.1.32473.1.8.8.", read[3]);
  EXPECT_EQ(importing + "RecipientId.dwIdChoice = 1, dwVersion=0.", read[4]);
  EXPECT_EQ(importing + "pKeyTrans->EncryptedKeySize = 136.", read[5]);
  EXPECT_EQ(importing + "CryptImportKey - OK.", read[6]);
}

TEST_F(EnvelopeTest, CarriesContentOfAnyLength) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  for (const std::size_t size : {1u, 15u, 16u, 17u, 1000u, 70000u}) {
    SCOPED_TRACE(size);
    content.assign(size, 0x5A);
    ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
    const Message received(message);
    ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
    EXPECT_EQ(content, received.Content());
  }
}

// A failed attempt keeps its code, and leaves the key record shortened: on the same message the
// right recipient comes too late.
TEST_F(EnvelopeTest, AnotherContainerCannotReadIt) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const Party stranger("stranger");
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  const Message received(message);
  {
    TraceCapture trace;
    EXPECT_FALSE(received.Decrypt(stranger.Provider()));
    EXPECT_EQ(0x80090005u, GetLastError());
    EXPECT_EQ("EXT : ZarMsgImportKeyTrans : CryptImportKey = 80090005.", trace.Messages().back());
  }
  TraceCapture trace;
  EXPECT_FALSE(received.Decrypt(recipient.Provider()));
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarMsgImportKeyTrans : pKeyTrans->EncryptedKeySize = 56."));
  const Message again(message);
  EXPECT_TRUE(again.Decrypt(recipient.Provider()));
}

TEST_F(EnvelopeTest, AChangedSenderKeyIsNotOpened) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const Party other("other");
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  const Octets own = sender.PublicBlob();
  const Octets changed = other.PublicBlob();
  const auto place = std::search(message.begin(), message.end(), own.begin(), own.end());
  ASSERT_NE(message.end(), place);
  std::copy(changed.begin(), changed.end(), place);
  const Message received(message);
  EXPECT_FALSE(received.Decrypt(recipient.Provider()));
  EXPECT_EQ(0x80090005u, GetLastError());
}

// A sender without an exchange key: the wrapped key goes alone. The receiver still takes its last
// 80 octets for a sender key, finds that they are none, and uses the whole.
TEST_F(EnvelopeTest, ASenderWithoutAnExchangeKeyIsEnough) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const Context keyless = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  TraceCapture trace;
  ASSERT_TRUE(Encrypt(kAes, keyless.Get(), {certificate.Get()})) << GetLastError();
  EXPECT_THAT(trace.Messages(),
              Contains("EXT : ZarMsgExportKeyTrans : CryptGetUserKey = 8009000d."));
  // 32 octets of head, 64 of the sender's one-time key, 24 of the wrapped key.
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : EncryptedKeySize=120.", trace.Messages().back());
  const Message received(message);
  trace.Clear();
  ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
  EXPECT_THAT(trace.Messages(),
              Contains(HasSubstr("EXT : ZarMsgImportKeyTrans : CryptImportKey 1 = ")));
  EXPECT_EQ(content, received.Content());
}

TEST_F(EnvelopeTest, EveryRecipientGetsAKey) {
  const Party second("second");
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const auto secondCertificate = issuer.Certify(second, kExchangeOid);
  TraceCapture trace;
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get(), secondCertificate.Get()}))
      << GetLastError();
  const auto messages = trace.Messages();
  EXPECT_EQ(30u, messages.size());
  EXPECT_THAT(messages, Contains("EXT : ZarMsgExportKeyTrans : pKeyTransEncryptInfo->dwFlags = 0, "
                                 "dwRecipientIndex=1."));
  const Message received(message);
  ASSERT_TRUE(received.Decrypt(recipient.Provider())) << GetLastError();
  EXPECT_EQ(content, received.Content());
}

// Wine hands out the record that comes first, whichever is asked for.
TEST_F(EnvelopeTest, AMebibyteIsReadByEitherRecipient) {
  const Party second("second");
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  const auto secondCertificate = issuer.Certify(second, kExchangeOid);
  content.resize(1048576);
  for (std::size_t i = 0; i < content.size(); ++i) {
    content[i] = static_cast<std::uint8_t>(i * 2654435761U >> 24);
  }
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get(), secondCertificate.Get()}))
      << GetLastError();
  const Message first(message);
  ASSERT_TRUE(first.Decrypt(recipient.Provider())) << GetLastError();
  EXPECT_TRUE(content == first.Content());
  const Message other(SecondRecipientFirst(message));
  ASSERT_TRUE(other.Decrypt(second.Provider())) << GetLastError();
  EXPECT_TRUE(content == other.Content());
  // Not the other way round.
  EXPECT_FALSE(Message(message).Decrypt(second.Provider()));
  EXPECT_EQ(0x80090005u, GetLastError());
  EXPECT_FALSE(Message(SecondRecipientFirst(message)).Decrypt(recipient.Provider()));
}

// Opens what is left of the message: 0 if it can be read whole, else the code of the step that
// refuses it.
DWORD OpenCode(const Octets& octets, HCRYPTPROV provider) {
  try {
    const Message received(octets);
    Must(received.Decrypt(provider), "CryptMsgControl");
    return received.Content().empty() ? kNoCode : 0;
  } catch (const CallFailed& failed) {
    return failed.Code();
  }
}

// The framework refuses the form before the module hears of it.
TEST_F(EnvelopeTest, ATruncatedMessageIsNotOpened) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  EXPECT_EQ(0u, OpenCode(message, recipient.Provider()));
  TraceCapture trace;
  for (std::size_t size = 0; size < message.size(); size += 7) {
    SCOPED_TRACE(size);
    EXPECT_NE(0u, OpenCode({message.begin(), message.begin() + static_cast<long long>(size)},
                           recipient.Provider()));
  }
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

// The element that begins at `begin`, with the one at `target` in it replaced.
Octets WithElement(const Octets& octets, std::size_t begin, std::size_t target,
                   const Octets& replacement) {
  const DerElement element = ReadElement(octets, begin);
  if (begin == target) return replacement;
  if (target < begin || target >= element.end) {
    return {octets.begin() + static_cast<long long>(begin),
            octets.begin() + static_cast<long long>(element.end)};
  }
  Octets content;
  for (std::size_t child = element.content; child < element.end;
       child = ReadElement(octets, child).end) {
    const Octets rebuilt = WithElement(octets, child, target, replacement);
    content.insert(content.end(), rebuilt.begin(), rebuilt.end());
  }
  return MakeElement(octets[begin], content);
}

// A message in good form whose wrapped key has lost its end.
TEST_F(EnvelopeTest, ATruncatedKeyIsNotImported) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  ASSERT_TRUE(Encrypt(kAes, sender.Provider(), {certificate.Get()})) << GetLastError();
  // OCTET STRING of 136 octets.
  const Octets head = {0x04, 0x81, 0x88};
  const auto key = std::search(message.begin(), message.end(), head.begin(), head.end());
  ASSERT_NE(message.end(), key);
  const auto target = static_cast<std::size_t>(key - message.begin());
  for (const int size : {1, 11, 12, 55, 56, 79, 80, 81, 135}) {
    SCOPED_TRACE(size);
    const Octets cut =
        WithElement(message, 0, target, MakeElement(0x04, {key + 3, key + 3 + size}));
    TraceCapture trace;
    EXPECT_NE(0u, OpenCode(cut, recipient.Provider()));
    EXPECT_THAT(trace.Messages(),
                Contains("EXT : ZarMsgImportKeyTrans : pKeyTrans->EncryptedKeySize = " +
                         std::to_string(size) + "."));
    EXPECT_THAT(trace.Messages().back(),
                StartsWith("EXT : ZarMsgImportKeyTrans : CryptImportKey = "));
  }
  // The walk through the elements changes nothing else.
  EXPECT_EQ(message, WithElement(message, 0, target, MakeElement(0x04, {key + 3, key + 3 + 136})));
}

// The certificate's key is not one that the module is bound to, and the framework's own function
// takes it for RSA.
TEST_F(EnvelopeTest, ARecipientWithAForeignKeyIsRefused) {
  const auto certificate = issuer.Certify(recipient, "1.2.643.7.1.1.1.1");
  TraceCapture trace;
  const DWORD code = CodeOf(Encrypt(kAes, sender.Provider(), {certificate.Get()}));
  EXPECT_THAT(trace.Messages(), IsEmpty());
  EXPECT_NE(0u, code);
}

// Blobs of RSA keys are not 80 octets long, so that no sender blob goes along.
TEST_F(EnvelopeTest, WrapsForAnRsaKeyOfTheCompanionProvider) {
  const Party rsaSender("rsa-sender", 0xA052, 1);
  const Party rsaRecipient("rsa-recipient", 0xA052, 1);
  const auto certificate = issuer.Certify(rsaRecipient, kRsaExchangeOid);
  TraceCapture trace;
  ASSERT_TRUE(Encrypt(kAes, rsaSender.Provider(), {certificate.Get()})) << GetLastError();
  // 12 octets of head, 256 of the encrypted key.
  EXPECT_EQ("EXT : ZarMsgExportKeyTrans : EncryptedKeySize=268.", trace.Messages().back());
  const Message received(message);
  ASSERT_TRUE(received.Decrypt(rsaRecipient.Provider())) << GetLastError();
  EXPECT_EQ(content, received.Content());
}

// Without a provider of the caller's the framework puts its own default into the record, so that
// the module acquires none; that provider does not know the algorithm.
TEST_F(EnvelopeTest, TheDefaultProviderOfTheFrameworkIsUsedAsGiven) {
  const auto certificate = issuer.Certify(recipient, kExchangeOid);
  TraceCapture trace;
  EXPECT_FALSE(Encrypt(kBlockCipher, 0, {certificate.Get()}));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("EXT : ZarMsgGenContentEncryptKey : CryptGenKey = 80090008.", trace.Messages().back());
}

}  // namespace
}  // namespace zarext::test
