// Loads the module in a process of its own, calls it, and shows what it traces. Without an argument
// this is the watching process; it starts itself again with "act" as the one that is watched.
#include <windows.h>

#include <wincrypt.h>

#include <stdio.h>
#include <string.h>

#include <stdexcept>
#include <string>

#include "frame/handles.h"
#include "support/debug_channel.h"

namespace {

using zarext::UniqueKernelObject;
using zarext::UniqueModule;

template <typename Function>
Function* Find(HMODULE module, const char* name) {
  const FARPROC function = GetProcAddress(module, name);
  if (function == nullptr) {
    throw std::runtime_error(std::string("no export ") + name);
  }
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
}

void Call(const char* text, bool good) {
  if (!good) {
    throw std::runtime_error(std::string(text) + " gave a wrong result");
  }
}

// What the watched process does; every call is followed by a line that the watcher prints at its
// place among the trace lines.
int Act() {
  const UniqueModule module(LoadLibraryA("ZAREXT.dll"));
  Call("LoadLibrary", static_cast<bool>(module));
  const auto encode = Find<BOOL WINAPI(DWORD, LPCSTR, const void*, BYTE*, DWORD*)>(
      module.Get(), "ZarCryptEncodeObject");
  Call("ZarCryptEncodeObject",
       encode(X509_ASN_ENCODING, "1.2.643.2.2.19", nullptr, nullptr, nullptr));
  const auto revocation = Find<BOOL WINAPI(DWORD, const CERT_INFO*, DWORD, void*)>(
      module.Get(), "ZarCertVerifyRevocation");
  CERT_INFO info = {};
  char oid[] = "1.2.643.2.2.3";
  info.SignatureAlgorithm.pszObjId = oid;
  Call("ZarCertVerifyRevocation", revocation(X509_ASN_ENCODING, &info, 0, nullptr));
  const auto name = Find<const char * WINAPI(LPCWSTR)>(module.Get(), "ZarCryptFindLocalizedName");
  Call("ZarCryptFindLocalizedName", name(L"Personal") != nullptr);
  return 0;
}

int Watch() {
  zarext::test::DebugChannel channel;
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  std::string line = "\"" + std::string(program) + "\" act";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    throw std::runtime_error("cannot start the watched process");
  }
  const UniqueKernelObject handle(process.hProcess);
  const UniqueKernelObject thread(process.hThread);
  WaitForSingleObject(handle.Get(), 60000);
  DWORD code = 1;
  GetExitCodeProcess(handle.Get(), &code);
  Sleep(200);
  const auto traced = channel.Lines(process.dwProcessId);
  printf("Process %lu loaded ZAREXT.dll and called it; the debugger channel brought:\n",
         process.dwProcessId);
  for (const std::string& text : traced) {
    printf("    %s\n", text.c_str());
  }
  if (code != 0 || traced.size() != 5) {
    throw std::runtime_error("the watched process failed, or not every line arrived");
  }
  printf("%u trace lines, as expected.\n", static_cast<unsigned>(traced.size()));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return argc == 2 && strcmp(argv[1], "act") == 0 ? Act() : Watch();
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "demo: %s\n", error.what());
    return 1;
  }
}
