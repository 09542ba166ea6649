// The provider of the load tests' threads.
#ifndef ZAREXT_TESTS_E2E_SOAK_PROVIDER_H_
#define ZAREXT_TESTS_E2E_SOAK_PROVIDER_H_

#include <windows.h>

#include <wincrypt.h>

#include <atomic>

#include "support/certificates.h"
#include "support/recording_provider.h"
#include "support/scripted_provider.h"

namespace zarext::test {

// SEQUENCE { 0, SEQUENCE { 1.2.643.2.2.19, NULL }, OCTET STRING of 4 }
inline const Octets kSoakDocument = {0x30, 0x15, 0x02, 0x01, 0x00, 0x30, 0x0A, 0x06,
                                     0x06, 0x2A, 0x85, 0x03, 0x02, 0x02, 0x13, 0x05,
                                     0x00, 0x04, 0x04, 0x5E, 0xC1, 0xE7, 0x0D};

// The provider function that is to fail in this thread's call, none if null, and its code.
struct SoakFailure {
  const char* function = nullptr;
  DWORD code = 0;
};
SoakFailure& NextFailure();

// A provider for many threads: it counts and answers, and fails where the calling thread says so.
class LoadProvider : public ProviderScript {
 public:
  std::atomic<long> keys{0};
  std::atomic<long> contexts{0};
  const Octets certificate = MakeCertificate({.serial = {0x0A, 0x1B}});
  const Octets serial = {0x0A, 0x1B};

  BOOL AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                      void* table) override;
  BOOL ReleaseContext(HCRYPTPROV provider, DWORD flags) override;
  BOOL GenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key) override;
  BOOL GetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) override;
  BOOL ImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                 DWORD flags, HCRYPTKEY* key) override;
  BOOL DestroyKey(HCRYPTPROV provider, HCRYPTKEY key) override;
  BOOL SetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data, DWORD flags) override;
  BOOL ExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType,
                 DWORD flags, BYTE* data, DWORD* size) override;
  BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override;
  BOOL GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD flags) override;
  BOOL SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, const BYTE* data,
                   DWORD flags) override;

 private:
  BOOL Give(const char* function, HCRYPTKEY* key);
  [[nodiscard]] Octets Record() const;

  std::atomic<HCRYPTKEY> next_{0x1000};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_SOAK_PROVIDER_H_
