// What the module counts on, and the platforms do differently. Under Wine the other behaviour is
// what is expected, so that a change of Wine is noticed. What is expected of Windows is known from
// its documentation only: the first run there settles it.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include "contract/provider_fixture.h"
#include "support/platform.h"

namespace zarext::test {
namespace {

constexpr char kOid[] = "1.3.6.1.4.1.32473.999.1";

class PlatformFacts : public ProviderTest {};

// The record without the members that came later.
TEST(PlatformRegistration, TakesInformationRecordsOf48Octets) {
  CRYPT_OID_INFO info = {};
  info.cbSize = 48;
  info.pszOID = kOid;
  info.pwszName = L"zarext-check";
  info.dwGroupId = CRYPT_PUBKEY_ALG_OID_GROUP_ID;
  const DWORD code = CodeOf(CryptRegisterOIDInfo(&info, CRYPT_INSTALL_OID_INFO_BEFORE_FLAG));
  EXPECT_EQ(IsWine() ? static_cast<DWORD>(E_INVALIDARG) : 0u, code);
  if (code == 0) {
    EXPECT_TRUE(CryptUnregisterOIDInfo(&info));
  }
}

TEST(PlatformRegistration, AddsAPhysicalStoreToTheUsersMy) {
  char provider[] = "Zarvel Store Provider";
  CERT_PHYSICAL_STORE_INFO info = {};
  info.cbSize = sizeof info;
  info.pszOpenStoreProvider = provider;
  info.dwOpenEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  info.OpenParameters = {sizeof provider - 1, reinterpret_cast<BYTE*>(provider)};
  SetLastError(0);
  const BOOL added = CertRegisterPhysicalStore(L"MY", CERT_SYSTEM_STORE_CURRENT_USER,
                                               L"zarext-check", &info, nullptr);
  EXPECT_EQ(!IsWine(), added != FALSE) << GetLastError();
  // The flags that unregistration passes.
  const BOOL removed = CertUnregisterPhysicalStore(L"MY", 0x10010, L"zarext-check");
  EXPECT_TRUE(removed) << GetLastError();
}

// The module asks the provider for its last session key by giving the context's handle for the
// key's.
TEST_F(PlatformFacts, AProvidersHandleIsTakenForAKey) {
  const Context context = NewContainer("platform facts");
  const Key exchange = Generate(context, 0xA045);
  const Key session = Generate(context, 0x681F, CRYPT_EXPORTABLE);
  DWORD size = 0;
  SetLastError(0);
  const DWORD code =
      CodeOf(CryptExportKey(context.Get(), exchange.Get(), SIMPLEBLOB, 0, nullptr, &size));
  EXPECT_EQ(IsWine() ? static_cast<DWORD>(ERROR_INVALID_PARAMETER) : 0u, code);
}

// The module reads the arcs of identifiers as Windows' atol reads them: a number out of range
// becomes the nearest one. Wine's keeps the lower 32 bits.
TEST(PlatformRuntime, AtolStopsAtTheNearestNumber) {
  using Atol = long(const char*);
  auto* const read = reinterpret_cast<Atol*>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryA("msvcrt.dll"), "atol")));
  ASSERT_NE(nullptr, read);
  constexpr long kLargest = 2147483647;
  constexpr long kSmallest = -kLargest - 1;
  EXPECT_EQ(kLargest, read("2147483647"));
  EXPECT_EQ(12, read(" +12.5"));
  EXPECT_EQ(IsWine() ? kSmallest : kLargest, read("2147483648"));
  EXPECT_EQ(IsWine() ? 1 : kLargest, read("4294967297"));
  EXPECT_EQ(IsWine() ? kLargest : kSmallest, read("-2147483649"));
}

}  // namespace
}  // namespace zarext::test
