// One thread of the load test: calls of all exports, whose results and last errors are known.
#ifndef ZAREXT_TESTS_E2E_SOAK_WORKER_H_
#define ZAREXT_TESTS_E2E_SOAK_WORKER_H_

#include <windows.h>

#include <wincrypt.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <random>

#include "e2e/soak_provider.h"
#include "support/module_under_test.h"

namespace zarext::test {

inline constexpr char kMakersOid[] = "1.3.6.1.4.1.32473.1.5.8";
inline constexpr char kNationalOid[] = "1.2.398.3.10.1.1.2.1.1";
inline constexpr char kExchangeOid[] = "1.3.6.1.4.1.32473.1.4.4";
inline constexpr char kContentOid[] = "1.3.6.1.4.1.32473.1.2.4";

// Calls of all threads that gave anything else than they should.
std::atomic<long>& WrongCalls();

// The key that the module imported last in this thread; two exports keep it to themselves. The test
// writes it.
HCRYPTKEY& LastImported();

// The caller's allocator: what it gave out in a thread is freed behind the thread's call.
void* WINAPI AllocateForSoak(size_t size);

class SoakWorker {
 public:
  // A group of exports that one operation calls.
  struct Operation {
    const char* exports;
    // Returns how many calls of exports it made.
    int (*call)(SoakWorker& worker);
  };
  static const std::array<Operation, 24> kOperations;
  // How often each was made, in all threads.
  using Counts = std::array<std::atomic<long>, 24>;

  explicit SoakWorker(unsigned seed);
  ~SoakWorker();
  SoakWorker(const SoakWorker&) = delete;
  SoakWorker& operator=(const SoakWorker&) = delete;

  void Run(long calls, Counts& counts);

 private:
  bool Sometimes() { return random_() % 4 == 0; }
  // From here on this function fails, now and then.
  bool Fail(const char* function);
  // Counts a call that gave anything else than it should.
  template <typename Call>
  bool Check(bool fails, DWORD code, Call call) {
    SetLastError(0x12345678);
    const long result = call();
    const DWORD error = GetLastError();
    const bool right = fails ? result == FALSE && error == code : result == TRUE;
    if (!right) {
      ++WrongCalls();
      std::printf("wrong: result %ld, error %lx, expected %s %lx\n", result, error,
                  fails ? "failure" : "success", code);
    }
    return result == TRUE;
  }
  static CERT_PUBLIC_KEY_INFO Info(const char* oid, Octets& bits);

  // Keys.
  int PassThrough(const char* name);
  int LocalizedName();
  int ExportPublic();
  int ExportPublicEx();
  int ImportPublic();
  int ImportPublicEx();
  int Convert();
  int Encode();
  int ExportPrivate();
  int ImportPrivate();
  // Message keys.
  int GenerateForMessage();
  int Generate();
  int ExportForMessage();
  int ExportForKey();
  int ImportEncoded();
  int ImportForMessage();
  // Stores and registration.
  int UseStore();
  int UseSystemStores();
  int Registration();

  std::mt19937 random_;
  ProviderContext context_;
  HCRYPTKEY contentKey_ = 0;
  Octets bits_, octetString_, wrapped_, block_, mine_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_SOAK_WORKER_H_
