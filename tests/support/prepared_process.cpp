#include "support/prepared_process.h"

#include <windows.h>

#include <wincrypt.h>

#include <exception>
#include <stdexcept>

#include "frame/handles.h"
#include "support/child_process.h"
#include "support/platform.h"

namespace zarext::test {
namespace {

constexpr char kVariable[] = "ZAREXT_TEST_PREPARED";

UniqueRegistryKey CreateOidKey(const std::string& path) {
  const std::string whole = "SOFTWARE\\Microsoft\\Cryptography\\OID\\" + path;
  UniqueRegistryKey key;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, whole.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                      key.Put(), nullptr) != ERROR_SUCCESS) {
    throw std::runtime_error("cannot create " + whole);
  }
  return key;
}

template <typename Char>
const BYTE* Octets(const Char* text) {
  return reinterpret_cast<const BYTE*>(text);
}

void SetText(const UniqueRegistryKey& key, const char* name, const std::string& text) {
  RegSetValueExA(key.Get(), name, 0, REG_SZ, Octets(text.c_str()),
                 static_cast<DWORD>(text.size() + 1));
}

void Say(const std::string& text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written,
            nullptr);
}

DWORD RunAgain() {
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  std::string line = GetCommandLineA();
  PROCESS_INFORMATION information = {};
  if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &information)) {
    throw std::runtime_error("cannot start the program again");
  }
  const UniqueKernelObject process(information.hProcess);
  const UniqueKernelObject thread(information.hThread);
  WaitForSingleObject(process.Get(), INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.Get(), &code);
  return code;
}

}  // namespace

PreparedProcess::PreparedProcess(void (*prepare)()) {
  if (GetEnvironmentVariableA(kVariable, nullptr, 0) != 0) {
    return;
  }
  DWORD code = 1;
  try {
    prepare();
    SetEnvironmentVariableA(kVariable, "1");
    code = RunAgain();
  } catch (const PlatformRefuses& refusal) {
    code = kRefusedExitCode;
    Say(std::string("no test was run, as expected: ") + refusal.what() + "\n");
  } catch (const std::exception& error) {
    Say(std::string("preparing the tests failed: ") + error.what() + "\n");
  }
  ExitProcess(code);
}

void RegisterOidInfo(const char* oid, unsigned group, const wchar_t* name, unsigned algId) {
  const UniqueRegistryKey key = CreateOidKey(std::string("EncodingType 0\\CryptDllFindOIDInfo\\") +
                                             oid + "!" + std::to_string(group));
  RegSetValueExW(key.Get(), L"Name", 0, REG_SZ, Octets(name),
                 static_cast<DWORD>((std::char_traits<wchar_t>::length(name) + 1) * sizeof *name));
  const DWORD number = algId;
  RegSetValueExA(key.Get(), "Algid", 0, REG_DWORD, Octets(&number), sizeof number);
}

void BindOidFunction(const char* function, const char* oid, const char* exportName) {
  const UniqueRegistryKey key =
      CreateOidKey(std::string("EncodingType 1\\") + function + "\\" + oid);
  SetText(key, "Dll", ProgramFolder() + "ZAREXT.dll");
  SetText(key, "FuncName", exportName);
}

}  // namespace zarext::test
