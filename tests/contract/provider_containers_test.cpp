// What a container of the development provider keeps: the list of its keys, certificates, chains,
// profiles; tokens.
#include <gmock/gmock.h>

#include <algorithm>

#include "contract/provider_containers_fixture.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

TEST_F(Containers, ListTheirKeysWithCertificates) {
  {
    const Context context = NewContainer("box");
    Import(context, certificateKey_);
    Generate(context, 0xA045);
  }
  const Opened box(direct_, "profile://box");
  DWORD end = 0;
  std::vector<KeyInfo> keys = box.Keys(&end);
  EXPECT_EQ(end, DWORD{ERROR_NO_MORE_ITEMS});
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[0].algId, 0xA045U);
  EXPECT_EQ(keys[1].algId, 0xAA3AU);
  EXPECT_NE(keys[0].hKey, 0U);
  EXPECT_NE(keys[1].hKey, 0U);
  EXPECT_EQ(keys[1].cbCert, 0U);
  EXPECT_EQ(keys[1].cbSerial, 0U);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, certificate_), 0U);

  keys = box.Keys();
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(Octets(keys[1].pbCert, keys[1].pbCert + keys[1].cbCert), certificate_);
  EXPECT_EQ(Octets(keys[1].pbSerial, keys[1].pbSerial + keys[1].cbSerial), FromHex("0A1B2C3D"));
  EXPECT_EQ(keys[0].cbCert, 0U);
  DWORD code = 0;
  EXPECT_EQ(box.KeyParam(keys[1].hKey, 26, &code), certificate_);
  EXPECT_EQ(box.KeyParam(keys[0].hKey, 26, &code), Octets{});
  EXPECT_EQ(code, kNotFound);
}

TEST_F(Containers, KeepTheListedHandlesAndBlocksUntilTheyClose) {
  {
    const Context context = NewContainer("box");
    Import(context, certificateKey_);
  }
  const Opened box(direct_, "profile://box");
  const KeyInfo first = box.Keys().at(0);
  EXPECT_EQ(box.SetKeyParam(first.hKey, 26, certificate_), 0U);
  const KeyInfo second = box.Keys().at(0);
  const KeyInfo third = box.Keys().at(0);
  EXPECT_EQ(first.hKey, third.hKey);
  EXPECT_EQ(second.pbCert, third.pbCert);
  EXPECT_EQ(Octets(second.pbCert, second.pbCert + second.cbCert), certificate_);
}

TEST_F(Containers, ListPlainExchangeRsaUnderTheProvidersOwnName) {
  Generate(NewContainer("box", 1), CALG_RSA_KEYX, 1024U << 16);
  const Opened box(direct_, "box");
  EXPECT_EQ(box.Keys().at(0).algId, 0xA050U);
  Generate(Acquire("box", 0, 1), CALG_RSA_SIGN, 1024U << 16);
  const Opened again(direct_, "box");
  EXPECT_EQ(again.Keys().at(1).algId, 0x2400U);
}

TEST_F(Containers, AreEmptyWithoutKeys) {
  NewContainer("box");
  const Opened box(direct_, "box");
  DWORD end = 0;
  EXPECT_TRUE(box.Keys(&end).empty());
  EXPECT_EQ(end, DWORD{ERROR_NO_MORE_ITEMS});
}

TEST_F(Containers, TakeOnlyTheCertificateOfTheKey) {
  {
    const Context context = NewContainer("box");
    Import(context, certificateKey_);
    Generate(context, 0xA045);
  }
  const Opened box(direct_, "box");
  const std::vector<KeyInfo> keys = box.Keys();
  EXPECT_EQ(box.SetKeyParam(keys[0].hKey, 26, certificate_), kBadPublicKey);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, otherCertificate_), kBadPublicKey);
  Octets broken = certificate_;
  broken[5] ^= 1;
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, broken), kBadData);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, FromHex("3000")), kBadData);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, FromHex("31820123")), kBadData);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, FromHex("3083FFFFFF")), kBadData);
  EXPECT_EQ(box.SetKeyParam(keys[1].hKey, 26, certificate_), 0U);
  HCRYPTKEY session = 0;
  ASSERT_TRUE(direct_.genKey(box.handle, 0x681F, 0, &session));
  EXPECT_EQ(box.SetKeyParam(session, 26, certificate_), kBadKey);
}

TEST_F(Containers, TakeAnRsaCertificate) {
  Import(NewContainer("box", 1), FromHex(openssl::kRsaKey));
  const Opened box(direct_, "box");
  EXPECT_EQ(box.SetKeyParam(box.Keys().at(0).hKey, 26, otherCertificate_), 0U);
  const Context context = Acquire("box", 0, 1);
  const Octets stored = Fetch("CryptGetKeyParam",
                              [&, key = UserKey(context, AT_SIGNATURE)](BYTE* data, DWORD* length) {
                                return CryptGetKeyParam(key.Get(), KP_CERTIFICATE, data, length, 0);
                              });
  EXPECT_EQ(stored, otherCertificate_);
}

TEST_F(Containers, KeepAChainThatTheFrameworkReads) {
  Import(NewContainer("box"), certificateKey_);
  const Opened box(direct_, "box");
  const HCRYPTKEY key = box.Keys().at(0).hKey;
  DWORD code = 0;
  EXPECT_EQ(box.KeyParam(key, 69, &code), Octets{});
  EXPECT_EQ(code, kNotFound);
  EXPECT_EQ(box.SetKeyParam(key, 68, certificate_), 0U);
  EXPECT_EQ(box.SetKeyParam(key, 68, otherCertificate_), 0U);
  EXPECT_EQ(box.SetKeyParam(key, 68, certificate_), 0U);  // is there already
  EXPECT_EQ(box.SetKeyParam(key, 68, FromHex("3000")), kBadData);
  const Octets chain = box.KeyParam(key, 69, &code);
  EXPECT_EQ(code, 0U);
  const HCERTSTORE store =
      CryptGetMessageCertificates(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, chain.data(),
                                  static_cast<DWORD>(chain.size()));
  ASSERT_NE(store, nullptr);
  std::vector<Octets> found;
  for (PCCERT_CONTEXT context = nullptr;
       (context = CertEnumCertificatesInStore(store, context)) != nullptr;) {
    found.emplace_back(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
  }
  CertCloseStore(store, 0);
  EXPECT_THAT(found, testing::UnorderedElementsAre(certificate_, otherCertificate_));
}

TEST_F(Containers, ForgetCertificateAndChainWithTheirKey) {
  const Context context = NewContainer("box");
  Import(context, certificateKey_);
  const Opened box(direct_, "box");
  const HCRYPTKEY old = box.Keys().at(0).hKey;
  EXPECT_EQ(box.SetKeyParam(old, 26, certificate_), 0U);
  EXPECT_EQ(box.SetKeyParam(old, 68, certificate_), 0U);
  Generate(context, AT_SIGNATURE);
  const KeyInfo fresh = box.Keys().at(0);
  EXPECT_EQ(fresh.cbCert, 0U);
  EXPECT_NE(fresh.hKey, old);
  EXPECT_EQ(box.SetKeyParam(old, 26, certificate_), kBadKey);
  DWORD code = 0;
  box.KeyParam(old, 69, &code);
  EXPECT_EQ(code, kBadKey);
}

TEST_F(Containers, DoNotLetAnImportReplaceAKey) {
  const Context context = NewContainer("box");
  const Key key = Import(context, certificateKey_, 0, CRYPT_EXPORTABLE);
  EXPECT_EQ(ImportCode(context, certificateKey_), 0x8009000F);
  EXPECT_EQ(ImportCode(context, FromHex(openssl::kGost2001BKey)), 0x80090023);
  EXPECT_EQ(Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB), Export(key, PUBLICKEYBLOB));
}

TEST_F(Containers, KeepWhetherAKeyMayLeave) {
  {
    const Context context = NewContainer("box");
    Import(context, certificateKey_);
    Generate(context, 0xA045, CRYPT_EXPORTABLE);
  }
  const Context context = Acquire("box", 0);
  const Key locked = UserKey(context, AT_SIGNATURE);
  DWORD length = 0;
  EXPECT_EQ(CodeOf(CryptExportKey(locked.Get(), 0, 0x30, 0, nullptr, &length)), 0x8009000B);
  EXPECT_FALSE(Export(UserKey(context, AT_KEYEXCHANGE), 0x30).empty());
  EXPECT_EQ(KeyNumberParam(locked, KP_PERMISSIONS) & CRYPT_EXPORT, 0U);
}

TEST_F(Containers, HaveAProfile) {
  NewContainer("box");
  ProfileRecord record;
  EXPECT_EQ(ProfileCode("profile://box", &record), 0U);
  EXPECT_STREQ(record.Kind(), "file");
  EXPECT_STREQ(record.Second(), "");
  EXPECT_STREQ(record.Third(), "");
  EXPECT_STREQ(record.Url(), "profile://box");
  record = {};
  strcpy(record.Kind(), "mytoken");
  strcpy(record.Second(), "reader 1");
  strcpy(record.Third(), "label");
  const Context context = Acquire("box", 0);
  EXPECT_TRUE(CryptSetProvParam(context.Get(), 64, reinterpret_cast<BYTE*>(&record), 0));
  EXPECT_EQ(ProfileCode("profile://box", &record), 0U);
  EXPECT_STREQ(record.Kind(), "mytoken");
  EXPECT_EQ(TextParam(context, 0x2E), "profile://box/?kind=mytoken");
  EXPECT_STREQ(record.Second(), "reader 1");
  EXPECT_STREQ(record.Third(), "label");
  EXPECT_EQ(ProfileCode("profile://none", &record), kBadKeyset);
  strcpy(record.Kind(), "no word");
  EXPECT_EQ(CodeOf(CryptSetProvParam(context.Get(), 64, reinterpret_cast<BYTE*>(&record), 0)),
            0x8009001F);
}

TEST_F(Containers, GiveTheirProfileOnlyToTheWholeRecord) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  ProfileRecord record = {};
  DWORD length = 1455;
  EXPECT_EQ(
      CodeOf(CryptGetProvParam(context.Get(), 64, reinterpret_cast<BYTE*>(&record), &length, 0)),
      DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 1456U);
  memset(record.Url(), 'x', 512);  // an address without end
  EXPECT_EQ(
      CodeOf(CryptGetProvParam(context.Get(), 64, reinterpret_cast<BYTE*>(&record), &length, 0)),
      0x8009001F);
}

TEST_F(Containers, OnATokenAreSlow) {
  Import(NewContainer("profile://card/?kind=idcard"), certificateKey_);
  Import(NewContainer("box"), certificateKey_);
  SetEnvironmentVariableA("ZARVEL_DEV_TOKEN_DELAY_MS", "100");
  const auto took = [](const char* name) {
    const ULONGLONG start = GetTickCount64();
    UserKey(Acquire(name, 0), AT_SIGNATURE);
    return GetTickCount64() - start;
  };
  const ULONGLONG card = took("card");
  SetEnvironmentVariableA("ZARVEL_DEV_TOKEN_DELAY_MS", nullptr);
  EXPECT_GE(card, 200U);  // one access for the profile, one for the key
}

TEST_F(Containers, OnATokenThatAsksDoNotOpenSilently) {
  NewContainer("profile://card/?kind=idcard");
  NewContainer("box");
  const auto opened = [](const char* name, DWORD flags) {
    HCRYPTPROV context = 0;
    const DWORD code = CodeOf(CryptAcquireContextA(&context, name, "Zarvel CSP", 25, flags));
    CryptReleaseContext(context, 0);
    return code;
  };
  SetEnvironmentVariableA("ZARVEL_DEV_TOKEN_ASKS", "1");
  EXPECT_EQ(opened("card", CRYPT_SILENT), 0x80090022);
  EXPECT_EQ(opened("card", 0), 0U);
  EXPECT_EQ(opened("box", CRYPT_SILENT), 0U);
  SetEnvironmentVariableA("ZARVEL_DEV_TOKEN_ASKS", nullptr);
  EXPECT_EQ(opened("card", CRYPT_SILENT), 0U);
}

TEST_F(Containers, LeaveNoFilesBesideTheirOwn) {
  {
    const Context context = NewContainer("box");
    Generate(context, AT_SIGNATURE);
    Generate(context, AT_SIGNATURE);
  }
  HCRYPTPROV none = 0;
  NewContainer("gone");
  EXPECT_TRUE(CryptAcquireContextA(&none, "gone", "Zarvel CSP", 25, CRYPT_DELETEKEYSET));
  std::vector<std::string> names;
  for (const char* pattern : {"\\*", "\\c-box\\*"}) {
    WIN32_FIND_DATAA entry;
    const HANDLE find = FindFirstFileA((home_.Path() + pattern).c_str(), &entry);
    do {
      if (entry.cFileName[0] != '.') names.emplace_back(entry.cFileName);
    } while (FindNextFileA(find, &entry));
    FindClose(find);
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"c-box", "profile", "signature.key"}));
}

TEST_F(Containers, ThatVanishWhileOpenAreReported) {
  const Context context = NewContainer("box");
  HCRYPTPROV none = 0;
  EXPECT_TRUE(CryptAcquireContextA(&none, "box", "Zarvel CSP", 25, CRYPT_DELETEKEYSET));
  Key key;
  EXPECT_EQ(CodeOf(CryptGetUserKey(context.Get(), AT_SIGNATURE, key.Out())), kBadKeyset);
  EXPECT_EQ(CodeOf(CryptGenKey(context.Get(), AT_SIGNATURE, 0, key.Out())), kBadKeyset);
}

}  // namespace
}  // namespace zarext::test
