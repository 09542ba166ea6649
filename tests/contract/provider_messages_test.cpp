// Hashes, signatures and ciphers of the development provider through the real advapi32 and, where
// Wine has it, crypt32.
#include "contract/provider_fixture.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

constexpr DWORD kBadHash = 0x80090002;
constexpr DWORD kBadKey = 0x80090003;
constexpr DWORD kBadLen = 0x80090004;
constexpr DWORD kBadHashState = 0x8009000C;
constexpr DWORD kNoKey = 0x8009000D;

const Octets kAbc{'a', 'b', 'c'};

// Hashes ---------------------------------------------------------------------------------------

using Hashing = ProviderTest;

TEST_F(Hashing, GivesTheKnownValues) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  struct Case {
    ALG_ID algorithm;
    const char* value;
  };
  for (const Case& row :
       {Case{0x8015, "B285056DBF18D7392D7677369524DD14747459ED8143997E163B2986F92FD42C"},
        Case{0x8022, "4e2919cf137ed41ec4fb6270c61826cc4fffb660341e0af3688cd0626d23b481"},
        Case{0x8023,
             "28156e28317da7c98f4fe2bed6b542d0dab85bb224445fcedaf75d46e26d7eb8"
             "d5997f3e0915dd6b7f0aab08d9c8beb0d8c64bae2ab8b3c8c6bc53b3bf0db728"},
        Case{CALG_SHA1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
        Case{CALG_SHA_256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}}) {
    const HashHandle hash = StartHash(context, row.algorithm, kAbc);
    const Octets value = FromHex(row.value);
    EXPECT_EQ(HashValue(hash), value) << std::hex << row.algorithm;
    DWORD number = 0;
    DWORD length = sizeof(number);
    EXPECT_TRUE(
        CryptGetHashParam(hash.Get(), HP_ALGID, reinterpret_cast<BYTE*>(&number), &length, 0));
    EXPECT_EQ(number, row.algorithm);
    EXPECT_TRUE(
        CryptGetHashParam(hash.Get(), HP_HASHSIZE, reinterpret_cast<BYTE*>(&number), &length, 0));
    EXPECT_EQ(number, value.size());
  }
  // RFC 5831, 7.3.1.
  const std::string text = "This is message, length=32 bytes";
  EXPECT_EQ(HashValue(StartHash(context, 0x801D, Octets(text.begin(), text.end()))),
            FromHex("b1c466d37519b82e8319819ff32595e047a28cb6f83eff1c6916a815a637fffa"));
}

TEST_F(Hashing, GoesOnAfterALengthQueryAndEndsWithTheValue) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const HashHandle hash = StartHash(context, CALG_SHA_256, {'a'});
  DWORD length = 0;
  EXPECT_TRUE(CryptGetHashParam(hash.Get(), HP_HASHVAL, nullptr, &length, 0));
  EXPECT_EQ(length, 32U);
  BYTE tooShort[31];
  length = sizeof(tooShort);
  EXPECT_EQ(CodeOf(CryptGetHashParam(hash.Get(), HP_HASHVAL, tooShort, &length, 0)),
            DWORD{ERROR_MORE_DATA});
  HashHandle copy;
  EXPECT_TRUE(CryptDuplicateHash(hash.Get(), nullptr, 0, copy.Out()));
  const Octets rest{'b', 'c'};
  EXPECT_TRUE(CryptHashData(hash.Get(), rest.data(), 2, 0));
  const Octets value = HashValue(hash);
  EXPECT_EQ(value, FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
  EXPECT_EQ(CodeOf(CryptHashData(hash.Get(), rest.data(), 2, 0)), kBadHashState);
  EXPECT_EQ(HashValue(hash), value);
  EXPECT_TRUE(CryptHashData(copy.Get(), rest.data(), 2, 0));
  EXPECT_EQ(HashValue(copy), value);
}

TEST_F(Hashing, TakesAValueAndAKey) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  HashHandle hash;
  Must(CryptCreateHash(context.Get(), 0x8022, 0, 0, hash.Out()), "CryptCreateHash");
  const Octets value(32, 7);
  EXPECT_TRUE(CryptSetHashParam(hash.Get(), HP_HASHVAL, value.data(), 0));
  EXPECT_EQ(HashValue(hash), value);
  const Key key =
      Import(context, FromHex("080200001166000010000000000102030405060708090a0b0c0d0e0f"));
  const HashHandle ofKey = StartHash(context, CALG_SHA_256, {});
  EXPECT_TRUE(CryptHashSessionKey(ofKey.Get(), key.Get(), 0));
  // openssl dgst -sha256 of the octets 00 to 0f
  EXPECT_EQ(HashValue(ofKey),
            FromHex("be45cb2605bf36bebde684841a28f0fd43c69850a3dce5fedba69928ee3a8991"));
  Key derived;
  EXPECT_TRUE(CryptDeriveKey(context.Get(), 0x6611, ofKey.Get(), CRYPT_EXPORTABLE, derived.Out()));
  EXPECT_EQ(Export(derived, PLAINTEXTKEYBLOB),
            FromHex("080200001166000010000000be45cb2605bf36bebde684841a28f0fd"));
  const HashHandle tooShort = StartHash(context, CALG_SHA1, {});
  EXPECT_EQ(CodeOf(CryptDeriveKey(context.Get(), 0x681F, tooShort.Get(), 0, derived.Out())),
            kBadHash);
  HashHandle keyed;
  EXPECT_EQ(CodeOf(CryptCreateHash(context.Get(), CALG_HMAC, key.Get(), 0, keyed.Out())),
            0x80090008);
  EXPECT_EQ(CodeOf(CryptCreateHash(context.Get(), 0x8022, key.Get(), 0, keyed.Out())), kBadKey);
}

// Signatures -----------------------------------------------------------------------------------

using Signing = ProviderTest;

TEST_F(Signing, WantsAHashThatFitsTheKey) {
  const Context context = NewContainer("box");
  Generate(context, 0xAA3A);
  DWORD length = 64;
  BYTE signature[64];
  const auto code = [&](ALG_ID algorithm) {
    const HashHandle hash = StartHash(context, algorithm, kAbc);
    return CodeOf(CryptSignHashA(hash.Get(), AT_SIGNATURE, nullptr, 0, signature, &length));
  };
  EXPECT_EQ(code(0x8015), 0U);
  EXPECT_EQ(code(0x801D), 0U);
  EXPECT_EQ(code(0x8022), 0U);
  EXPECT_EQ(code(0x8023), kBadHash);
  EXPECT_EQ(code(CALG_SHA_256), kBadHash);
  const HashHandle hash = StartHash(context, 0x8022, kAbc);
  EXPECT_EQ(CodeOf(CryptSignHashA(hash.Get(), AT_KEYEXCHANGE, nullptr, 0, signature, &length)),
            kNoKey);
  EXPECT_EQ(CodeOf(CryptSignHashA(hash.Get(), 3, nullptr, 0, signature, &length)), kBadKey);
  length = 63;
  EXPECT_EQ(CodeOf(CryptSignHashA(hash.Get(), AT_SIGNATURE, nullptr, 0, signature, &length)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 64U);
}

// A certificate of OpenSSL: its signed part, public key and signature, taken at their offsets.
struct OpenSslCertificate {
  const char* hex;
  std::size_t bodyLength;  // from octet 4
  std::size_t keyAt;
  std::size_t keyLength;
  ALG_ID hash;
  const char* blobHead;
};

class OpenSslCertificates : public ProviderTest,
                            public testing::WithParamInterface<OpenSslCertificate> {};

TEST_P(OpenSslCertificates, Verify) {
  const OpenSslCertificate& row = GetParam();
  const Octets der = FromHex(row.hex);
  const auto part = [&](std::size_t at, std::size_t length) {
    return Octets(der.begin() + static_cast<std::ptrdiff_t>(at),
                  der.begin() + static_cast<std::ptrdiff_t>(at + length));
  };
  Octets body = part(4, row.bodyLength);
  Octets blob = FromHex(row.blobHead);
  const Octets key = part(row.keyAt, row.keyLength);
  blob.insert(blob.end(), key.begin(), key.end());
  // The framework turns the octets of a certificate's signature round for its providers.
  const Octets signature(der.rbegin(), der.rbegin() + static_cast<std::ptrdiff_t>(row.keyLength));
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key publicKey = Import(context, blob);
  EXPECT_EQ(VerifyCode(context, publicKey.Get(), row.hash, body, signature), 0U);
  body[20] ^= 1;
  EXPECT_EQ(VerifyCode(context, publicKey.Get(), row.hash, body, signature), 0x80090006);
}

constexpr char kShortHead[] = "060200003AAA00000045433100020000";
constexpr char kLongHead[] = "060200004CAA00000045433100040000";

INSTANTIATE_TEST_SUITE_P(
    Gost, OpenSslCertificates,
    testing::Values(
        OpenSslCertificate{openssl::kGost2001ACertificate, 293, 148, 64, 0x8015, kShortHead},
        OpenSslCertificate{openssl::kGost2001BCertificate, 293, 148, 64, 0x8015, kShortHead},
        OpenSslCertificate{openssl::kGost2001CCertificate, 293, 148, 64, 0x8015, kShortHead},
        OpenSslCertificate{openssl::kGost2012TcACertificate, 302, 157, 64, 0x8022, kShortHead},
        OpenSslCertificate{openssl::kGost2012LongCertificate, 375, 166, 128, 0x8023, kLongHead},
        OpenSslCertificate{openssl::kGost2012LongBCertificate, 375, 166, 128, 0x8023, kLongHead}));

// The platform's own provider and this one agree on a certificate that crypt32 has this one sign:
// so the order of a signature's octets is the one that crypt32 expects.
TEST_F(Signing, MakesCertificatesThatThePlatformVerifies) {
  const Context context = NewContainer("box", 1);
  Generate(context, CALG_RSA_SIGN, 1024U << 16);
  CERT_INFO info = {};
  BYTE serial = 5;
  BYTE name[] = {0x30, 0};
  info.SerialNumber = {1, &serial};
  info.SignatureAlgorithm.pszObjId = const_cast<LPSTR>(szOID_RSA_SHA256RSA);
  info.Issuer = {sizeof(name), name};
  info.Subject = {sizeof(name), name};
  Octets keyInfo = Fetch("CryptExportPublicKeyInfo", [&](BYTE* data, DWORD* length) {
    return CryptExportPublicKeyInfo(context.Get(), AT_SIGNATURE, X509_ASN_ENCODING,
                                    reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(data), length);
  });
  info.SubjectPublicKeyInfo = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(keyInfo.data());
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
  algorithm.pszObjId = const_cast<LPSTR>(szOID_RSA_SHA256RSA);
  const Octets certificate = Fetch("CryptSignAndEncodeCertificate", [&](BYTE* data, DWORD* length) {
    return CryptSignAndEncodeCertificate(context.Get(), AT_SIGNATURE, X509_ASN_ENCODING,
                                         X509_CERT_TO_BE_SIGNED, &info, &algorithm, nullptr, data,
                                         length);
  });
  const PCCERT_CONTEXT decoded = CertCreateCertificateContext(
      X509_ASN_ENCODING, certificate.data(), static_cast<DWORD>(certificate.size()));
  ASSERT_NE(decoded, nullptr);
  Context platform;
  Must(CryptAcquireContextA(platform.Out(), nullptr, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                            CRYPT_VERIFYCONTEXT),
       "CryptAcquireContext");
  for (const HCRYPTPROV provider : {platform.Get(), context.Get()}) {
    EXPECT_TRUE(CryptVerifyCertificateSignatureEx(
        provider, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
        const_cast<CERT_CONTEXT*>(decoded), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
        const_cast<CERT_CONTEXT*>(decoded), 0, nullptr));
  }
  CertFreeCertificateContext(decoded);
}

// Ciphers --------------------------------------------------------------------------------------

using Encrypting = ProviderTest;

TEST_F(Encrypting, AsksForTheBufferThatItNeeds) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key key = Generate(context, 0x6611);
  Octets data(32, 'x');
  DWORD length = 20;
  EXPECT_EQ(CodeOf(CryptEncrypt(key.Get(), 0, TRUE, 0, data.data(), &length, 20)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 32U);
  EXPECT_EQ(data, Octets(32, 'x'));
  length = 20;
  EXPECT_TRUE(CryptEncrypt(key.Get(), 0, TRUE, 0, nullptr, &length, 0));
  EXPECT_EQ(length, 32U);
  length = 20;
  EXPECT_TRUE(CryptEncrypt(key.Get(), 0, TRUE, 0, data.data(), &length, 32));
  EXPECT_EQ(length, 32U);
  EXPECT_TRUE(CryptDecrypt(key.Get(), 0, TRUE, 0, data.data(), &length));
  EXPECT_EQ(length, 20U);
  EXPECT_EQ(Octets(data.begin(), data.begin() + 20), Octets(20, 'x'));
  length = 20;
  EXPECT_EQ(CodeOf(CryptDecrypt(key.Get(), 0, TRUE, 0, data.data(), &length)), kBadLen);
  EXPECT_EQ(CodeOf(CryptEncrypt(key.Get(), 0, FALSE, 0, data.data(), &length, 32)), kBadLen);
}

TEST_F(Encrypting, GivesTheKnownValues) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  // The key 00 to 1f and the vector f0 to f7; openssl enc with its GOST engine, parameter set A.
  const std::string fox = "The quick brown fox jumps over the lazy dog";
  const auto encrypt = [&](const char* blobHead) {
    Octets blob = FromHex(blobHead);
    for (int i = 0; i < 32; ++i) blob.push_back(static_cast<BYTE>(i));
    const Key key = Import(context, blob);
    const Octets vector = FromHex("f0f1f2f3f4f5f6f7");
    Must(CryptSetKeyParam(key.Get(), KP_IV, vector.data(), 0), "CryptSetKeyParam");
    Octets data(fox.begin(), fox.end());
    data.resize(64);
    auto length = static_cast<DWORD>(fox.size());
    Must(CryptEncrypt(key.Get(), 0, TRUE, 0, data.data(), &length, 64), "CryptEncrypt");
    data.resize(length);
    return data;
  };
  EXPECT_EQ(encrypt("080200001F68000020000000"),
            FromHex("80b69f07c7d9329e53576ebec86938fd0b8a136b2efaa3706c4a6b298c990771"
                    "88f2aba0bb03e235e9d388"));
  EXPECT_EQ(encrypt("080200002066000020000000"),
            FromHex("9964f85576ef206a1cd002751b535c98a9574c4c90a8b5eda68ded6f275979c9"
                    "d7c64e00e1d18e45299b3b6728ba8c99"));
}

TEST_F(Encrypting, HashesThePlainTextAlong) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key key = Generate(context, 0x681F);
  const HashHandle onEncrypt = StartHash(context, CALG_SHA_256, {});
  const HashHandle onDecrypt = StartHash(context, CALG_SHA_256, {});
  Octets data = kAbc;
  DWORD length = 3;
  EXPECT_TRUE(CryptEncrypt(key.Get(), onEncrypt.Get(), TRUE, 0, data.data(), &length, 3));
  EXPECT_NE(data, kAbc);
  EXPECT_TRUE(CryptDecrypt(key.Get(), onDecrypt.Get(), TRUE, 0, data.data(), &length));
  EXPECT_EQ(data, kAbc);
  const Octets value = FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(HashValue(onEncrypt), value);
  EXPECT_EQ(HashValue(onDecrypt), value);
}

TEST_F(Encrypting, DescribesItsKeys) {
  struct Case {
    ALG_ID algorithm;
    DWORD bits, block, mode, vector;
  };
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  for (const Case& row :
       {Case{0x681F, 256, 0, CRYPT_MODE_CFB, 8}, Case{0x6620, 256, 64, CRYPT_MODE_CBC, 8},
        Case{0x6610, 256, 128, CRYPT_MODE_CBC, 16}, Case{0x660E, 128, 128, CRYPT_MODE_CBC, 16},
        Case{0x6611, 128, 128, CRYPT_MODE_CBC, 16}}) {
    const Key key = Generate(context, row.algorithm);
    EXPECT_EQ(KeyNumberParam(key, KP_ALGID), row.algorithm);
    EXPECT_EQ(KeyNumberParam(key, KP_KEYLEN), row.bits);
    EXPECT_EQ(KeyNumberParam(key, KP_BLOCKLEN), row.block);
    EXPECT_EQ(KeyNumberParam(key, KP_MODE), row.mode);
    EXPECT_EQ(KeyNumberParam(key, KP_PADDING), DWORD{PKCS5_PADDING});
    EXPECT_EQ(KeyNumberParam(key, KP_PERMISSIONS),
              DWORD{CRYPT_ENCRYPT | CRYPT_DECRYPT | CRYPT_MAC});
    const Octets vector = Fetch("CryptGetKeyParam", [&](BYTE* data, DWORD* length) {
      return CryptGetKeyParam(key.Get(), KP_IV, data, length, 0);
    });
    EXPECT_EQ(vector, Octets(row.vector));
    DWORD length = 0;
    EXPECT_EQ(CodeOf(CryptGetKeyParam(key.Get(), 99, nullptr, &length, 0)), 0x8009000A);
  }
  const Key pair = Generate(context, 0xAA4C);
  EXPECT_EQ(KeyNumberParam(pair, KP_KEYLEN), 1024U);
  EXPECT_EQ(CodeOf(CryptSetKeyParam(pair.Get(), KP_IV, FromHex("00").data(), 0)), 0x8009000A);
  DWORD length = 0;
  EXPECT_EQ(CodeOf(CryptEncrypt(pair.Get(), 0, TRUE, 0, nullptr, &length, 0)), kBadKey);
}

TEST_F(Encrypting, KeepsADuplicateOnItsOwn) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key key = Generate(context, 0x681F);
  Key copy;
  EXPECT_TRUE(CryptDuplicateKey(key.Get(), nullptr, 0, copy.Out()));
  const auto encrypt = [](const Key& with) {
    Octets data = kAbc;
    DWORD length = 3;
    Must(CryptEncrypt(with.Get(), 0, TRUE, 0, data.data(), &length, 3), "CryptEncrypt");
    return data;
  };
  const Octets encrypted = encrypt(key);
  EXPECT_EQ(encrypt(copy), encrypted);
  const Octets vector(8, 1);
  EXPECT_TRUE(CryptSetKeyParam(copy.Get(), KP_IV, vector.data(), 0));
  EXPECT_NE(encrypt(copy), encrypted);
  EXPECT_EQ(encrypt(key), encrypted);
}

}  // namespace
}  // namespace zarext::test
