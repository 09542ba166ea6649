// The script that most contract tests use: it records every call, answers from values that the test
// sets, and fails where the test says so.
#ifndef ZAREXT_TESTS_SUPPORT_RECORDING_PROVIDER_H_
#define ZAREXT_TESTS_SUPPORT_RECORDING_PROVIDER_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/event_log.h"
#include "support/scripted_provider.h"

namespace zarext::test {

using Octets = std::vector<std::uint8_t>;

// Lower-case hexadecimal, two digits an octet.
std::string HexText(const Octets& octets);

// Handles are numbered: contexts from 0x1001, user keys from 0x2001, imported keys from 0x3001,
// generated keys from 0x4001.
class RecordingProvider : public ProviderScript {
 public:
  // Answers.
  DWORD providerType = 25;                     // PP_PROVTYPE
  std::map<DWORD, Octets> blobs;               // ExportKey, by blob type
  std::map<DWORD, Octets> providerParameters;  // GetProvParam, by parameter
  std::map<DWORD, Octets> keyParameters;       // GetKeyParam, by parameter
  // Unless 0: what ExportKey reports as the size, with success and without writing more than it was
  // given room for.
  DWORD claimedExportSize = 0;
  // Where the scripted ImportKey leaves *phKey at 0 although it reports success.
  bool importsNullKey = false;

  // The `count`-th call (from 1) of a function fails with `error`: FailCall("ImportKey", 1, 5).
  void FailCall(const std::string& function, int count, DWORD error);

  // One text a call, in order, e.g. "GetProvParam(1001, 16, 4, 0)",
  // "ImportKey(1001, [06020000], 0, 1) = 3001". Numbers: handles and flags in hexadecimal, the rest
  // decimal. Failed calls end with "! <error in hexadecimal>".
  [[nodiscard]] std::vector<std::string> Calls() const { return calls_.Texts(); }
  // The calls but for acquiring and releasing contexts.
  [[nodiscard]] std::vector<std::string> KeyCalls() const;
  void ClearCalls() { calls_.Clear(); }
  // Keys handed out and not destroyed; a key destroyed twice throws.
  [[nodiscard]] const std::set<HCRYPTKEY>& OpenKeys() const { return openKeys_; }
  [[nodiscard]] const std::set<HCRYPTPROV>& OpenContexts() const { return openContexts_; }
  // For keys whose handle nobody has.
  void ForgetKeys() { openKeys_.clear(); }

  BOOL AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                      void* table) override;
  BOOL ReleaseContext(HCRYPTPROV provider, DWORD flags) override;
  BOOL GenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key) override;
  BOOL DestroyKey(HCRYPTPROV provider, HCRYPTKEY key) override;
  BOOL SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, const BYTE* data,
                   DWORD flags) override;
  BOOL GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD flags) override;
  BOOL SetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data, DWORD flags) override;
  BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override;
  BOOL ExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType,
                 DWORD flags, BYTE* data, DWORD* size) override;
  BOOL ImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                 DWORD flags, HCRYPTKEY* key) override;
  BOOL GetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) override;

 private:
  template <typename Work>
  BOOL Record(const std::string& function, const std::string& arguments, Work work);

  std::map<std::string, int> counts_;
  std::map<std::string, std::map<int, DWORD>> failures_;
  EventView calls_{EventKind::kProvider, this};
  std::set<HCRYPTKEY> openKeys_;
  std::set<HCRYPTPROV> openContexts_;
  HCRYPTPROV nextContext_ = 0x1001;
  HCRYPTKEY nextUserKey_ = 0x2001;
  HCRYPTKEY nextImportedKey_ = 0x3001;
  HCRYPTKEY nextGeneratedKey_ = 0x4001;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_RECORDING_PROVIDER_H_
