// Contexts that the module acquires itself.
#ifndef ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_
#define ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_

#include <windows.h>

#include <wincrypt.h>

#include <string>
#include <vector>

#include "support/import_patch.h"
#include "support/module_under_test.h"

namespace zarext::test {

// Each call of CryptAcquireContextA as "container, provider, type, flags in hexadecimal". One at a
// time.
class RecordedAcquisitions {
 public:
  RecordedAcquisitions() { calls_.clear(); }
  [[nodiscard]] static const std::vector<std::string>& Calls() { return calls_; }

 private:
  static BOOL WINAPI Acquire(HCRYPTPROV* provider, LPCSTR container, LPCSTR name, DWORD type,
                             DWORD flags) {
    char number[20] = {};
    snprintf(number, sizeof number, "%lx", flags);
    calls_.push_back(std::string(container == nullptr ? "null" : container) + ", " +
                     (name == nullptr ? "null" : name) + ", " + std::to_string(type) + ", " +
                     number);
    return CryptAcquireContextA(provider, container, name, type, flags);
  }
  inline static std::vector<std::string> calls_;
  ImportPatch patch_{Module(), "ADVAPI32.dll", "CryptAcquireContextA", &Acquire};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_
