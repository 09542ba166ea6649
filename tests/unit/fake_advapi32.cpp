// The fake platform's calls into a provider.
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>

#include "unit/fake_answers.h"
#include "unit/fake_platform.h"
#include "unit/fake_provider.h"

namespace zarext::test {
namespace {

BOOL NewKey(HCRYPTKEY* key) {
  if (CallFails()) {
    return FALSE;
  }
  ++Platform().keys;
  *key = 0x2001;
  return TRUE;
}

}  // namespace
}  // namespace zarext::test

using zarext::test::Platform;

BOOL CryptAcquireContextA(HCRYPTPROV* provider, LPCSTR /*container*/, LPCSTR /*name*/,
                          DWORD /*type*/, DWORD flags) {
  return zarext::test::AcquireContext(provider, nullptr, flags, nullptr);
}
BOOL CryptGetProvParam(HCRYPTPROV /*provider*/, DWORD parameter, BYTE* data, DWORD* size,
                       DWORD /*flags*/) {
  if (zarext::test::CallFails()) {
    return FALSE;
  }
  if (parameter == PP_PROVTYPE) {
    const DWORD type = Platform().input.Octet() % 2 == 0 ? 25 : 24;
    std::memcpy(data, &type, std::min<std::size_t>(*size, sizeof type));
    return TRUE;
  }
  return zarext::test::Answer(data, size);
}
BOOL CryptSetProvParam(HCRYPTPROV /*provider*/, DWORD /*parameter*/, const BYTE* data,
                       DWORD /*flags*/) {
  zarext::test::ReadAll(data, sizeof(DWORD));
  return TRUE;
}
BOOL CryptGetUserKey(HCRYPTPROV /*provider*/, DWORD /*keySpec*/, HCRYPTKEY* key) {
  return zarext::test::NewKey(key);
}
BOOL CryptGenKey(HCRYPTPROV /*provider*/, ALG_ID /*algorithm*/, DWORD /*flags*/, HCRYPTKEY* key) {
  return zarext::test::NewKey(key);
}
BOOL CryptDestroyKey(HCRYPTKEY /*key*/) {
  --Platform().keys;
  return TRUE;
}
BOOL CryptExportKey(HCRYPTKEY /*key*/, HCRYPTKEY /*exchangeKey*/, DWORD /*blobType*/,
                    DWORD /*flags*/, BYTE* data, DWORD* size) {
  return zarext::test::CallFails() ? FALSE : zarext::test::Answer(data, size);
}
BOOL CryptImportKey(HCRYPTPROV /*provider*/, const BYTE* data, DWORD size,
                    HCRYPTKEY /*exchangeKey*/, DWORD /*flags*/, HCRYPTKEY* key) {
  if (data == nullptr || size == 0) {
    return zarext::test::Fail(ERROR_INVALID_PARAMETER);
  }
  zarext::test::ReadAll(data, size);
  return zarext::test::NewKey(key);
}
