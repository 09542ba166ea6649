// What a private-key import leaves behind in the module, for the store. The module's own objects
// are linked in.
#include <algorithm>
#include <string>

#include "keyinfo/last_import.h"
#include "keyinfo_fixture.h"

extern "C" BOOL WINAPI ZarImportPrivKeyFunc(HCRYPTPROV hCryptProv,
                                            CRYPT_PRIVATE_KEY_INFO* pPrivateKeyInfo, DWORD dwFlags,
                                            void* pvAuxInfo);

namespace zarext::test {
namespace {

std::string Profile() {
  const auto* text = reinterpret_cast<const char*>(LastProfile);
  return {text, text + kLastProfileSize};
}
std::string Url() { return {LastContainerUrl, LastContainerUrl + kLastContainerUrlSize}; }

std::string Padded(std::string text, std::size_t size) {
  text.resize(size);
  return text;
}

Octets Text(const std::string& text) { return {text.begin(), text.end()}; }

class LastImport : public testing::Test {
 protected:
  LastImport() {
    UseScript(&provider_);
    context_ = std::make_unique<ProviderContext>();
    Fill();
    provider_.providerParameters[0x38] = Text(std::string("box\0", 4));
    provider_.providerParameters[0x2E] = Text(std::string("profile://box\0", 14));
  }
  ~LastImport() override {
    context_.reset();
    UseScript(nullptr);
  }
  // As an earlier import may have left them.
  static void Fill() {
    std::fill(std::begin(LastProfile), std::end(LastProfile), static_cast<unsigned char>('o'));
    std::fill(std::begin(LastContainerUrl), std::end(LastContainerUrl), 'o');
  }
  BOOL Import(const char* oid = "1.2.643.2.2.19") {
    Octets key = {1, 2, 3};
    CRYPT_PRIVATE_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(oid);
    info.PrivateKey = {3, key.data()};
    return ZarImportPrivKeyFunc(context_->Get(), &info, 0, nullptr);
  }

  RecordingProvider provider_;
  std::unique_ptr<ProviderContext> context_;
};

TEST_F(LastImport, KeepsWhatTheProviderSays) {
  ASSERT_EQ(TRUE, Import());
  EXPECT_EQ(Padded("box", 256), Profile());
  EXPECT_EQ(Padded("profile://box", 1024), Url());
  EXPECT_EQ("profile://box", LastContainerUrlText());
}

TEST_F(LastImport, KeepsItForAKeyThatExists) {
  provider_.FailCall("ImportKey", 1, static_cast<DWORD>(NTE_EXISTS));
  ASSERT_EQ(TRUE, Import());
  EXPECT_EQ("profile://box", LastContainerUrlText());
}

TEST_F(LastImport, IsEmptyWhereTheProviderSaysNothing) {
  provider_.FailCall("GetProvParam", 1, 5);
  provider_.FailCall("GetProvParam", 2, 5);
  ASSERT_EQ(TRUE, Import());
  EXPECT_EQ(Padded("", 256), Profile());
  EXPECT_EQ(Padded("", 1024), Url());
  EXPECT_EQ("", LastContainerUrlText());
}

// Refused by the provider, or before it is asked because no document can be made of the key.
TEST_F(LastImport, IsEmptyAfterARefusedImport) {
  provider_.FailCall("ImportKey", 1, 5);
  ASSERT_EQ(FALSE, Import());
  EXPECT_EQ(Padded("", 256), Profile());
  EXPECT_EQ(Padded("", 1024), Url());
  Fill();
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  info.PrivateKey.cbData = 3;
  ASSERT_EQ(FALSE, ZarImportPrivKeyFunc(context_->Get(), &info, 0, nullptr));
  EXPECT_EQ(Padded("", 256), Profile());
  EXPECT_EQ(Padded("", 1024), Url());
}

// The provider sees nothing of the import before.
class WatchingProvider : public RecordingProvider {
 public:
  BOOL ImportKey(HCRYPTPROV context, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                 DWORD flags, HCRYPTKEY* key) override {
    sawNothing = Profile() == Padded("", 256) && Url() == Padded("", 1024);
    return RecordingProvider::ImportKey(context, data, size, exchangeKey, flags, key);
  }
  bool sawNothing = false;
};

TEST_F(LastImport, IsEmptyBeforeTheProviderIsAsked) {
  WatchingProvider watching;
  UseScript(&watching);
  ASSERT_EQ(TRUE, Import());
  EXPECT_TRUE(watching.sawNothing);
  UseScript(&provider_);
}

// Refused before there is an import.
TEST_F(LastImport, StaysForAForeignAlgorithmAndWithoutAStructure) {
  ASSERT_EQ(static_cast<BOOL>(NTE_BAD_ALGID), Import("1.2.3"));
  ASSERT_EQ(FALSE, ZarImportPrivKeyFunc(context_->Get(), nullptr, 0, nullptr));
  EXPECT_EQ(std::string(256, 'o'), Profile());
  EXPECT_EQ(std::string(1024, 'o'), Url());
}

TEST_F(LastImport, TextsThatFillTheirBuffersHaveNoTerminator) {
  provider_.providerParameters[0x38] = Octets(256, 'p');
  provider_.providerParameters[0x2E] = Octets(1024, 'u');
  ASSERT_EQ(TRUE, Import());
  EXPECT_EQ(std::string(256, 'p'), Profile());
  EXPECT_EQ(std::string(1024, 'u'), LastContainerUrlText());
}

}  // namespace
}  // namespace zarext::test
