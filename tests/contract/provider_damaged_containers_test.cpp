// Containers of the development provider whose files are damaged, or sealed with another content.
#include <gmock/gmock.h>

#include <cstdio>

#include "contract/provider_containers_fixture.h"
#include "support/certificates.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

TEST_F(Containers, ThatAreDamagedAreReportedAndHideNoOthers) {
  NewContainer("a");
  NewContainer("b");
  NewContainer("c");
  Damage("c-a\\profile", 8);
  Context context;
  EXPECT_EQ(CodeOf(CryptAcquireContextA(context.Out(), "a", "Zarvel CSP", 25, 0)), kEntryBad);
  ProfileRecord record;
  EXPECT_EQ(ProfileCode("profile://a", &record), kEntryBad);
  EXPECT_EQ(ProfileCode("profile://b", &record), 0U);
  DeleteFileA((home_.Path() + "\\c-b\\profile").c_str());
  EXPECT_EQ(ProfileCode("profile://b", &record), kEntryBad);
  std::vector<std::string> names;
  const Context list = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  char name[260];
  for (DWORD length = sizeof(name);
       CryptGetProvParam(list.Get(), 57, reinterpret_cast<BYTE*>(name), &length, 0);
       length = sizeof(name)) {
    names.emplace_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));
  HCRYPTPROV none = 0;
  EXPECT_TRUE(CryptAcquireContextA(&none, "a", "Zarvel CSP", 25, CRYPT_DELETEKEYSET));
}

TEST_F(Containers, ReportADamagedKeyBehindTheSoundOnes) {
  {
    const Context context = NewContainer("box");
    Generate(context, AT_KEYEXCHANGE);
    Generate(context, AT_SIGNATURE);
  }
  Damage("c-box\\exchange.key", 60);
  const Opened box(direct_, "box");
  DWORD end = 0;
  const std::vector<KeyInfo> keys = box.Keys(&end);
  EXPECT_EQ(end, kEntryBad);
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_EQ(keys[0].algId, 0xAA3AU);
  HCRYPTKEY key = 0;
  EXPECT_EQ(CodeOf(direct_.getUserKey(box.handle, AT_KEYEXCHANGE, &key)), kEntryBad);
  EXPECT_EQ(CodeOf(direct_.getUserKey(box.handle, AT_SIGNATURE, &key)), 0U);
  // A cut file, and an empty one.
  HANDLE file = CreateFileA((home_.Path() + "\\c-box\\exchange.key").c_str(), GENERIC_WRITE, 0,
                            nullptr, OPEN_EXISTING, 0, nullptr);
  SetFilePointer(file, 30, nullptr, FILE_BEGIN);
  SetEndOfFile(file);
  CloseHandle(file);
  EXPECT_EQ(CodeOf(direct_.getUserKey(box.handle, AT_KEYEXCHANGE, &key)), kEntryBad);
  file = CreateFileA((home_.Path() + "\\c-box\\exchange.key").c_str(), GENERIC_WRITE, 0, nullptr,
                     TRUNCATE_EXISTING, 0, nullptr);
  CloseHandle(file);
  EXPECT_EQ(CodeOf(direct_.getUserKey(box.handle, AT_KEYEXCHANGE, &key)), kEntryBad);
}

// A key file with a seal that fits, but not the content that the provider writes.
class SealedFiles : public Containers {
 protected:
  // Algorithm, private key, certificate and chain, each as the octets of a DER element.
  static Octets Record(const Octets& algorithm, const Octets& privateKey, const Octets& certificate,
                       const Octets& chain) {
    Octets fields = FromHex("020101");
    for (const Octets& field : {algorithm, FromHex("020101"), MakeElement(0x04, privateKey),
                                MakeElement(0x04, certificate), MakeElement(0x04, chain)}) {
      fields.insert(fields.end(), field.begin(), field.end());
    }
    return MakeElement(0x30, fields);
  }
  void Write(const char* file, const Octets& record) const {
    const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT, 1);
    Octets image = record;
    const Octets seal = HashValue(StartHash(context, CALG_SHA_256, record));
    image.insert(image.end(), seal.begin(), seal.end());
    FILE* stream = fopen((home_.Path() + "\\" + file).c_str(), "wb");
    ASSERT_NE(stream, nullptr);
    fwrite(image.data(), 1, image.size(), stream);
    fclose(stream);
  }
  static const Octets kGost;
};
const Octets SealedFiles::kGost = FromHex("020300AA3A");

TEST_F(SealedFiles, AreRead) {
  Import(NewContainer("box"), certificateKey_);
  Write("c-box\\signature.key", Record(kGost, certificateKey_, certificate_, {}));
  const Opened box(direct_, "box");
  DWORD end = 0;
  const std::vector<KeyInfo> keys = box.Keys(&end);
  EXPECT_EQ(end, DWORD{ERROR_NO_MORE_ITEMS});
  ASSERT_EQ(keys.size(), 1U);
  DWORD code = 0;
  EXPECT_EQ(box.KeyParam(keys[0].hKey, 26, &code), certificate_);
}

TEST_F(SealedFiles, WithAnotherContentAreDamagedToEveryCall) {
  Import(NewContainer("box"), certificateKey_);
  const Opened box(direct_, "box");
  const HCRYPTKEY key = box.Keys().at(0).hKey;
  const Octets records[] = {
      Record(kGost, FromHex("3000"), {}, {}),                  // no private key
      Record(FromHex("02021234"), certificateKey_, {}, {}),    // no algorithm
      Record(FromHex("020300A450"), certificateKey_, {}, {}),  // one of another family
  };
  for (const Octets& record : records) {
    SCOPED_TRACE(testing::Message() << "length " << record.size());
    Write("c-box\\signature.key", record);
    DWORD code = 0;
    box.KeyParam(key, 26, &code);
    EXPECT_EQ(code, kEntryBad);
    box.KeyParam(key, 69, &code);
    EXPECT_EQ(code, kEntryBad);
    EXPECT_EQ(box.SetKeyParam(key, 26, certificate_), kEntryBad);
    EXPECT_EQ(box.SetKeyParam(key, 68, certificate_), kEntryBad);
    DWORD end = 0;
    EXPECT_TRUE(box.Keys(&end).empty());
    EXPECT_EQ(end, kEntryBad);
    HCRYPTKEY user = 0;
    EXPECT_EQ(CodeOf(direct_.getUserKey(box.handle, AT_SIGNATURE, &user)), kEntryBad);
  }
}

TEST_F(SealedFiles, WithABrokenChainOrCertificateAreDamaged) {
  {
    const Context context = NewContainer("box");
    Import(context, certificateKey_);
    Generate(context, 0xA045);
  }
  const Opened box(direct_, "box");
  const HCRYPTKEY key = box.Keys().at(1).hKey;
  Write("c-box\\signature.key", Record(kGost, certificateKey_, {}, FromHex("3003020105")));
  EXPECT_EQ(box.SetKeyParam(key, 68, certificate_), kEntryBad);
  Write("c-box\\signature.key", Record(kGost, certificateKey_, FromHex("3003020105"), {}));
  // The other key is listed all the same.
  DWORD end = 0;
  const std::vector<KeyInfo> keys = box.Keys(&end);
  EXPECT_EQ(end, kEntryBad);
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_EQ(keys[0].algId, 0xA045U);
  // What the caller brings is still its own mistake.
  EXPECT_EQ(box.SetKeyParam(key, 68, FromHex("3000")), kBadData);
}

}  // namespace
}  // namespace zarext::test
