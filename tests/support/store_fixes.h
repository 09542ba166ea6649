// Fills the gaps that the platform of the tests has around certificate stores. Without them a
// delete walk never ends and a close of the provider store is a double free. Sets nothing where
// the platform is Windows itself.
#ifndef ZAREXT_TESTS_SUPPORT_STORE_FIXES_H_
#define ZAREXT_TESTS_SUPPORT_STORE_FIXES_H_

#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <vector>

#include "support/import_patch.h"

namespace zarext::test {

// Import patches on `module`, as long as the object lives. One at a time.
class StoreFixes {
 public:
  explicit StoreFixes(HMODULE module);
  ~StoreFixes();
  StoreFixes(const StoreFixes&) = delete;
  StoreFixes& operator=(const StoreFixes&) = delete;

 private:
  std::vector<std::unique_ptr<ImportPatch>> patches_;
};

// CertDeleteCertificateFromStore for tests: takes the context, as on Windows, on either platform.
BOOL DeleteFromStore(PCCERT_CONTEXT context);

// The module's clock under the test's control: its calls of the C runtime's time give Now().
class ModuleClock {
 public:
  explicit ModuleClock(HMODULE module, long long now);
  static void Set(long long now);
  static long long Now();
  static void Advance(long long seconds);

 private:
  ImportPatch patch_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_STORE_FIXES_H_
