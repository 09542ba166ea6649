#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <array>

#include "support/import_patch.h"
#include "support/module_under_test.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using testing::Each;
using testing::ElementsAre;

// Outputs that a pass-through function must leave alone.
struct Untouched {
  std::array<BYTE, 64> memory;
  DWORD size = 0x77;
  Untouched() { memory.fill(0xA5); }
  void Check() const {
    EXPECT_THAT(memory, Each(0xA5));
    EXPECT_EQ(0x77u, size);
  }
};

TEST(PassThrough, CertVerifyCtlUsage) {
  auto* function =
      Export<BOOL WINAPI(DWORD, DWORD, void*, void*, DWORD, void*, void*)>("ZarCertVerifyCTLUsage");
  Untouched out;
  TraceCapture trace;
  EXPECT_EQ(1, function(1, 0xFEDC1234, out.memory.data(), nullptr, 3, out.memory.data(),
                        out.memory.data()));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarCertVerifyCTLUsage : dwSubjectType = fedc1234."));
  out.Check();
}

TEST(PassThrough, CertVerifyRevocationTracesTheSignatureAlgorithm) {
  auto* function =
      Export<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>("ZarCertVerifyRevocation");
  CERT_INFO info = {};
  char oid[] = "1.2.643.2.2.3";
  info.SignatureAlgorithm.pszObjId = oid;
  TraceCapture trace;
  EXPECT_EQ(1, function(0xFEDC1234, &info, 12, nullptr));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarCertVerifyRevocation : dwCertEncodingType = fedc1234, cCrlInfo = 12.",
                  "EXT : ZarCertVerifyRevocation : Algorithm.pszObjId = 1.2.643.2.2.3."));
}

TEST(PassThrough, CertVerifyRevocationWithoutInformationWritesOneLine) {
  auto* function =
      Export<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>("ZarCertVerifyRevocation");
  TraceCapture trace;
  EXPECT_EQ(1, function(1, nullptr, static_cast<DWORD>(-1), nullptr));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarCertVerifyRevocation : dwCertEncodingType = 1, cCrlInfo = -1."));
}

// Where the framework's contract has the revocation type.
TEST(PassThrough, CertVerifyRevocationTakesANumberForNoInformation) {
  auto* function =
      Export<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>("ZarCertVerifyRevocation");
  for (const std::uintptr_t number : {1u, 0xFFFFu}) {
    TraceCapture trace;
    EXPECT_EQ(1, function(1, reinterpret_cast<const CERT_INFO*>(number), 2, nullptr));
    EXPECT_THAT(
        trace.Messages(),
        ElementsAre("EXT : ZarCertVerifyRevocation : dwCertEncodingType = 1, cCrlInfo = 2."));
  }
}

TEST(PassThrough, CertVerifyRevocationShowsAMissingOidAsNull) {
  auto* function =
      Export<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>("ZarCertVerifyRevocation");
  const CERT_INFO info = {};
  TraceCapture trace;
  EXPECT_EQ(1, function(1, &info, 0, nullptr));
  ASSERT_EQ(2u, trace.Messages().size());
  EXPECT_EQ("EXT : ZarCertVerifyRevocation : Algorithm.pszObjId = (null).", trace.Messages()[1]);
}

TEST(PassThrough, ACallersTextIsNoFormat) {
  auto* function =
      Export<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>("ZarCertVerifyRevocation");
  CERT_INFO info = {};
  char oid[] = "%s%n%s%x";
  info.SignatureAlgorithm.pszObjId = oid;
  TraceCapture trace;
  EXPECT_EQ(1, function(1, &info, 0, nullptr));
  ASSERT_EQ(2u, trace.Messages().size());
  EXPECT_EQ("EXT : ZarCertVerifyRevocation : Algorithm.pszObjId = %s%n%s%x.", trace.Messages()[1]);
}

TEST(PassThrough, CryptDecodeObject) {
  auto* function = Export<BOOL WINAPI(DWORD, LPCSTR, const BYTE*, DWORD, DWORD, void*, DWORD*)>(
      "ZarCryptDecodeObject");
  Untouched out;
  TraceCapture trace;
  EXPECT_EQ(1, function(0xFEDC1234, "1.2", nullptr, 0x80000005, 0, out.memory.data(), &out.size));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(
          "EXT : ZarCryptDecodeObject : dwCertEncodingType = fedc1234 (cbEncoded=-2147483643)."));
  out.Check();
}

TEST(PassThrough, CryptEncodeObject) {
  auto* function =
      Export<BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*)>("ZarCryptEncodeObject");
  Untouched out;
  TraceCapture trace;
  EXPECT_EQ(1, function(0xFEDC1234, "1.2", nullptr, out.memory.data(), &out.size));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarCryptEncodeObject : dwCertEncodingType = fedc1234."));
  out.Check();
}

TEST(PassThrough, CryptEncodeObjectEx) {
  auto* function = Export<BOOL WINAPI(DWORD, LPCSTR, const void*, DWORD, void*, void*, DWORD*)>(
      "ZarCryptEncodeObjectEx");
  Untouched out;
  TraceCapture trace;
  EXPECT_EQ(1, function(0xFEDC1234, "1.2", nullptr, 0x8000, nullptr, out.memory.data(), &out.size));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarCryptEncodeObjectEx : dwCertEncodingType = fedc1234."));
  out.Check();
}

TEST(PassThrough, CryptFormatObject) {
  auto* function =
      Export<BOOL WINAPI(DWORD, DWORD, DWORD, void*, LPCSTR, const BYTE*, DWORD, void*, DWORD*)>(
          "ZarCryptFormatObject");
  Untouched out;
  TraceCapture trace;
  EXPECT_EQ(1,
            function(0xFEDC1234, 2, 3, nullptr, "1.2", nullptr, 4, out.memory.data(), &out.size));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarCryptFormatObject : dwCertEncodingType = fedc1234."));
  out.Check();
}

TEST(PassThrough, CryptFindLocalizedNameShowsOneCharacterAndGivesAZeroOctet) {
  auto* function = Export<const char * WINAPI(LPCWSTR)>("ZarCryptFindLocalizedName");
  TraceCapture trace;
  const char* result = function(L"Personal");
  ASSERT_NE(nullptr, result);
  EXPECT_EQ('\0', *result);
  EXPECT_EQ(result, function(nullptr));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarCryptFindLocalizedName : pwszCryptName = P.",
                          "EXT : ZarCryptFindLocalizedName : pwszCryptName = (null)."));
}

TEST(PassThrough, TheLastErrorIsLeftAlone) {
  auto* function =
      Export<BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*)>("ZarCryptEncodeObject");
  SetLastError(4711);
  EXPECT_EQ(1, function(1, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(4711u, GetLastError());
}

// Out of the debugger's channel, by a handler of the host: the last error tells, the result does
// not.
TEST(PassThrough, SucceedsEvenIfSomethingIsThrown) {
  const ImportPatch patch(
      Module(), "KERNEL32.dll", "OutputDebugStringA", +[](const char*) WINAPI { throw 5; });
  for (const char* name :
       {"ZarCertVerifyCTLUsage", "ZarCertVerifyRevocation", "ZarCryptDecodeObject",
        "ZarCryptEncodeObject", "ZarCryptEncodeObjectEx", "ZarCryptFormatObject"}) {
    SetLastError(0);
    EXPECT_EQ(
        1,
        (Export<BOOL WINAPI(DWORD, const void*, DWORD, DWORD, void*, void*, DWORD, void*, void*)>(
            name)(1, nullptr, 0, 0, nullptr, nullptr, 0, nullptr, nullptr)))
        << name;
    EXPECT_EQ(0x8009000Eu, GetLastError()) << name;
  }
  SetLastError(0);
  EXPECT_STREQ("", Export<const char * WINAPI(const wchar_t*)>("ZarCryptFindLocalizedName")(L"MY"));
  EXPECT_EQ(0x8009000Eu, GetLastError());
}

}  // namespace
}  // namespace zarext::test
