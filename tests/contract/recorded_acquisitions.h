// Contexts that the module acquires itself.
#ifndef ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_
#define ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_

#include <windows.h>

#include <wincrypt.h>

#include <string>
#include <vector>

#include "support/event_log.h"
#include "support/module_under_test.h"
#include "support/recorded_import.h"
#include "support/recording_test.h"

namespace zarext::test {

// Each call of CryptAcquireContextA is a platform event "CryptAcquireContextA(container, provider,
// type, flags in hexadecimal)". One at a time.
class RecordedAcquisitions {
 public:
  [[nodiscard]] std::vector<std::string> Calls() const {
    return LinesOf(calls_.Texts(), {"CryptAcquireContextA("});
  }

 private:
  using Import = RecordedImport<"CryptAcquireContextA", decltype(CryptAcquireContextA)>;

  static std::string Describe(HCRYPTPROV* /*provider*/, LPCSTR container, LPCSTR name, DWORD type,
                              DWORD flags) {
    char number[20] = {};
    snprintf(number, sizeof number, "%lx", flags);
    return std::string(container == nullptr ? "null" : container) + ", " +
           (name == nullptr ? "null" : name) + ", " + std::to_string(type) + ", " + number;
  }

  EventView calls_{EventKind::kPlatform};
  Import import_{Module(), "ADVAPI32.dll", &Describe};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_RECORDED_ACQUISITIONS_H_
