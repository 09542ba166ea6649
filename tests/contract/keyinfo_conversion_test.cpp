// ZarConvertPublicKeyInfo and ZarEncodePublicKeyAndParameters.
#include "keyinfo_fixture.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

using Convert = BOOL WINAPI(DWORD, CERT_PUBLIC_KEY_INFO*, DWORD, DWORD, BYTE**, DWORD*);
using Encode = BOOL WINAPI(DWORD, LPSTR, BYTE*, DWORD, DWORD, void*, BYTE**, DWORD*, BYTE**,
                           DWORD*);

// LocalAlloc of the module: counted, recorded, refused on demand.
struct {
  decltype(LocalAlloc)* real = nullptr;
  bool refuse = false;
  std::vector<std::pair<UINT, SIZE_T>> calls;
  HLOCAL last = nullptr;
} allocation;
HLOCAL WINAPI SpyLocalAlloc(UINT flags, SIZE_T size) {
  allocation.calls.emplace_back(flags, size);
  if (allocation.refuse) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  return allocation.last = allocation.real(flags, size);
}

class LocalAllocSpy {
 public:
  LocalAllocSpy() : patch_(Module(), "KERNEL32.dll", "LocalAlloc", &SpyLocalAlloc) {
    allocation = {patch_.Original<decltype(LocalAlloc)>(), false, {}, nullptr};
  }

 private:
  ImportPatch patch_;
};

// The module's LocalFree, counted.
int freedBlocks = 0;
decltype(LocalFree)* realLocalFree = nullptr;
HLOCAL WINAPI SpyLocalFree(HLOCAL block) {
  ++freedBlocks;
  return realLocalFree(block);
}

class PublicKeyConversion : public testing::Test {
 protected:
  PublicKeyConversion() { SetLastError(kUntouchedError); }
  static CERT_PUBLIC_KEY_INFO Info(const char* oid, const GuardedMemory& key) {
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(oid);
    info.PublicKey = {static_cast<DWORD>(key.Size()), key.Data(), 0};
    return info;
  }
  // What a conversion gives; the block is freed.
  [[nodiscard]] Octets Converted(CERT_PUBLIC_KEY_INFO info, DWORD encodingType) const {
    BYTE* block = nullptr;
    DWORD size = 0;
    EXPECT_EQ(TRUE, convert_(encodingType, &info, 0, 0, &block, &size));
    const Octets octets(block, block + size);
    LocalFree(block);
    return octets;
  }
  Convert* convert_ = Export<Convert>("ZarConvertPublicKeyInfo");
  LocalAllocSpy spy_;
};

TEST_F(PublicKeyConversion, HandsOverACopyWithAZeroBehind) {
  const GuardedMemory key(Counted(70));
  CERT_PUBLIC_KEY_INFO info = Info("1.3.6.1.4.1.32473.1.5.8", key);
  BYTE* block = nullptr;
  DWORD size = 0;
  TraceCapture trace;
  ASSERT_EQ(TRUE, convert_(1, &info, 0xAA3A, 0, &block, &size));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarConvertPublicKeyInfo : dwFlags = aa3a.",
                          "EXT : ZarConvertPublicKeyInfo : Algorithm = 1.3.6.1.4.1.32473.1.5.8."));
  EXPECT_THAT(allocation.calls, ElementsAre(std::pair<UINT, SIZE_T>(0x40, 71)));
  EXPECT_EQ(allocation.last, block);
  EXPECT_EQ(70u, size);
  EXPECT_EQ(Join({Counted(70), {0}}), Octets(block, block + 71));
  EXPECT_EQ(nullptr, LocalFree(block));
}

TEST_F(PublicKeyConversion, OpensNoOctetString) {
  const Octets bits = Join({{0x04, 0x40}, Counted(64)});
  for (const char* oid : {"1.2.398.3.10.1.1.2.1.1", "1.2.643.2.2.19"}) {
    const GuardedMemory key(bits);
    EXPECT_EQ(bits, Converted(Info(oid, key), 0x10001));
  }
}

TEST_F(PublicKeyConversion, OutputsAreOptional) {
  const GuardedMemory key(Counted(5));
  CERT_PUBLIC_KEY_INFO info = Info("1.2.643.2.2.19", key);
  BYTE* block = nullptr;
  EXPECT_EQ(TRUE, convert_(0x10000, &info, 0, 0, &block, nullptr));
  LocalFree(block);
  DWORD size = 0;
  const ImportPatch freePatch(Module(), "KERNEL32.dll", "LocalFree", &SpyLocalFree);
  realLocalFree = freePatch.Original<decltype(LocalFree)>();
  freedBlocks = 0;
  EXPECT_EQ(TRUE, convert_(1, &info, 0, 0xFFFFFFFF, nullptr, &size));
  EXPECT_EQ(5u, size);
  EXPECT_EQ(0, freedBlocks) << "a block that nobody takes is left";
  LocalFree(allocation.last);
}

TEST_F(PublicKeyConversion, AnEmptyKeyIsOneZeroOctet) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  BYTE* block = nullptr;
  DWORD size = 7;
  ASSERT_EQ(TRUE, convert_(1, &info, 0, 0, &block, &size));
  EXPECT_THAT(allocation.calls, ElementsAre(std::pair<UINT, SIZE_T>(0x40, 1)));
  EXPECT_EQ(0, block[0]);
  EXPECT_EQ(0u, size);
  LocalFree(block);
}

TEST_F(PublicKeyConversion, RefusesKeysThatAreNotThere) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>("1.2.643.2.2.19");
  info.PublicKey.cbData = 5;
  BYTE* block = nullptr;
  EXPECT_EQ(FALSE, convert_(1, &info, 0, 0, &block, nullptr));
  EXPECT_EQ(87u, GetLastError());
}

TEST_F(PublicKeyConversion, RefusesBadArguments) {
  const GuardedMemory key(Counted(5));
  CERT_PUBLIC_KEY_INFO info = Info("1.2.643.2.2.19", key);
  BYTE* block = nullptr;
  DWORD size = 7;
  for (const DWORD type : {0u, 2u, 0x20001u}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, convert_(type, &info, 0, 0, &block, &size));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_THAT(trace.Messages(), ElementsAre("EXT : ZarConvertPublicKeyInfo : dwFlags = 0."));
  }
  SetLastError(kUntouchedError);
  EXPECT_EQ(FALSE, convert_(1, nullptr, 0, 0, &block, &size));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(nullptr, block);
  EXPECT_EQ(7u, size);
}

TEST_F(PublicKeyConversion, RefusesForeignAlgorithms) {
  const GuardedMemory key(Counted(5));
  // An empty text is a text.
  const std::pair<const char*, std::string> rows[] = {
      {"1.2.840.113549.1.1.1", "1.2.840.113549.1.1.1"}, {nullptr, "(null)"}, {"", ""}};
  for (const auto& [oid, text] : rows) {
    SCOPED_TRACE(text);
    CERT_PUBLIC_KEY_INFO info = Info(oid, key);
    BYTE* block = nullptr;
    TraceCapture trace;
    EXPECT_EQ(FALSE, convert_(1, &info, 0, 0, &block, nullptr));
    EXPECT_EQ(0x80090008u, GetLastError());
    EXPECT_EQ(nullptr, block);
    EXPECT_THAT(
        trace.Messages(),
        ElementsAre("EXT : ZarConvertPublicKeyInfo : dwFlags = 0.",
                    "EXT : ZarConvertPublicKeyInfo : Algorithm = " + text + ".",
                    "EXT : ZarConvertPublicKeyInfo : pszObjId = " + text + ", error = 80090008."));
  }
  EXPECT_TRUE(allocation.calls.empty());
}

TEST_F(PublicKeyConversion, UnusedBitsAreNotLookedAt) {
  const GuardedMemory key(Counted(5));
  for (const DWORD bits : {1u, 7u, 8u, 0xFFFFFFFFu}) {
    CERT_PUBLIC_KEY_INFO info = Info("1.2.643.2.2.19", key);
    info.PublicKey.cUnusedBits = bits;
    EXPECT_EQ(Counted(5), Converted(info, 1)) << bits;
  }
}

TEST_F(PublicKeyConversion, WithoutMemory) {
  const GuardedMemory key(Counted(5));
  CERT_PUBLIC_KEY_INFO info = Info("1.2.643.2.2.19", key);
  BYTE* block = nullptr;
  DWORD size = 7;
  allocation.refuse = true;
  EXPECT_EQ(FALSE, convert_(1, &info, 0, 0, &block, &size));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_EQ(nullptr, block);
  EXPECT_EQ(7u, size);
}

TEST_F(PublicKeyConversion, ALengthWhoseSuccessorDoesNotFit) {
  const GuardedMemory key(Counted(5));
  CERT_PUBLIC_KEY_INFO info = Info("1.2.643.2.2.19", key);
  info.PublicKey.cbData = 0xFFFFFFFF;
  BYTE* block = nullptr;
  DWORD size = 7;
  EXPECT_EQ(FALSE, convert_(1, &info, 0, 0, &block, &size));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_TRUE(allocation.calls.empty());
  EXPECT_EQ(7u, size);
}

constexpr char kEncodeEntry[] =
    "EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 0, Algorithm = "
    "1.3.6.1.4.1.32473.1.5.8.";

// Calls the export with outputs that it may or may not fill.
class PublicKeyEncoding : public testing::Test {
 protected:
  PublicKeyEncoding() { SetLastError(kUntouchedError); }
  ~PublicKeyEncoding() override {
    if (key != kNoPointer) {
      LocalFree(key);
    }
  }
  BOOL Call(const Octets& blob, DWORD encodingType = 1, DWORD flags = 0,
            const char* oid = "1.3.6.1.4.1.32473.1.5.8") {
    const GuardedMemory memory(blob);
    memory.MakeReadOnly();
    return encode_(encodingType, const_cast<char*>(oid), memory.Data(),
                   static_cast<DWORD>(blob.size()), flags, reinterpret_cast<void*>(1), &key,
                   &keySize, &parameters, &parametersSize);
  }
  [[nodiscard]] bool Untouched() const {
    return key == kNoPointer && keySize == 7 && parameters == kNoPointer && parametersSize == 7;
  }

  BYTE* const kNoPointer = reinterpret_cast<BYTE*>(0x77);
  BYTE* key = kNoPointer;
  DWORD keySize = 7;
  BYTE* parameters = kNoPointer;
  DWORD parametersSize = 7;
  Encode* encode_ = Export<Encode>("ZarEncodePublicKeyAndParameters");
  LocalAllocSpy spy_;
};

TEST_F(PublicKeyEncoding, CopiesAnRsaOrOwnBlob) {
  const Octets blob = {0x06, 0x02, 0x00, 0x00, 0x00, 0xA4, 0x00, 0x00, 'R',  'S',  'A', '1',
                       0x00, 0x08, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0xAB, 0xCD, 0xEF};
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call(blob));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(kEncodeEntry,
                  "EXT : ZarEncodePublicKeyAndParameters : PublicKey[23] = ... ab cd ef.",
                  "EXT : ZarEncodePublicKeyAndParameters : aiKey = a400, ul = 800, exp = 10001."));
  EXPECT_THAT(allocation.calls, ElementsAre(std::pair<UINT, SIZE_T>(0x40, 24)));
  EXPECT_EQ(allocation.last, key);
  EXPECT_EQ(23u, keySize);
  EXPECT_EQ(nullptr, parameters);
  EXPECT_EQ(0u, parametersSize);
  EXPECT_EQ(Join({blob, {0}}), Octets(key, key + 24));
}

TEST_F(PublicKeyEncoding, WordsThatAreNotThereCountAsZero) {
  const std::vector<std::pair<Octets, Lines>> rows = {
      {{0x06, 0x02}, {"PublicKey[2] = ... 0 6 2.", "aiKey = 0, ul = 0, exp = 0."}},
      {{0x06, 0x02, 0, 0, 0x11, 0x22, 0x33},
       {"PublicKey[7] = ... 11 22 33.", "aiKey = 0, ul = 0, exp = 0."}},
      {{0x06, 0x02, 0, 0, 0x11, 0x22, 0x33, 0x44, 0, 0, 0, 0, 0x55, 0x66, 0x77, 0x88, 1, 2, 3},
       {"PublicKey[19] = ... 1 2 3.", "aiKey = 44332211, ul = 88776655, exp = 0."}},
  };
  for (const auto& [blob, lines] : rows) {
    TraceCapture trace;
    ASSERT_EQ(TRUE, Call(blob));
    EXPECT_THAT(trace.Messages(),
                ElementsAre(kEncodeEntry, "EXT : ZarEncodePublicKeyAndParameters : " + lines[0],
                            "EXT : ZarEncodePublicKeyAndParameters : " + lines[1]));
    EXPECT_EQ(blob, Octets(key, key + keySize));
    LocalFree(key);
    key = kNoPointer;
  }
}

TEST_F(PublicKeyEncoding, CryptoProBlobsGiveSuccessWithoutOutput) {
  TraceCapture trace;
  ASSERT_EQ(TRUE, Call({0x06, 0x20, 0x00, 0x00, 0x23, 0x2E, 0x00, 0x00, 0x01}));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(kEncodeEntry, "EXT : ZarEncodePublicKeyAndParameters : PublicKey[9] = ... 0 0 1.",
                  "EXT : ZarEncodePublicKeyAndParameters : CryptoPro : aiKey = 2e23."));
  EXPECT_TRUE(Untouched());
  EXPECT_TRUE(allocation.calls.empty());
}

TEST_F(PublicKeyEncoding, OtherHeadsGiveSuccessWithoutOutput) {
  for (const Octets& blob : {Octets{0x07, 0x02, 0, 0, 0x23, 0x2E, 0, 0}, Octets{0x07, 0x20},
                             Octets{0x06, 0x03, 0, 0}, Octets{0x06}, Octets{0x00, 0x02}}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(TRUE, Call(blob));
    EXPECT_EQ(2u, trace.Messages().size());
    EXPECT_TRUE(Untouched());
    EXPECT_TRUE(allocation.calls.empty());
  }
}

TEST_F(PublicKeyEncoding, TracesNumbersAsTheyAlwaysWere) {
  const std::pair<DWORD, const char*> rows[] = {{0x1A, "1a"}, {0xFFFFFFFE, "fffffffe"}};
  for (const auto& [number, text] : rows) {
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call({0x06, 0x02}, number, number, ""));
    EXPECT_EQ(std::string("EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=") + text +
                  ", dwFlags = " + text + ", Algorithm = .",
              trace.Messages().front());
  }
}

TEST_F(PublicKeyEncoding, OutputsAreOptional) {
  Octets blob = {0x06, 0x02, 0x00, 0x00};
  char oid[] = "1.2.643.2.2.19";
  EXPECT_EQ(TRUE,
            encode_(0x10000, oid, blob.data(), 4, 0, nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(TRUE, encode_(0x10001, oid, blob.data(), 4, 0, nullptr, nullptr, &keySize, nullptr,
                          &parametersSize));
  EXPECT_EQ(4u, keySize);
  EXPECT_EQ(0u, parametersSize);
}

TEST_F(PublicKeyEncoding, RefusesBadArguments) {
  const Octets blob = {0x06, 0x02, 0x00, 0x00};
  for (const DWORD type : {0u, 2u, 0x10002u}) {
    SetLastError(kUntouchedError);
    TraceCapture trace;
    EXPECT_EQ(FALSE, Call(blob, type));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(1u, trace.Messages().size());
  }
  SetLastError(kUntouchedError);
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(blob, 1, 0x20));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 20, "
                          "Algorithm = 1.3.6.1.4.1.32473.1.5.8."));
  SetLastError(kUntouchedError);
  EXPECT_EQ(FALSE, Call({}));
  EXPECT_EQ(87u, GetLastError());
  SetLastError(kUntouchedError);
  char oid[] = "1.2.840.113549.1.1.1";
  EXPECT_EQ(FALSE,
            encode_(1, oid, nullptr, 5, 0, nullptr, &key, &keySize, &parameters, &parametersSize));
  EXPECT_EQ(87u, GetLastError()) << "checked before the algorithm";
  EXPECT_TRUE(Untouched());
}

TEST_F(PublicKeyEncoding, RefusesForeignAlgorithms) {
  const Octets blob = {0x06, 0x02, 0x00, 0x00};
  TraceCapture trace;
  EXPECT_EQ(FALSE, Call(blob, 1, 0, "1.2.840.113549.1.1.1"));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_EQ(FALSE, Call(blob, 1, 0, nullptr));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 0, "
                          "Algorithm = 1.2.840.113549.1.1.1.",
                          "EXT : ZarEncodePublicKeyAndParameters : lpcPublicKeyOID = "
                          "1.2.840.113549.1.1.1, error = 80090008.",
                          "EXT : ZarEncodePublicKeyAndParameters : dwEncodingType=1, dwFlags = 0, "
                          "Algorithm = (null).",
                          "EXT : ZarEncodePublicKeyAndParameters : lpcPublicKeyOID = (null), error "
                          "= 80090008."));
  EXPECT_TRUE(Untouched());
}

TEST_F(PublicKeyEncoding, WithoutMemory) {
  allocation.refuse = true;
  EXPECT_EQ(FALSE, Call({0x06, 0x02, 0x00, 0x00}));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_TRUE(Untouched());
}

TEST_F(PublicKeyEncoding, ALengthWhoseSuccessorDoesNotFit) {
  const GuardedMemory blob(Octets{0x06, 0x02, 0x00, 0x00});
  char oid[] = "1.2.643.2.2.19";
  EXPECT_EQ(FALSE, encode_(1, oid, blob.Data(), 0xFFFFFFFF, 0, nullptr, &key, &keySize, &parameters,
                           &parametersSize));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_TRUE(Untouched());
  EXPECT_TRUE(allocation.calls.empty());
}

}  // namespace
}  // namespace zarext::test
