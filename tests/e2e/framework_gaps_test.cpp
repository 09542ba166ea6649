// Where the framework of the tests is not Windows', each shown by a call that does no harm. The day
// that Wine closes a gap its test says so, and what fills the gap is used no longer. What Windows
// does is known from its documentation, or not at all: then the test shows it in its report.
#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <array>
#include <string>

#include "support/certificates.h"
#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/message_gaps.h"
#include "support/platform.h"
#include "support/prepared_process.h"
#include "support/provider_calls.h"
#include "support/store_gaps.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr char kOid[] = "1.3.6.1.4.1.32473.999.4";

TEST(FrameworkGaps, RecordsOf48OctetsAreRefused) { EXPECT_EQ(IsWine(), RefusesShortRecords()); }

TEST(FrameworkGaps, PhysicalStoresAreNotKept) { EXPECT_EQ(IsWine(), HasNoPhysicalStores()); }

TEST(FrameworkGaps, AWalkThatDeletesDoesNotEnd) {
  EXPECT_EQ(IsWine(), EnumerationRepeatsADeletedCertificate());
}

TEST(FrameworkGaps, ADeletedCertificateIsNotReleased) {
  EXPECT_EQ(IsWine(), DeletionKeepsTheReference());
}

TEST(FrameworkGaps, AddingAgainLeaksAReference) {
  EXPECT_EQ(IsWine(), test::AddingAgainLeaksAReference());
}

constexpr DWORD kClosedBehind = 1;
ZAREXT_CHILD(closesAStore) {
  SetErrorMode(SEM_NOGPFAULTERRORBOX);
  return StoreIsClosedBehindTheCallback() ? static_cast<int>(kClosedBehind) : 2;
}

// In a process of its own: only for a framework that does so is the call known to be safe.
TEST(FrameworkGaps, AStoreIsClosedBehindItsCloseCallback) {
  const DWORD end = ChildProcess("closesAStore").Wait().value_or(259);
  RecordProperty("end", static_cast<int>(end));
  if (IsWine()) {
    EXPECT_EQ(kClosedBehind, end);
  }
}

TEST(FrameworkGaps, TheKeysImportIsLookedUpByTheContentsAlgorithm) {
  EXPECT_EQ(IsWine(), DispatchOfImport().byContent);
}

TEST(FrameworkGaps, TheFirstRecipientIsHandedOutForTheSecond) {
  EXPECT_EQ(IsWine() ? 0u : 1u, DispatchOfImport().recipient);
}

TEST(FrameworkGaps, ContentAlgorithmsOfWindowsOwnAreUnknown) {
  EXPECT_EQ(IsWine(), ContentAlgorithmIsUnknown("2.16.840.1.101.3.4.1.2"));
  EXPECT_FALSE(ContentAlgorithmIsUnknown("1.2.840.113549.3.7"));
}

// Functions of the process' own for the framework to call.
template <typename Function>
void Install(const char* name, DWORD encoding, const char* oid, Function* function) {
  const CRYPT_OID_FUNC_ENTRY entry = {oid, reinterpret_cast<void*>(function)};
  Must(CryptInstallOIDFunctionAddress(nullptr, encoding, name, 1, &entry, 0),
       "CryptInstallOIDFunctionAddress");
}

void OpenEnveloped(const char* contentOid) {
  CMSG_ENVELOPED_ENCODE_INFO info = {};
  info.cbSize = sizeof info;
  info.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(contentOid);
  CryptMsgClose(CryptMsgOpenToEncode(kEncoding, 0, CMSG_ENVELOPED, &info, nullptr, nullptr));
}

DWORD sizeSeen = 0;
BOOL WINAPI GenerateContentKey(PCMSG_CONTENT_ENCRYPT_INFO info, DWORD /*flags*/,
                               void* /*reserved*/) {
  sizeSeen = info->cbSize;
  return CryptGenKey(info->hCryptProv, CALG_3DES, CRYPT_EXPORTABLE, &info->hContentEncryptKey);
}

TEST(FrameworkGaps, TheRecordOfAContentKeyEndsAfter104Octets) {
  constexpr char kTripleDes[] = "1.2.840.113549.3.7";
  Install(CMSG_OID_GEN_CONTENT_ENCRYPT_KEY_FUNC, X509_ASN_ENCODING, kTripleDes,
          &GenerateContentKey);
  OpenEnveloped(kTripleDes);
  EXPECT_EQ(IsWine() ? 104u : 128u, sizeSeen);
}

int calls = 0;
BOOL WINAPI CountGeneration(HCRYPTPROV* /*provider*/, PCRYPT_ALGORITHM_IDENTIFIER /*content*/,
                            PVOID /*auxiliary*/, PCERT_PUBLIC_KEY_INFO /*recipient*/,
                            PFN_CMSG_ALLOC /*allocate*/, HCRYPTKEY* /*key*/, BYTE** /*parameters*/,
                            DWORD* /*size*/) {
  ++calls;
  return FALSE;
}

// Called where no function of the newer form is there.
TEST(FrameworkGaps, TheOlderFormOfMessageFunctionsIsNotCalled) {
  constexpr char kDes[] = "1.3.14.3.2.7";
  Install(CMSG_OID_GEN_ENCRYPT_KEY_FUNC, X509_ASN_ENCODING, kDes, &CountGeneration);
  calls = 0;
  OpenEnveloped(kDes);
  EXPECT_EQ(IsWine() ? 0 : 1, calls);
}

BOOL WINAPI CountKeyImport(HCRYPTPROV /*provider*/, DWORD /*encoding*/,
                           PCERT_PUBLIC_KEY_INFO /*info*/, HCRYPTKEY* /*key*/) {
  ++calls;
  return FALSE;
}

Context PlatformsOwnProvider() {
  Context context;
  Must(CryptAcquireContextA(context.Out(), nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT),
       "CryptAcquireContext");
  return context;
}

TEST(FrameworkGaps, TheOlderImportOfAPublicKeyIsNotCalled) {
  Install("CryptDllImportPublicKeyInfo", X509_ASN_ENCODING, kOid, &CountKeyImport);
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kOid);
  calls = 0;
  Key key;
  EXPECT_FALSE(CryptImportPublicKeyInfo(PlatformsOwnProvider().Get(), kEncoding, &info, key.Out()));
  RecordProperty("calls", calls);
  if (IsWine()) {
    EXPECT_EQ(0, calls);
  }
}

BOOL CALLBACK ResolveProvider(CRYPT_PRIVATE_KEY_INFO* /*info*/, HCRYPTPROV* provider,
                              LPVOID /*argument*/) {
  return CryptAcquireContextA(provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT);
}
constexpr int kCalled = 1;
BOOL WINAPI EndCalled(HCRYPTPROV /*provider*/, CRYPT_PRIVATE_KEY_INFO* /*info*/, DWORD /*flags*/,
                      void* /*auxiliary*/) {
  ExitProcess(kCalled);
}

ZAREXT_CHILD(importsAPrivateKey) {
  Install(CRYPT_OID_IMPORT_PRIVATE_KEY_INFO_FUNC, X509_ASN_ENCODING, kOid, &EndCalled);
  // Version 0, the identifier, an octet.
  std::array<BYTE, 24> encoded = {0x30, 0x16, 0x02, 0x01, 0x00, 0x30, 0x0C, 0x06,
                                  0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x81, 0xFD,
                                  0x59, 0x87, 0x67, 0x04, 0x04, 0x03, 0x00, 0x00};
  CRYPT_PKCS8_IMPORT_PARAMS parameters = {};
  parameters.PrivateKey = {static_cast<DWORD>(encoded.size()), encoded.data()};
  parameters.pResolvehCryptProvFunc = &ResolveProvider;
  CryptImportPKCS8(parameters, CRYPT_EXPORTABLE, nullptr, nullptr);
  return 2;
}

// Wine raises the exception of a function that is not there.
TEST(FrameworkGaps, PrivateKeysAreNotImported) {
  constexpr DWORD kUnimplemented = 0x80000100;
  EXPECT_EQ(IsWine() ? kUnimplemented : kCalled, ChildProcess("importsAPrivateKey").Wait());
}

// A store provider that counts the calls of its find and property functions.
BOOL WINAPI CountFind(HCERTSTOREPROV /*store*/, PCCERT_STORE_PROV_FIND_INFO /*what*/,
                      PCCERT_CONTEXT /*previous*/, DWORD /*flags*/, void** /*info*/,
                      PCCERT_CONTEXT* /*found*/) {
  ++calls;
  return FALSE;
}
BOOL WINAPI CountProperty(HCERTSTOREPROV /*store*/, PCCERT_CONTEXT /*context*/, DWORD /*property*/,
                          DWORD /*flags*/, void* /*data*/) {
  ++calls;
  return TRUE;
}
BOOL WINAPI OpenCounted(LPCSTR /*provider*/, DWORD /*encoding*/, HCRYPTPROV_LEGACY /*context*/,
                        DWORD /*flags*/, const void* /*parameter*/, HCERTSTORE store,
                        PCERT_STORE_PROV_INFO info) {
  static std::array<void*, CERT_STORE_PROV_GET_CERT_PROPERTY_FUNC + 1> functions = {};
  functions[CERT_STORE_PROV_FIND_CERT_FUNC] = reinterpret_cast<void*>(&CountFind);
  functions[CERT_STORE_PROV_SET_CERT_PROPERTY_FUNC] = reinterpret_cast<void*>(&CountProperty);
  info->cStoreProvFunc = static_cast<DWORD>(functions.size());
  info->rgpvStoreProvFunc = functions.data();
  info->hStoreProv = store;
  return TRUE;
}

TEST(FrameworkGaps, FindAndPropertyFunctionsOfAStoreAreNotCalled) {
  constexpr char kProvider[] = "zarext counted store";
  Install(CRYPT_OID_OPEN_STORE_PROV_FUNC, 0, kProvider, &OpenCounted);
  const HCERTSTORE store = CertOpenStore(kProvider, 0, 0, 0, nullptr);
  ASSERT_NE(nullptr, store);
  const std::vector<std::uint8_t> octets = MakeCertificate({});
  PCCERT_CONTEXT context = nullptr;
  ASSERT_TRUE(CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, octets.data(),
                                               static_cast<DWORD>(octets.size()),
                                               CERT_STORE_ADD_ALWAYS, &context));
  calls = 0;
  CRYPT_DATA_BLOB name = {};
  EXPECT_TRUE(CertSetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID, 0, &name));
  CertFreeCertificateContext(CertFindCertificateInStore(
      store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_W, L"Subject", nullptr));
  CertFreeCertificateContext(context);
  CertCloseStore(store, 0);
  RecordProperty("calls", calls);
  if (IsWine()) {
    EXPECT_EQ(0, calls);
  }
}

// A key of the OID part of the registry, gone with the object.
struct RemovedOidKey {
  std::string path;
  ~RemovedOidKey() {
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, ("SOFTWARE\\Microsoft\\Cryptography\\OID\\" + path).c_str(),
                    KEY_WOW64_64KEY, 0);
  }
};

char addedOid[] = "1.3.6.1.4.1.32473.999.5";
bool IsAddedRecordKnown() {
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, addedOid, 0) != nullptr;
}
ZAREXT_CHILD(knowsTheAddedRecord) { return IsAddedRecordKnown() ? 1 : 0; }

TEST(FrameworkGaps, RecordsAreReadOnce) {
  ASSERT_FALSE(IsAddedRecordKnown());
  const RemovedOidKey removed{std::string("EncodingType 0\\CryptDllFindOIDInfo\\") + addedOid +
                              "!2"};
  RegisterOidInfo(addedOid, 2, L"zarext-check", 0x6611);
  const bool known = IsAddedRecordKnown();
  RecordProperty("known", known);
  if (IsWine()) {
    EXPECT_FALSE(known);
  }
  EXPECT_EQ(1u, ChildProcess("knowsTheAddedRecord").Wait());
}

TEST(FrameworkGaps, TheExtensionIsFreedBehindEveryCall) {
  constexpr char kFunction[] = "CryptDllImportPublicKeyInfoEx";
  constexpr char kBound[] = "1.3.6.1.4.1.32473.999.6";
  ASSERT_EQ(nullptr, GetModuleHandleA("ZAREXT.dll"));
  const RemovedOidKey removed{std::string("EncodingType 1\\") + kFunction + "\\" + kBound};
  BindOidFunction(kFunction, kBound, "ZarImportPublicKeyInfoEx");
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kBound);
  const Context context = PlatformsOwnProvider();
  Key key;
  TraceCapture trace;
  EXPECT_FALSE(CryptImportPublicKeyInfo(context.Get(), kEncoding, &info, key.Out()));
  EXPECT_THAT(trace.Messages(), testing::Not(testing::IsEmpty()));
  const bool loaded = GetModuleHandleA("ZAREXT.dll") != nullptr;
  RecordProperty("loaded", loaded);
  if (IsWine()) {
    EXPECT_FALSE(loaded);
  }
}

}  // namespace
}  // namespace zarext::test
