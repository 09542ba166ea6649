// What the tests of the main job share: owners of containers, an authority, and the provider store
// as an application uses it.
#ifndef ZAREXT_TESTS_E2E_FLOW_SETUP_H_
#define ZAREXT_TESTS_E2E_FLOW_SETUP_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <string>
#include <vector>

#include "contract/provider_fixture.h"
#include "contract/store_fixture.h"
#include "support/issued_certificate.h"
#include "support/trace_capture.h"

namespace zarext::test {

inline constexpr char kNationalOid[] = "1.2.398.3.10.1.1.2.1.1";
inline constexpr char kNationalSignature[] = "1.2.398.3.10.1.1.2.3.1";
inline constexpr char kMakersOid[] = "1.3.6.1.4.1.32473.1.5.8";
inline constexpr char kMakersSignature[] = "1.3.6.1.4.1.32473.1.2.2";
inline constexpr ALG_ID kNationalKey = 0x2A4A;
inline constexpr ALG_ID kMakersKey = 0xAA3A;
inline constexpr auto kBadSignature = static_cast<DWORD>(NTE_BAD_SIGNATURE);

// A container with a signature key and the key's public part in certificate form.
class Person {
 public:
  // The national form with `kNationalKey`, the maker's otherwise.
  Person(const char* container, ALG_ID algId);

  [[nodiscard]] const Context& Own() const { return context_; }
  [[nodiscard]] Signer AsSigner() const;
  [[nodiscard]] const SubjectKey& Subject() const { return subject_; }

 private:
  std::string name_;
  bool national_;
  Context context_;
  Key key_;
  SubjectKey subject_;
};

Octets Encoded(const UniqueCertContext& certificate);

// The module registered as its users do, a home of its own for the provider, and the module's
// clock.
class FlowTest : public testing::Test {
 protected:
  FlowTest();

  // The provider store, opened by its name; what a walk finds if `clock` is far enough on.
  static UniqueCertStore<0> OpenStore();
  static UniqueCertContext Find(const UniqueCertStore<0>& store, const wchar_t* name);

  DevHome home_;
  StoreFixes fixes_{Module()};
  ModuleClock clock_;

 private:
  static long long NextStart() { return lastStart_ += 1000000; }
  static inline long long lastStart_ = 1700000000;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_FLOW_SETUP_H_
