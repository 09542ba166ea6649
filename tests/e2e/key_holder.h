// A key of the development provider for the tests through the real framework.
#ifndef ZAREXT_TESTS_E2E_KEY_HOLDER_H_
#define ZAREXT_TESTS_E2E_KEY_HOLDER_H_

#include "contract/provider_fixture.h"

namespace zarext::test {

// A container with a fresh key.
class KeyHolder {
 public:
  explicit KeyHolder(const char* container, ALG_ID algId = AT_SIGNATURE, DWORD type = 25,
                     DWORD flags = 0)
      : context_(NewContainer(container, type)), key_(Generate(context_, algId, flags)) {}

  [[nodiscard]] const Context& Own() const { return context_; }
  [[nodiscard]] HCRYPTPROV Provider() const { return context_.Get(); }
  [[nodiscard]] Octets PublicBlob() const { return test::Export(key_, PUBLICKEYBLOB); }

 private:
  Context context_;
  Key key_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_KEY_HOLDER_H_
