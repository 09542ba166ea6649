// A provider whose behaviour a test writes. scripted_provider.dll stands behind the real advapi32
// (and behind the module's direct binding) and hands every call to the ProviderScript that the test
// process has set.
#ifndef ZAREXT_TESTS_SUPPORT_SCRIPTED_PROVIDER_H_
#define ZAREXT_TESTS_SUPPORT_SCRIPTED_PROVIDER_H_

#include <windows.h>

#include <wincrypt.h>

#include <string>

namespace zarext::test {

// The service-provider functions; handles are the script's own values. Failures set the last error
// and return FALSE, as a provider does. What is not overridden fails with NTE_FAIL.
class ProviderScript {
 public:
  virtual ~ProviderScript() = default;
  virtual BOOL AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                              void* table);
  virtual BOOL ReleaseContext(HCRYPTPROV provider, DWORD flags);
  virtual BOOL GenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key);
  virtual BOOL DestroyKey(HCRYPTPROV provider, HCRYPTKEY key);
  virtual BOOL SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, const BYTE* data,
                           DWORD flags);
  virtual BOOL GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data,
                           DWORD* size, DWORD flags);
  virtual BOOL SetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data, DWORD flags);
  virtual BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                            DWORD flags);
  virtual BOOL ExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType,
                         DWORD flags, BYTE* data, DWORD* size);
  virtual BOOL ImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                         DWORD flags, HCRYPTKEY* key);
  virtual BOOL GetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key);
  virtual BOOL Encrypt(HCRYPTPROV provider, HCRYPTKEY key, BOOL final, BYTE* data, DWORD* size,
                       DWORD bufferSize);
  virtual BOOL Decrypt(HCRYPTPROV provider, HCRYPTKEY key, BOOL final, BYTE* data, DWORD* size);
};

// Sets the object that gets the calls; null: every call fails with NTE_FAIL. Loads and keeps the
// DLL, and registers it as "Zarvel CSP" (type 25) and "Zarvel CSP RSA" (type 1) in the prefix of
// the test.
void UseScript(ProviderScript* script);

// Sets what is called at the start of each of the provider's 25 entry points, with its name, e.g.
// to throw from there; at the end of the two that release a key or a context. Null for nothing. The
// DLL must be loaded.
void OnProviderEntry(void (*hook)(const char* entryPoint));

// A provider context behind the real advapi32, released with the object.
class ProviderContext {
 public:
  explicit ProviderContext(DWORD type = 25, DWORD flags = CRYPT_VERIFYCONTEXT);
  ~ProviderContext();
  ProviderContext(const ProviderContext&) = delete;
  ProviderContext& operator=(const ProviderContext&) = delete;
  [[nodiscard]] HCRYPTPROV Get() const { return provider_; }
  // The handle that the provider gave, behind the platform's own.
  [[nodiscard]] HCRYPTPROV Own() const;

 private:
  HCRYPTPROV provider_ = 0;
};

// The provider's own handle behind a key handle of the platform; 0 for 0.
HCRYPTKEY OwnKey(HCRYPTKEY key);

// Path of scripted_provider.dll.
std::string ScriptedProviderPath();

// Writes the registration of a provider DLL: name, type and file.
void RegisterProvider(const char* name, DWORD type, const std::string& path);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_SCRIPTED_PROVIDER_H_
