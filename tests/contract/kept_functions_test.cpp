// The functions that the DLL keeps although no export calls them, found in their section and called
// there.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

#include "frame/handles.h"
#include "support/certificates.h"
#include "support/module_under_test.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

std::span<const IMAGE_SECTION_HEADER> Sections() {
  const auto base = reinterpret_cast<const BYTE*>(Module());
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  return {IMAGE_FIRST_SECTION(headers), headers->FileHeader.NumberOfSections};
}

std::span<const BYTE> Section(const char* name) {
  for (const IMAGE_SECTION_HEADER& section : Sections()) {
    if (std::strncmp(reinterpret_cast<const char*>(section.Name), name, sizeof section.Name) == 0) {
      return {reinterpret_cast<const BYTE*>(Module()) + section.VirtualAddress,
              section.Misc.VirtualSize};
    }
  }
  return {};
}

template <typename Function>
Function* Kept(std::size_t index) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void* const*>(Section(".kept").data())[index]);
}

constexpr char kFile[] = "kept_functions.tmp";

std::string Content() {
  std::ifstream file(kFile, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(KeptFunctions, AreSevenInTheCodeOfTheModule) {
  const auto kept = Section(".kept");
  const auto code = Section(".text");
  // And the padding of some linkers.
  ASSERT_LE(7 * sizeof(void*), kept.size());
  ASSERT_GT(9 * sizeof(void*), kept.size());
  for (std::size_t index = 0; index < 7; ++index) {
    const BYTE* const address = Kept<const BYTE>(index);
    EXPECT_TRUE(address >= code.data() && address < code.data() + code.size()) << index;
  }
}

TEST(KeptFunctions, DecodeObjectExTracesAndSucceeds) {
  TraceCapture trace;
  DWORD size = 3;
  EXPECT_EQ(1, (Kept<BOOL WINAPI(DWORD, LPCSTR, const BYTE*, DWORD, DWORD, void*, void*, DWORD*)>(
                   0)(0xFEDC1234, "1.2", nullptr, 0x80000005, 0, nullptr, nullptr, &size)));
  EXPECT_EQ(3u, size);
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre(
          "EXT : ZarCryptDecodeObjectEx : dwCertEncodingType = fedc1234 (cbEncoded=-2147483643)."));
}

TEST(KeptFunctions, InternalFileLogAppendsALine) {
  { const UniqueFile file(fopen(kFile, "wb")); }
  Kept<void(const char*, const char*)>(1)(kFile, "a finished %s message");
  EXPECT_THAT(Content(), testing::MatchesRegex("thid=.* : time=.* : a finished %s message\r\n"));
  DeleteFileA(kFile);
}

TEST(KeptFunctions, TheFileRoutinesWriteMeasureAndRead) {
  EXPECT_EQ(0, (Kept<int(const char*, const void*, unsigned)>(4)(kFile, "a\nb", 3)));
  EXPECT_EQ("a\nb", Content());
  unsigned size = 0;
  EXPECT_EQ(0, (Kept<int(const char*, unsigned*)>(2)(kFile, &size)));
  EXPECT_EQ(3u, size);
  char octets[4] = {};
  EXPECT_EQ(0, (Kept<int(const char*, void*, unsigned)>(3)(kFile, octets, 3)));
  EXPECT_STREQ("a\nb", octets);
  DeleteFileA(kFile);
}

TEST(KeptFunctions, TheTwoCallbacksOutsideOfTheTable) {
  const auto encoded = MakeCertificate({});
  const UniqueCertContext context(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                               static_cast<DWORD>(encoded.size())));
  TraceCapture trace;
  EXPECT_EQ(1, (Kept<BOOL WINAPI(void*, PCCERT_CONTEXT, DWORD, DWORD, const void*)>(5)(
                   reinterpret_cast<void*>(0xAB), context.Get(), 11, 0, nullptr)));
  EXPECT_EQ(0, (Kept<BOOL WINAPI(void*, PCCRL_CONTEXT, DWORD)>(6)(nullptr, nullptr, 0)));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : CertStoreProvSetCertPropertyCallback [hCertStore = AB] [dwPropId = B] "
                  "[pszObjId = 1.2.398.3.10.1.1.1.2, size = " +
                      std::to_string(encoded.size()) + "]",
                  "CertStoreProvWriteCRLCallback"));
}

}  // namespace
}  // namespace zarext::test
