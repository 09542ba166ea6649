// Wrapped keys of the development provider through the real advapi32.
#include "contract/provider_fixture.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

constexpr DWORD kBadKey = 0x80090003;
constexpr DWORD kBadData = 0x80090005;
constexpr DWORD kBadKeyState = 0x8009000B;
constexpr DWORD kNoKey = 0x8009000D;
constexpr DWORD kBadPublicKey = 0x80090015;

struct WrapCase {
  ALG_ID recipient;
  ALG_ID content;
  std::size_t length;
};

class Wrapped : public ProviderTest, public testing::WithParamInterface<WrapCase> {};

TEST_P(Wrapped, OpensInTheRecipientsContainerAlone) {
  const Context alice = NewContainer("alice");
  const Context bob = NewContainer("bob");
  const Context eve = NewContainer("eve");
  const Octets bobsKey = Export(Generate(bob, GetParam().recipient), PUBLICKEYBLOB);
  Generate(eve, GetParam().recipient);
  const Key content = Generate(alice, GetParam().content, CRYPT_EXPORTABLE);
  const Key recipient = Import(alice, bobsKey);
  const Octets blob = Export(content, SIMPLEBLOB, recipient.Get());
  EXPECT_EQ(blob.size(), GetParam().length);
  EXPECT_EQ(blob[0], 1);
  Octets text{'t', 'e', 'x', 't'};
  text.resize(16);
  DWORD length = 4;
  EXPECT_TRUE(CryptEncrypt(content.Get(), 0, TRUE, 0, text.data(), &length, 16));
  const Key opened = Import(bob, blob);
  EXPECT_EQ(KeyNumberParam(opened, KP_ALGID), GetParam().content);
  EXPECT_TRUE(CryptDecrypt(opened.Get(), 0, TRUE, 0, text.data(), &length));
  EXPECT_EQ(std::string(text.begin(), text.begin() + 4), "text");
  EXPECT_EQ(ImportCode(eve, blob), kBadData);
  EXPECT_EQ(ImportCode(alice, blob), kNoKey);
  Octets changed = blob;
  changed[blob.size() - 1] ^= 1;
  EXPECT_EQ(ImportCode(bob, changed), kBadData);
  // A key that came without leave to go on does not.
  length = 0;
  EXPECT_EQ(CodeOf(CryptExportKey(opened.Get(), recipient.Get(), SIMPLEBLOB, 0, nullptr, &length)),
            kBadKeyState);
  EXPECT_EQ(Export(Import(bob, blob, 0, CRYPT_EXPORTABLE), PLAINTEXTKEYBLOB),
            Export(content, PLAINTEXTKEYBLOB));
}

INSTANTIATE_TEST_SUITE_P(
    All, Wrapped,
    testing::Values(WrapCase{0xAA3A, 0x681F, 136}, WrapCase{0xA045, 0x6620, 136},
                    WrapCase{0x2A4A, 0x6611, 120}, WrapCase{0xAA4C, 0x6610, 200},
                    WrapCase{0xA452, 0x681F, 268}, WrapCase{0xA050, 0x6611, 140},
                    WrapCase{0xA045, 0x660E, 120}));

class SenderKeys : public ProviderTest {
 protected:
  SenderKeys() {
    Generate(bob_, 0xAA3A);
    recipient_ = Import(alice_, Export(UserKey(bob_, AT_SIGNATURE), PUBLICKEYBLOB));
    content_ = Generate(alice_, 0x681F, CRYPT_EXPORTABLE);
  }

  void Announce() {
    const DWORD one = 1;
    EXPECT_TRUE(CryptSetProvParam(alice_.Get(), 60, reinterpret_cast<const BYTE*>(&one), 0));
  }

  const Context alice_ = NewContainer("alice");
  const Context bob_ = NewContainer("bob");
  Key recipient_;
  Key content_;
};

TEST_F(SenderKeys, AreNeededToOpenAKeyWrappedWithThem) {
  const Octets sendersBlob = Export(Generate(alice_, AT_KEYEXCHANGE), PUBLICKEYBLOB);
  EXPECT_EQ(sendersBlob.size(), 80U);
  EXPECT_EQ(NumberParam(alice_, 60), 0U);
  Announce();
  EXPECT_EQ(NumberParam(alice_, 60), 1U);
  const Octets blob = Export(content_, SIMPLEBLOB, recipient_.Get());
  EXPECT_EQ(blob.size(), 72U);
  EXPECT_EQ(NumberParam(alice_, 60), 0U);
  const Key sender = Import(bob_, sendersBlob);
  const Key opened = Import(bob_, blob, sender.Get(), CRYPT_EXPORTABLE);
  EXPECT_EQ(Export(opened, PLAINTEXTKEYBLOB), Export(content_, PLAINTEXTKEYBLOB));
  EXPECT_EQ(ImportCode(bob_, blob), kBadPublicKey);
  const Context eve = NewContainer("eve");
  const Key wrong = Import(bob_, Export(Generate(eve, AT_KEYEXCHANGE), PUBLICKEYBLOB));
  EXPECT_EQ(ImportCode(bob_, blob, wrong.Get()), kBadData);
  // The announcement held for one key: the next one opens by itself.
  const Octets next = Export(content_, SIMPLEBLOB, recipient_.Get());
  EXPECT_EQ(next.size(), 136U);
  EXPECT_EQ(ImportCode(bob_, next), 0U);
  EXPECT_EQ(ImportCode(bob_, next, sender.Get()), 0U);
}

TEST_F(SenderKeys, ThatCannotTravelAlongAreNotUsed) {
  Announce();  // there is no exchange key
  EXPECT_EQ(Export(content_, SIMPLEBLOB, recipient_.Get()).size(), 136U);
  Generate(alice_, 0xA04B);  // 1,024-bit
  Announce();
  EXPECT_EQ(Export(content_, SIMPLEBLOB, recipient_.Get()).size(), 136U);
  Generate(alice_, 0xA050);  // RSA
  Announce();
  EXPECT_EQ(Export(content_, SIMPLEBLOB, recipient_.Get()).size(), 136U);
  Generate(alice_, 0xA045);
  Import(NewContainer("b"), FromHex(openssl::kGost2001BKey));  // on another curve
  const Key other = Import(alice_, Export(UserKey(Acquire("b", 0), AT_SIGNATURE), PUBLICKEYBLOB));
  Announce();
  EXPECT_EQ(Export(content_, SIMPLEBLOB, other.Get()).size(), 136U);
}

TEST_F(SenderKeys, StayAnnouncedWhileTheBufferIsTooShort) {
  Generate(alice_, AT_KEYEXCHANGE);
  Announce();
  Octets blob(71);
  DWORD length = 71;
  EXPECT_EQ(
      CodeOf(CryptExportKey(content_.Get(), recipient_.Get(), SIMPLEBLOB, 0, blob.data(), &length)),
      DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 72U);
  EXPECT_EQ(NumberParam(alice_, 60), 1U);
}

TEST_F(SenderKeys, AreForgottenWithAnExportThatFails) {
  Generate(alice_, AT_KEYEXCHANGE);
  const Key locked = Generate(alice_, 0x681F);
  DWORD length = 0;
  // The public half that was to go along, a key that may not leave, one without a recipient, and
  // flags that do not exist.
  const auto failed = [&](HCRYPTKEY key, HCRYPTKEY other, DWORD type, DWORD flags) {
    Announce();
    EXPECT_FALSE(CryptExportKey(key, other, type, flags, nullptr, &length));
    EXPECT_EQ(NumberParam(alice_, 60), 0U);
    EXPECT_EQ(Export(content_, SIMPLEBLOB, recipient_.Get()).size(), 136U);
  };
  failed(UserKey(alice_, AT_KEYEXCHANGE).Get(), 0, PUBLICKEYBLOB, 1);
  failed(locked.Get(), recipient_.Get(), SIMPLEBLOB, 0);
  failed(content_.Get(), 0, SIMPLEBLOB, 0);
  failed(content_.Get(), recipient_.Get(), 7, 0);
  // One that succeeds is not the end of it.
  Announce();
  EXPECT_EQ(Export(UserKey(alice_, AT_KEYEXCHANGE), PUBLICKEYBLOB).size(), 80U);
  EXPECT_EQ(NumberParam(alice_, 60), 1U);
  EXPECT_EQ(Export(content_, SIMPLEBLOB, recipient_.Get()).size(), 72U);
}

// A caller that announced and then gave up leaves nothing for the next one, which imports the
// recipient's key first.
TEST_F(SenderKeys, AreForgottenWithAnImport) {
  Generate(alice_, AT_KEYEXCHANGE);
  Announce();
  const Key other = Import(alice_, Export(UserKey(bob_, AT_SIGNATURE), PUBLICKEYBLOB));
  EXPECT_EQ(NumberParam(alice_, 60), 0U);
  const Octets blob = Export(content_, SIMPLEBLOB, other.Get());
  EXPECT_EQ(blob.size(), 136U);
  EXPECT_EQ(ImportCode(bob_, blob), 0U);
  Announce();
  EXPECT_EQ(ImportCode(alice_, FromHex("06")), kBadData);
  EXPECT_EQ(NumberParam(alice_, 60), 0U);
}

TEST_F(SenderKeys, OfTheReceiverItselfServeBothWays) {
  Generate(alice_, AT_KEYEXCHANGE);
  const Key own = UserKey(alice_, AT_KEYEXCHANGE);
  Announce();
  const Octets blob = Export(content_, SIMPLEBLOB, own.Get());
  EXPECT_EQ(ImportCode(alice_, blob, own.Get()), 0U);
}

TEST_F(SenderKeys, OfAnotherContextCanOpenAKey) {
  // The private key of the blob's recipient, by its handle.
  const Octets blob = Export(content_, SIMPLEBLOB, recipient_.Get());
  const Key bobs = UserKey(bob_, AT_SIGNATURE);
  EXPECT_EQ(ImportCode(alice_, blob), kNoKey);
  EXPECT_EQ(ImportCode(alice_, blob, bobs.Get()), 0U);
}

TEST_F(SenderKeys, AreNoSessionKeys) {
  DWORD length = 0;
  EXPECT_EQ(CodeOf(CryptExportKey(content_.Get(), content_.Get(), SIMPLEBLOB, 0, nullptr, &length)),
            kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(content_.Get(), 0, SIMPLEBLOB, 0, nullptr, &length)), kNoKey);
  EXPECT_EQ(CodeOf(CryptExportKey(content_.Get(), 0, PUBLICKEYBLOB, 0, nullptr, &length)), kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(content_.Get(), 0, 0x30, 0, nullptr, &length)), kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(recipient_.Get(), 0, PLAINTEXTKEYBLOB, 0, nullptr, &length)),
            kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(recipient_.Get(), 0, 0x30, 0, nullptr, &length)), kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(recipient_.Get(), recipient_.Get(), PUBLICKEYBLOB, 0, nullptr,
                                  &length)),
            kBadKey);
  EXPECT_EQ(CodeOf(CryptExportKey(recipient_.Get(), 0, 7, 0, nullptr, &length)), 0x8009000A);
  EXPECT_EQ(CodeOf(CryptExportKey(recipient_.Get(), 0, PUBLICKEYBLOB, 1, nullptr, &length)),
            0x80090009);
}

// A caller that names the context where a key belongs means the session key made last in it.
TEST_F(SenderKeys, AndTheContextInPlaceOfTheKey) {
  const DirectProvider direct;
  HCRYPTPROV context = 0;
  HCRYPTKEY recipient = 0;
  HCRYPTKEY key = 0;
  Must(direct.acquireContext(&context, nullptr, CRYPT_VERIFYCONTEXT, nullptr), "CPAcquireContext");
  const Octets publicBlob = Export(recipient_, PUBLICKEYBLOB);
  Must(direct.importKey(context, publicBlob.data(), static_cast<DWORD>(publicBlob.size()), 0, 0,
                        &recipient),
       "CPImportKey");
  DWORD length = 512;
  Octets blob(512);
  EXPECT_EQ(
      CodeOf(direct.exportKey(context, context, recipient, SIMPLEBLOB, 0, blob.data(), &length)),
      kNoKey);
  Must(direct.genKey(context, 0x6611, CRYPT_EXPORTABLE, &key), "CPGenKey");
  Must(direct.genKey(context, 0x681F, CRYPT_EXPORTABLE, &key), "CPGenKey");
  Octets plain(44);
  DWORD plainLength = 44;
  Must(direct.exportKey(context, key, 0, PLAINTEXTKEYBLOB, 0, plain.data(), &plainLength),
       "CPExportKey");
  EXPECT_TRUE(direct.exportKey(context, context, recipient, SIMPLEBLOB, 0, blob.data(), &length));
  blob.resize(length);
  EXPECT_EQ(Export(Import(bob_, blob, 0, CRYPT_EXPORTABLE), PLAINTEXTKEYBLOB), plain);
  // A destroyed key is gone, and the one before it does not take its place.
  Must(direct.destroyKey(context, key), "CPDestroyKey");
  blob.resize(512);
  length = 512;
  EXPECT_EQ(
      CodeOf(direct.exportKey(context, context, recipient, SIMPLEBLOB, 0, blob.data(), &length)),
      kNoKey);
  // Another context is no key.
  HCRYPTPROV other = 0;
  Must(direct.acquireContext(&other, nullptr, CRYPT_VERIFYCONTEXT, nullptr), "CPAcquireContext");
  EXPECT_EQ(
      CodeOf(direct.exportKey(context, other, recipient, SIMPLEBLOB, 0, blob.data(), &length)),
      kBadKey);
  direct.releaseContext(other, 0);
  direct.releaseContext(context, 0);
}

}  // namespace
}  // namespace zarext::test
