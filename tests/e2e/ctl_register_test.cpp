// zarextctl register and unregister. Each test leaves the module registered.
#include <filesystem>
#include <nlohmann/json.hpp>

#include "contract/store_fixture.h"
#include "e2e/ctl_fixture.h"
#include "support/child_process.h"
#include "support/registry_snapshot.h"
#include "support/regsvr32.h"

namespace zarext::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

using Register = CtlTest;

ToolResult Patched(const std::vector<std::string>& arguments) {
  return RunTool(arguments, ToolBuild::kPatched);
}

const std::string kStoreKey =
    "Software\\Microsoft\\SystemCertificates\\MY\\PhysicalStores\\Zarvel Store Provider";

// What the tool writes and removes is what regsvr32 writes and removes, value for value.
TEST_F(Register, WritesAndRemovesWhatRegsvr32Does) {
  // What this process and the platform's check of a signature leave is there before anything is
  // compared.
  Module();
  RunTool({"status"});
  const RegistryLines registered = ReadRegistry();
  ASSERT_EQ(0u, Regsvr32("/u " + PatchedModule()));
  const RegistryLines unregistered = ReadRegistry();
  ASSERT_NE(registered, unregistered);
  ExpectGolden("register-status-left-over", RunTool({"status"}), {{"loaded by   [^\n]*\n", ""}});

  ExpectGolden("register", Patched({"register", "--yes"}));
  EXPECT_THAT(LinesWithout(registered, ReadRegistry()), IsEmpty());
  EXPECT_THAT(LinesWithout(ReadRegistry(), registered), IsEmpty());

  ExpectGolden("unregister", Patched({"unregister", "--yes"}));
  const json left = json::parse(Patched({"unregister", "--leftovers", "--dry-run", "--json"}).out);
  // Two records, 24 bindings and the empty keys of the functions.
  EXPECT_EQ(2 + 24 + 14, left.at("leftOvers").size());
  EXPECT_THAT(LinesWithout(unregistered, ReadRegistry()), IsEmpty());
  EXPECT_THAT(LinesWithout(ReadRegistry(), unregistered), IsEmpty());

  ExpectGolden("unregister-leftovers-dry-run", Patched({"unregister", "--leftovers", "--dry-run"}));
  EXPECT_THAT(LinesWithout(unregistered, ReadRegistry()), IsEmpty());
  ExpectGolden("unregister-leftovers", Patched({"unregister", "--leftovers", "--yes"}));
  for (const std::string& line : ReadRegistry()) {
    EXPECT_THAT(line, testing::Not(HasSubstr("ZAREXT")));
    EXPECT_THAT(line, testing::Not(HasSubstr("CryptDllExportPrivateKeyInfoEx")));
  }
  ExpectGolden("register-status-nothing", RunTool({"status"}), {{"loaded by   [^\n]*\n", ""}});
  ExpectGolden("unregister-again", Patched({"unregister", "--leftovers", "--yes"}));
  EXPECT_EQ(0u, Patched({"register", "--yes"}).exitCode);
  EXPECT_THAT(LinesWithout(registered, ReadRegistry()), IsEmpty());
}

TEST_F(Register, TheFailingStepIsNamed) {
  // The platform of the tests refuses the first record, as a user without rights is refused.
  const ToolResult result = RunTool({"register", "--yes"});
  EXPECT_EQ(2u, result.exitCode);
  EXPECT_EQ("", result.out);
  ExpectGolden("register-fails", result);
  ExpectGolden("register-fails-json", RunTool({"register", "--yes", "--json"}));
}

TEST_F(Register, WithoutAConsoleNothingIsAsked) {
  const RegistryLines before = ReadRegistry();
  ExpectGolden("register-no-console", Patched({"register"}));
  ExpectGolden("unregister-no-console", Patched({"unregister"}));
  ExpectGolden("register-dry-run", Patched({"register", "--dry-run"}));
  ExpectGolden("register-dry-run-json", Patched({"register", "--dry-run", "--json"}));
  EXPECT_THAT(LinesWithout(before, ReadRegistry()), IsEmpty());
}

// As the installer does, from a folder that is not the tool's.
TEST_F(Register, TheModuleIsWhereMostBindingsSay) {
  const std::string copy = home_.Path() + "\\ZAREXT.dll";
  std::filesystem::copy_file(ProgramFolder() + "ZAREXT.dll", copy);
  EXPECT_EQ(0u, Patched({"register", "--yes", "--dll", copy}).exitCode);
  const json status = json::parse(RunTool({"status", "--json"}).out);
  EXPECT_EQ(json(copy), status.at("module").at("path"));
  EXPECT_EQ(475, status.at("registration").at("bindingsPresent"));
  EXPECT_EQ(0u, Patched({"register", "--yes"}).exitCode);
}

TEST_F(Register, ALeftOverOfAnotherDllStays) {
  const std::string key =
      std::string(kOidRoot) + "EncodingType 1\\CryptDllImportPublicKeyInfo\\1.2.398.3.10.1.4.1.2.1";
  const auto other = RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, key, "Dll", REG_SZ,
                                              TextOctets("C:\\other\\other.dll"));
  const std::string shown = Patched({"unregister", "--leftovers", "--dry-run"}).out;
  EXPECT_THAT(shown, HasSubstr("CryptDllImportPublicKeyInfoEx\\1.2.398.3.10.1.4.1.2.1\n"));
  EXPECT_THAT(shown,
              testing::Not(HasSubstr("CryptDllImportPublicKeyInfo\\1.2.398.3.10.1.4.1.2.1\n")));
}

TEST_F(Register, AnotherFileIsRefused) {
  ExpectGolden("register-no-file", Patched({"register", "--yes", "--dll", "C:\\nowhere.dll"}));
  ExpectGolden("register-other-file", Patched({"register", "--yes", "--dll", DevProviderPath()}));
  // No ANSI code page has both letters; the module would register another path.
  const std::filesystem::path folder = std::filesystem::path(home_.Path()) / L"\u0416\u00E9";
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(ProgramFolder() + "ZAREXT.dll", folder / "ZAREXT.dll");
  const RegistryLines before = ReadRegistry();
  ExpectGolden("register-path",
               Patched({"register", "--yes", "--dll", home_.Path() + "\\Жé\\ZAREXT.dll"}), kHome);
  EXPECT_EQ(before, ReadRegistry());
}

TEST_F(Register, TheUsersStoreAlone) {
  {
    const auto removed = RegistryDamage::RemoveKey(HKEY_CURRENT_USER, kStoreKey);
    const RegistryLines before = ReadRegistry();
    ExpectGolden("register-user-store", Patched({"register", "--user-store", "--yes"}));
    const auto added = LinesWithout(ReadRegistry(), before);
    EXPECT_EQ(7u, added.size());
    for (const std::string& line : added) {
      EXPECT_THAT(line, testing::StartsWith("HKCU\\" + kStoreKey));
    }
  }
  EXPECT_EQ(0u, RunTool({"status"}).exitCode);
}

TEST_F(Register, WithoutAes256OneBindingGoes) {
  const RegistryLines before = ReadRegistry();
  ExpectGolden("register-without-aes256", Patched({"register", "--without-aes256", "--yes"}));
  const std::string key =
      "HKLM\\SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType "
      "1\\CryptMsgDllGenContentEncryptKey\\2.16.840.1.101.3.4.1.42";
  for (const std::string& line : LinesWithout(before, ReadRegistry())) {
    EXPECT_THAT(line, testing::StartsWith(key));
  }
  EXPECT_THAT(LinesWithout(ReadRegistry(), before), IsEmpty());
  const ToolResult status = RunTool({"status", "--json"});
  EXPECT_EQ(0u, status.exitCode);
  const json document = json::parse(status.out);
  EXPECT_EQ(474, document.at("registration").at("bindingsPresent"));
  EXPECT_EQ(1u, document.at("findings").size());
  EXPECT_EQ(0u, Patched({"register", "--yes"}).exitCode);
  EXPECT_THAT(LinesWithout(before, ReadRegistry()), IsEmpty());
}

}  // namespace
}  // namespace zarext::test
