#include "support/scripted_provider.h"

#include <stdexcept>

#include "frame/handles.h"
#include "support/child_process.h"

namespace zarext::test {
namespace {

BOOL Refuse() {
  SetLastError(static_cast<DWORD>(NTE_FAIL));
  return FALSE;
}

// The head of the platform's own objects behind HCRYPTPROV and HCRYPTKEY.
struct PlatformProvider {
  DWORD magic;
  LONG references;
  HMODULE library;
  void* functions;
  HCRYPTPROV own;
};
struct PlatformKey {
  DWORD magic;
  PlatformProvider* provider;
  HCRYPTKEY own;
};

void SetText(HKEY key, const char* name, const std::string& text) {
  RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>(text.size() + 1));
}

UniqueRegistryKey CreateMachineKey(const std::string& path) {
  UniqueRegistryKey key;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                      key.Put(), nullptr) != ERROR_SUCCESS) {
    throw std::runtime_error("cannot create " + path);
  }
  return key;
}

}  // namespace

BOOL ProviderScript::AcquireContext(HCRYPTPROV*, const char*, DWORD, void*) { return Refuse(); }
BOOL ProviderScript::ReleaseContext(HCRYPTPROV, DWORD) { return Refuse(); }
BOOL ProviderScript::GenKey(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*) { return Refuse(); }
BOOL ProviderScript::DestroyKey(HCRYPTPROV, HCRYPTKEY) { return Refuse(); }
BOOL ProviderScript::SetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD) {
  return Refuse();
}
BOOL ProviderScript::GetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD) {
  return Refuse();
}
BOOL ProviderScript::SetProvParam(HCRYPTPROV, DWORD, const BYTE*, DWORD) { return Refuse(); }
BOOL ProviderScript::GetProvParam(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD) { return Refuse(); }
BOOL ProviderScript::ExportKey(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*) {
  return Refuse();
}
BOOL ProviderScript::ImportKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*) {
  return Refuse();
}
BOOL ProviderScript::GetUserKey(HCRYPTPROV, DWORD, HCRYPTKEY*) { return Refuse(); }
BOOL ProviderScript::Encrypt(HCRYPTPROV, HCRYPTKEY, BOOL, BYTE*, DWORD*, DWORD) { return Refuse(); }
BOOL ProviderScript::Decrypt(HCRYPTPROV, HCRYPTKEY, BOOL, BYTE*, DWORD*) { return Refuse(); }

void UseScript(ProviderScript* script) {
  static const HMODULE library = [] {
    const HMODULE loaded = LoadLibraryA(ScriptedProviderPath().c_str());
    if (loaded == nullptr) {
      throw std::runtime_error("scripted_provider.dll cannot be loaded");
    }
    RegisterProvider("Zarvel CSP", 25, ScriptedProviderPath());
    RegisterProvider("Zarvel CSP RSA", 1, ScriptedProviderPath());
    return loaded;
  }();
  using SetScript = void(ProviderScript*);
  const FARPROC set = GetProcAddress(library, "SetProviderScript");
  reinterpret_cast<SetScript*>(reinterpret_cast<void*>(set))(script);
}

void OnProviderEntry(void (*hook)(const char* entryPoint)) {
  const HMODULE library = GetModuleHandleA("scripted_provider.dll");
  if (library == nullptr) return;
  using SetHook = void(void (*)(const char*));
  const FARPROC set = GetProcAddress(library, "SetEntryHook");
  reinterpret_cast<SetHook*>(reinterpret_cast<void*>(set))(hook);
}

ProviderContext::ProviderContext(DWORD type, DWORD flags) {
  const char* name = type == 1 ? "Zarvel CSP RSA" : "Zarvel CSP";
  if (!CryptAcquireContextA(&provider_, nullptr, name, type == 1 ? 1 : 25, flags)) {
    throw std::runtime_error("CryptAcquireContext: " + std::to_string(GetLastError()));
  }
}

ProviderContext::~ProviderContext() { CryptReleaseContext(provider_, 0); }

HCRYPTPROV ProviderContext::Own() const {
  return reinterpret_cast<const PlatformProvider*>(provider_)->own;
}

HCRYPTKEY OwnKey(HCRYPTKEY key) {
  return key == 0 ? 0 : reinterpret_cast<const PlatformKey*>(key)->own;
}

std::string ScriptedProviderPath() { return ProgramFolder() + "scripted_provider.dll"; }

void RegisterProvider(const char* name, DWORD type, const std::string& path) {
  const std::string defaults = "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\";
  const UniqueRegistryKey provider = CreateMachineKey(defaults + "Provider\\" + name);
  SetText(provider.Get(), "Image Path", path);
  RegSetValueExA(provider.Get(), "Type", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&type),
                 sizeof type);
  if (type == 25) {
    SetText(CreateMachineKey(defaults + "Provider Types\\Type 025").Get(), "Name", name);
  }
}

}  // namespace zarext::test
