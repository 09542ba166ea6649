// The file as it is shipped: exports, imports, protections, version, size.
#include <gmock/gmock.h>
#include <windows.h>

#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

std::string ModulePath() { return ProgramFolder() + "ZAREXT.dll"; }

const IMAGE_NT_HEADERS64* Headers() {
  const auto base = reinterpret_cast<const BYTE*>(Module());
  return reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
}

TEST(ModuleImage, ExportsTwentySevenFunctionsAtTheirOrdinals) {
  const std::vector<std::pair<WORD, const char*>> exports = {
      {1, "DllRegisterServer"},
      {2, "DllUnregisterServer"},
      {10, "ZarImportPublicKeyInfoEx"},
      {11, "ZarConvertPublicKeyInfo"},
      {12, "ZarEncodePublicKeyAndParameters"},
      {13, "ZarMsgGenContentEncryptKey"},
      {14, "ZarGenEncryptKey"},
      {15, "ZarMsgExportKeyTrans"},
      {16, "ZarExportEncryptKey"},
      {17, "ZarImportEncryptKey"},
      {18, "ZarMsgImportKeyTrans"},
      {19, "ZarCryptEncodeObject"},
      {20, "ZarCryptEncodeObjectEx"},
      {21, "ZarCryptDecodeObject"},
      {23, "ZarCryptFormatObject"},
      {24, "ZarCertVerifyRevocation"},
      {25, "ZarCertVerifyCTLUsage"},
      {26, "ZarCryptFindLocalizedName"},
      {27, "ZarImportPrivKeyFunc"},
      {28, "ZarExportPrivKeyFunc"},
      {30, "ZarImportPublicKeyInfo"},
      {31, "ZarExportPublicKeyInfoEx"},
      {32, "ZarExportPublicKeyInfo"},
      {50, "ZarOpenStoreProv"},
      {101, "SetOtherCert"},
      {102, "SetSelfCert"},
      {103, "DelOtherCert"}};
  ASSERT_EQ(27u, exports.size());
  std::set<WORD> used;
  for (const auto& [ordinal, name] : exports) {
    const FARPROC byName = GetProcAddress(Module(), name);
    EXPECT_NE(nullptr, byName) << name;
    EXPECT_EQ(byName, GetProcAddress(Module(), MAKEINTRESOURCEA(ordinal))) << name;
    used.insert(ordinal);
  }
  for (WORD ordinal = 1; ordinal < 200; ++ordinal) {
    if (!used.contains(ordinal)) {
      EXPECT_EQ(nullptr, GetProcAddress(Module(), MAKEINTRESOURCEA(ordinal))) << ordinal;
    }
  }
  EXPECT_EQ(nullptr, GetProcAddress(Module(), "ZarCryptDecodeObjectEx"));
}

TEST(ModuleImage, ImportsFromFourSystemLibrariesOnly) {
  const auto base = reinterpret_cast<const BYTE*>(Module());
  const IMAGE_DATA_DIRECTORY& directory =
      Headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const std::set<std::string> allowed = {"KERNEL32.dll", "ADVAPI32.dll", "CRYPT32.dll",
                                         "msvcrt.dll"};
  int count = 0;
  for (auto entry =
           reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
       entry->Name != 0; ++entry) {
    EXPECT_EQ(1u, allowed.count(reinterpret_cast<const char*>(base + entry->Name)))
        << reinterpret_cast<const char*>(base + entry->Name);
    ++count;
  }
  EXPECT_GE(count, 3);
}

TEST(ModuleImage, IsProtected) {
  const WORD flags = Headers()->OptionalHeader.DllCharacteristics;
  EXPECT_EQ(0x20, flags & 0x20) << "high-entropy ASLR";
  EXPECT_EQ(0x40, flags & 0x40) << "ASLR";
  EXPECT_EQ(0x100, flags & 0x100) << "NX";
  EXPECT_NE(0u, Headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size);
}

TEST(ModuleImage, StaysUnder256KiB) {
  std::ifstream file(ModulePath(), std::ios::binary | std::ios::ate);
  ASSERT_TRUE(file.is_open());
  EXPECT_LT(file.tellg(), 256 * 1024);
}

TEST(ModuleImage, SaysWhatItIs) {
  const std::string path = ModulePath();
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
  ASSERT_NE(0u, size);
  std::vector<BYTE> block(size);
  ASSERT_TRUE(GetFileVersionInfoA(path.c_str(), 0, size, block.data()));
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &length));
  EXPECT_EQ(0x00010000u, fixed->dwFileVersionMS);
  char* text = nullptr;
  ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\FileVersion",
                             reinterpret_cast<void**>(&text), &length));
  EXPECT_STREQ("1.0.0", text);
  ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\OriginalFilename",
                             reinterpret_cast<void**>(&text), &length));
  EXPECT_STREQ("ZAREXT.dll", text);
  ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\LegalCopyright",
                             reinterpret_cast<void**>(&text), &length));
  EXPECT_STREQ("Copyright: the authors of ZAREXT", text);
}

}  // namespace
}  // namespace zarext::test
