// The exports of public and private keys, with each of their calls into the platform failing.
#include <algorithm>
#include <cstring>

#include "contract/anomaly_loop.h"
#include "contract/keyinfo_fixture.h"

namespace zarext::test {
namespace {

// SEQUENCE { 0, SEQUENCE { 1.2.643.2.2.19, NULL }, OCTET STRING of 4 }
const Octets kDocument = {0x30, 0x15, 0x02, 0x01, 0x00, 0x30, 0x0A, 0x06, 0x06, 0x2A, 0x85, 0x03,
                          0x02, 0x02, 0x13, 0x05, 0x00, 0x04, 0x04, 0x5E, 0xC1, 0xE7, 0x0D};

class AnomalyKeyInfo : public KeyInfoTest {
 protected:
  AnomalyKeyInfo() {
    provider_.blobs[PUBLICKEYBLOB] =
        Join({{0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00}, Counted(92)});
    provider_.blobs[0x30] = kDocument;
    provider_.providerParameters[0x38] = {'p', 0};
    provider_.providerParameters[0x2E] = {'u', 0};
  }

  Scenario Start(const std::string& name) {
    Scenario scenario;
    scenario.name = name;
    scenario.prepare = [this] {
      block_.assign(4096, 0xA5);
      key_ = 0xA5A5A5A5;
    };
    scenario.release = [this] {
      if (key_ != 0xA5A5A5A5) CryptDestroyKey(std::exchange(key_, 0xA5A5A5A5));
      EXPECT_TRUE(provider_.OpenKeys().empty());
    };
    scenario.outputs = [this] {
      return std::vector<std::span<BYTE>>{block_, {reinterpret_cast<BYTE*>(&key_), sizeof key_}};
    };
    return scenario;
  }
  template <typename T>
  T* Output() {
    return reinterpret_cast<T*>(block_.data());
  }

  AnomalyLoop loop_{Module()};
  Octets block_;  // caller's memory
  HCRYPTKEY key_ = 0;
};

TEST_F(AnomalyKeyInfo, ZarExportPublicKeyInfo) {
  Scenario scenario = Start("ZarExportPublicKeyInfo");
  scenario.call = [&] {
    DWORD size = 4096;
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, CERT_PUBLIC_KEY_INFO*, DWORD*)>(
        "ZarExportPublicKeyInfo")(Provider(), 2, 1, Output<CERT_PUBLIC_KEY_INFO>(), &size);
  };
  scenario.lines = {"EXT : ZarExportPublicKeyInfo : dwKeySpec = 2.",
                    "EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=*, ALG_ID = aa3a."};
  scenario.rules = {
      {"CryptGetProvParam", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfo : CryptGetProvParam hProv=*, error = 5a5a.")},
      {"CryptGetUserKey", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfo : CryptGetUserKey hProv=*, error = 5a5a.")},
      {"CryptExportKey", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=*, error = 5a5a.")}};
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyInfo, ZarExportPublicKeyInfoEx) {
  Scenario scenario = Start("ZarExportPublicKeyInfoEx");
  scenario.call = [&] {
    DWORD size = 4096;
    char oid[] = "1.2.398.3.10.1.1.2.1.1";
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*, CERT_PUBLIC_KEY_INFO*,
                              DWORD*)>("ZarExportPublicKeyInfoEx")(
        Provider(), 2, 1, oid, 0, nullptr, Output<CERT_PUBLIC_KEY_INFO>(), &size);
  };
  scenario.lines = {"EXT : ZarExportPublicKeyInfoEx : PublicKeyObjId = 1.2.398.3.10.1.1.2.1.1.",
                    "EXT : ZarExportPublicKeyInfo : CryptExportKey hKey=*, ALG_ID = aa3a."};
  scenario.rules = {
      {"CryptGetProvParam", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfoEx : CryptGetProvParam hProv=*, error = 5a5a.")},
      {"CryptGetUserKey", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfoEx : CryptGetUserKey hProv=*, error = 5a5a.")},
      {"CryptExportKey", 1,
       Stops(1, "EXT : ZarExportPublicKeyInfoEx : CryptExportKey hKey=*, error = 5a5a.")}};
  loop_.Run(scenario);
}

// The two imports, of a key of the maker's arc and of one in an OCTET STRING.
class AnomalyKeyImport : public AnomalyKeyInfo {
 protected:
  // The first allocation is the document's own. Without it the provider is asked to import nothing,
  // and what it says to that is the result.
  static Rule WithoutDocument(Effect effect) {
    effect.error = ERROR_INVALID_PARAMETER;
    return {"malloc", 1, effect};
  }
  CERT_PUBLIC_KEY_INFO Info(const char* oid, Octets& bits) {
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(oid);
    info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), 0};
    return info;
  }
};

constexpr char kMakersOid[] = "1.3.6.1.4.1.32473.1.5.8";
constexpr char kNationalOid[] = "1.2.398.3.10.1.1.2.1.1";

TEST_F(AnomalyKeyImport, ZarImportPublicKeyInfo) {
  Octets bits = Counted(80);
  CERT_PUBLIC_KEY_INFO info = Info(kMakersOid, bits);
  Scenario scenario = Start("ZarImportPublicKeyInfo");
  scenario.call = [&] {
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*)>(
        "ZarImportPublicKeyInfo")(Provider(), 1, &info, &key_);
  };
  scenario.lines = {"EXT : ZarImportPublicKeyInfo : hCryptProv = *.",
                    "EXT : ZarImportPublicKeyInfo : Algorithm = 1.3.6.1.4.1.32473.1.5.8.",
                    "EXT : ZarImportPublicKeyInfo : PublicKey[80] = ... 4e 4f 50."};
  scenario.left = {{"key", 1}};
  scenario.rules = {
      {"CryptGetProvParam", 1,
       Stops(3, "EXT : ZarImportPublicKeyInfo : CryptGetProvParam hProv=*, error = 5a5a.")},
      {"CryptImportKey", 1, Stops(3, "EXT : ZarImportPublicKeyInfo : CryptImportKey = 5a5a.")}};
  loop_.Run(scenario);

  bits = Join({{0x04, 0x40}, Counted(64)});
  info = Info(kNationalOid, bits);
  scenario.name = "ZarImportPublicKeyInfo, OCTET STRING";
  scenario.lines = {"EXT : ZarImportPublicKeyInfo : hCryptProv = *.",
                    "EXT : ZarImportPublicKeyInfo : Algorithm = 1.2.398.3.10.1.1.2.1.1.",
                    "EXT : ZarImportPublicKeyInfo : PublicKey[66] = ... 3e 3f 40."};
  scenario.rules[1].effect =
      Stops(3, "EXT : ZarImportPublicKeyInfo : CRyptoPro : CryptImportKey = 5a5a.");
  scenario.rules.push_back(
      WithoutDocument(Stops(3, "EXT : ZarImportPublicKeyInfo : CRyptoPro : CryptImportKey = 57.")));
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyImport, ZarImportPublicKeyInfoEx) {
  Octets bits = Counted(80);
  CERT_PUBLIC_KEY_INFO info = Info(kMakersOid, bits);
  Scenario scenario = Start("ZarImportPublicKeyInfoEx");
  scenario.call = [&] {
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID, DWORD, void*,
                              HCRYPTKEY*)>("ZarImportPublicKeyInfoEx")(Provider(), 1, &info, 0x201D,
                                                                       0, nullptr, &key_);
  };
  const std::string first =
      "EXT : ZarImportPublicKeyInfoEx : hCryptProv = *, aiKeyAlg = 201d, dwFlags = 0.";
  scenario.lines = {first, "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.3.6.1.4.1.32473.1.5.8.",
                    "EXT : ZarImportPublicKeyInfoEx : PublicKey[80] = 1 2 3 4 5  ...4f 50."};
  scenario.left = {{"key", 1}};
  scenario.rules = {
      {"CryptGetProvParam", 1,
       Stops(3, "EXT : ZarImportPublicKeyInfoEx : CryptGetProvParam hProv=*, error = 5a5a.")},
      {"CryptImportKey", 1, Stops(3, "EXT : ZarImportPublicKeyInfoEx : CryptImportKey = 5a5a.")}};
  loop_.Run(scenario);

  bits = Join({{0x04, 0x40}, Counted(64)});
  info = Info(kNationalOid, bits);
  scenario.name = "ZarImportPublicKeyInfoEx, OCTET STRING";
  scenario.lines = {first, "EXT : ZarImportPublicKeyInfoEx : Algorithm = 1.2.398.3.10.1.1.2.1.1.",
                    "EXT : ZarImportPublicKeyInfoEx : PublicKey[66] = 4 40 1 2 3  ...3f 40.",
                    "EXT : ZarImportPublicKeyInfoEx : Data[64]=1 2 3 4 5 ...."};
  scenario.rules[1].effect =
      Stops(4, "EXT : ZarImportPublicKeyInfoEx : CryptoPro : CryptImportKey = 5a5a.");
  scenario.rules.push_back(WithoutDocument(
      Stops(3, "EXT : ZarImportPublicKeyInfoEx : CryptoPro : CryptImportKey = 57.")));
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyImport, ZarConvertPublicKeyInfo) {
  Octets bits = Counted(70);
  CERT_PUBLIC_KEY_INFO info = Info(kNationalOid, bits);
  Scenario scenario = Start("ZarConvertPublicKeyInfo");
  scenario.call = [&] {
    return Export<BOOL WINAPI(DWORD, CERT_PUBLIC_KEY_INFO*, DWORD, DWORD, BYTE**, DWORD*)>(
        "ZarConvertPublicKeyInfo")(1, &info, 0, 0, Output<BYTE*>(), Output<DWORD>() + 2);
  };
  scenario.lines = {"EXT : ZarConvertPublicKeyInfo : dwFlags = 0.",
                    "EXT : ZarConvertPublicKeyInfo : Algorithm = 1.2.398.3.10.1.1.2.1.1."};
  scenario.left = {{"local block", 1}};
  scenario.check = [&](const FailurePoint* point, long) {
    if (point != nullptr) return;
    EXPECT_EQ(70u, Output<DWORD>()[2]);
    EXPECT_EQ(nullptr, LocalFree(*Output<BYTE*>()));
  };
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyInfo, ZarEncodePublicKeyAndParameters) {
  Octets blob = Join({{0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00}, Counted(72)});
  Scenario scenario = Start("ZarEncodePublicKeyAndParameters");
  scenario.call = [&] {
    char oid[] = "1.3.6.1.4.1.32473.1.5.8";
    return Export<BOOL WINAPI(DWORD, LPSTR, BYTE*, DWORD, DWORD, void*, BYTE**, DWORD*, BYTE**,
                              DWORD*)>("ZarEncodePublicKeyAndParameters")(
        1, oid, blob.data(), static_cast<DWORD>(blob.size()), 0, nullptr, Output<BYTE*>(),
        Output<DWORD>() + 2, Output<BYTE*>() + 2, Output<DWORD>() + 6);
  };
  scenario.lines = {
      "EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 0, Algorithm = "
      "1.3.6.1.4.1.32473.1.5.8.",
      "EXT : ZarEncodePublicKeyAndParameters : PublicKey[80] = ... 46 47 48.",
      "EXT : ZarEncodePublicKeyAndParameters : aiKey = aa3a, ul = 8070605, exp = c0b0a09."};
  scenario.left = {{"local block", 1}};
  scenario.check = [&](const FailurePoint* point, long) {
    if (point != nullptr) return;
    EXPECT_EQ(80u, Output<DWORD>()[2]);
    EXPECT_EQ(nullptr, LocalFree(*Output<BYTE*>()));
  };
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyInfo, ZarExportPrivKeyFunc) {
  Scenario scenario = Start("ZarExportPrivKeyFunc");
  scenario.call = [&] {
    DWORD size = 4096;
    char oid[] = "1.2.3";
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, CRYPT_PRIVATE_KEY_INFO*,
                              DWORD*)>("ZarExportPrivKeyFunc")(
        Provider(), 1, oid, 0, nullptr, Output<CRYPT_PRIVATE_KEY_INFO>(), &size);
  };
  scenario.lines = {
      "EXT : ZarExportPrivKeyFunc : hCryptProv = *, dwKeySpec = 1, pszPrivateKeyObjId = 1.2.3.",
      "EXT : ZarExportPrivKeyFunc : Algorithm.pszObjId = 1.2.643.2.2.19, Parameters.cbData = 0."};
  scenario.rules = {
      {"CryptGetUserKey", 1, Stops(1, "EXT : ZarExportPrivKeyFunc : CryptGetUserKey = 5a5a.")},
      {"CryptExportKey", 1, Stops(1, "EXT : ZarExportPrivKeyFunc : CryptExportKey = 5a5a.")}};
  loop_.Run(scenario);
}

TEST_F(AnomalyKeyInfo, ZarImportPrivKeyFunc) {
  Octets bits = kDocument;
  Octets parameters = {0x05, 0x00};
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kMakersOid);
  info.Algorithm.Parameters = {2, parameters.data()};
  info.PrivateKey = {static_cast<DWORD>(bits.size()), bits.data()};
  Scenario scenario = Start("ZarImportPrivKeyFunc");
  scenario.call = [&] {
    return Export<BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*)>(
        "ZarImportPrivKeyFunc")(Provider(), &info, 0, nullptr);
  };
  // Nobody has the handle of the imported key, which stays open.
  scenario.release = [&] {
    EXPECT_GE(1u, provider_.OpenKeys().size());
    provider_.ForgetKeys();
  };
  scenario.lines = {"EXT : ZarImportPrivKeyFunc : hCryptProv = *, dwFlags = 0.",
                    "EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = 1.3.6.1.4.1.32473.1.5.8, "
                    "Version = 0, PrivateKey.cbData = 23, Attr = 0000000000000000."};
  scenario.left = {{"key", 1}};
  scenario.rules = {
      {"CryptImportKey", 1, Stops(2, "EXT : ZarImportPrivKeyFunc : CryptImportKey = 5a5a.")},
      {"CryptGetProvParam", 1,
       GoesOnWith(2, {"EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_PROFILE) = 5a5a."})},
      {"CryptGetProvParam", 2,
       GoesOnWith(2, {"EXT : ZarImportPrivKeyFunc : CryptGetProvParam(PP_CNT_URL) = 5a5a."})}};
  scenario.thrown = [](const FailurePoint& point, Manner, Effect& effect) {
    if (point.function == "CryptGetProvParam") effect.left = {{"key", 1}};
  };
  loop_.Run(scenario);

  // A bare key, from which the document is built.
  bits = {0x5E, 0xC1, 0xE7, 0x0D};
  info.PrivateKey = {static_cast<DWORD>(bits.size()), bits.data()};
  scenario.name = "ZarImportPrivKeyFunc, bare key";
  scenario.lines[1] =
      "EXT : ZarImportPrivKeyFunc : Algorithm.pszObjId = 1.3.6.1.4.1.32473.1.5.8, "
      "Version = 0, PrivateKey.cbData = 4, Attr = 0000000000000000.";
  loop_.Run(scenario);
}

// Throwing takes memory too; without it the code is the same. So it is in a thread that throws for
// the first time, for which the language runtime by itself would take more.
class AnomalyRefusal : public AnomalyKeyInfo, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(Threads, AnomalyRefusal, testing::Bool());

TEST_P(AnomalyRefusal, WithoutMemory) {
  Scenario scenario = Start(GetParam() ? "ZarConvertPublicKeyInfo, refused in a new thread"
                                       : "ZarConvertPublicKeyInfo, refused");
  scenario.thread = GetParam();
  scenario.call = [&] {
    return Export<BOOL WINAPI(DWORD, void*, DWORD, DWORD, void*, void*)>("ZarConvertPublicKeyInfo")(
        0, nullptr, 0, 0, nullptr, nullptr);
  };
  scenario.result = FALSE;
  scenario.lines = {"EXT : ZarConvertPublicKeyInfo : dwFlags = 0."};
  Effect same = GoesOn();
  same.error = ERROR_INVALID_PARAMETER;
  scenario.rules = {{"malloc", 1, same}};
  EXPECT_EQ(1, loop_.Run(scenario));
}

}  // namespace
}  // namespace zarext::test
