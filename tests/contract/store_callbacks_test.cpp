// The thin callbacks of the table.
#include "store_fixture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string UpperHex(const void* pointer) {
  char text[20] = {};
  snprintf(text, sizeof text, "%X", static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pointer)));
  return text;
}

std::string LowerHex(const void* pointer) {
  char text[20] = {};
  snprintf(text, sizeof text, "%x", static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pointer)));
  return text;
}

class StoreCallbacks : public StoreTest {
 public:
  StoreCallbacks() {
    EXPECT_EQ(1, Open(store));
    CertAddCertificateContextToStore(store.Get(), context.Get(), CERT_STORE_ADD_ALWAYS, nullptr);
    provider.ClearCalls();
    trace.Clear();
    handle = UpperHex(store.Get());
    locks_ = 0;
    SetLastError(4711);
  }
  ~StoreCallbacks() override {
    EXPECT_THAT(provider.Calls(), IsEmpty());
    EXPECT_EQ(0, locks_);
  }

  MemoryStore store;
  const Octets encoded = MakeCertificate({.signatureOid = "1.2.643.2.2.3"});
  UniqueCertContext context = MakeContext(encoded);
  std::string handle;

 private:
  // None of these waits for anybody.
  static void WINAPI CountEnter(LPCRITICAL_SECTION section) {
    ++locks_;
    EnterCriticalSection(section);
  }
  static DWORD WINAPI CountWait(HANDLE object, DWORD milliseconds) {
    ++locks_;
    return WaitForSingleObject(object, milliseconds);
  }
  static inline int locks_;
  const ImportPatch enter_{Module(), "KERNEL32.dll", "EnterCriticalSection", &CountEnter};
  const ImportPatch wait_{Module(), "KERNEL32.dll", "WaitForSingleObject", &CountWait};
};

using CloseFunction = BOOL WINAPI(HCERTSTOREPROV, DWORD);
using ReadFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, PCCERT_CONTEXT*);
using DeleteFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD);
using FindFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_STORE_PROV_FIND_INFO, PCCERT_CONTEXT, DWORD,
                                 void**, PCCERT_CONTEXT*);
using FreeFindFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, void*, DWORD);
using GetPropertyFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, DWORD, void*,
                                        DWORD*);

std::vector<DWORD> closeFlags;
HCERTSTORE closedStore;
BOOL WINAPI RecordClose(HCERTSTORE closed, DWORD flags) {
  closedStore = closed;
  closeFlags.push_back(flags);
  return TRUE;
}

TEST_F(StoreCallbacks, CloseClosesTheFrameworksStoreByForce) {
  const ImportPatch patch(Module(), "CRYPT32.dll", "CertCloseStore", &RecordClose);
  closeFlags.clear();
  EXPECT_EQ(1, Callback<CloseFunction>(0)(store.Get(), 0xAB));
  EXPECT_THAT(closeFlags, ElementsAre(1u));
  EXPECT_EQ(store.Get(), closedStore);
  // The provider module is bound by now.
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : CertStoreProvCloseCallback [hCertStore = " + handle +
                          "] [dwFlags = AB, hLib = " +
                          LowerHex(GetModuleHandleA("scripted_provider.dll")) + "]"));
}

TEST_F(StoreCallbacks, CloseWithoutAStoreClosesNothing) {
  const ImportPatch patch(Module(), "CRYPT32.dll", "CertCloseStore", &RecordClose);
  closeFlags.clear();
  Callback<CloseFunction>(0)(nullptr, 0);
  EXPECT_THAT(closeFlags, IsEmpty());
  ASSERT_EQ(1u, trace.Messages().size());
  EXPECT_EQ(0u, trace.Messages()[0].find(
                    "EXT : CertStoreProvCloseCallback [hCertStore = 0] [dwFlags = 0, hLib = "));
}

TEST_F(StoreCallbacks, ReadIsRefused) {
  auto result = reinterpret_cast<PCCERT_CONTEXT>(1);
  EXPECT_EQ(0, Callback<ReadFunction>(1)(store.Get(), context.Get(), 0x1F, &result));
  EXPECT_EQ(0, Callback<ReadFunction>(1)(nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(reinterpret_cast<PCCERT_CONTEXT>(1), result);
  EXPECT_EQ(4711u, GetLastError());
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : CertStoreProvReadCertCallback [hCertStore = " + handle +
                              "] [dwFlags = 1F]",
                          "EXT : CertStoreProvReadCertCallback [hCertStore = 0] [dwFlags = 0]"));
}

TEST_F(StoreCallbacks, DeleteIsRefused) {
  EXPECT_EQ(0, Callback<DeleteFunction>(3)(store.Get(), context.Get(), 0));
  EXPECT_EQ(4711u, GetLastError());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : CertStoreProvDeleteCertCallback [hCertStore = " + handle +
                  "] [pszObjId = 1.2.643.2.2.3, size = " + std::to_string(encoded.size()) + "]"));
}

TEST_F(StoreCallbacks, DeleteWithoutAContextIsRefusedLikeAnyOther) {
  EXPECT_EQ(0, Callback<DeleteFunction>(3)(store.Get(), nullptr, 0));
  CERT_CONTEXT empty = {};
  EXPECT_EQ(0, Callback<DeleteFunction>(3)(store.Get(), &empty, 0));
  EXPECT_EQ(4711u, GetLastError());
}

TEST_F(StoreCallbacks, FindLooksInTheFrameworksStore) {
  CERT_STORE_PROV_FIND_INFO find = {};
  find.cbSize = sizeof find;
  find.dwMsgAndCertEncodingType = X509_ASN_ENCODING;
  find.dwFindType = CERT_FIND_EXISTING;
  find.pvFindPara = context.Get();
  void* findHandle = reinterpret_cast<void*>(7);
  PCCERT_CONTEXT found = nullptr;
  auto* const function = Callback<FindFunction>(14);
  EXPECT_EQ(1, function(store.Get(), &find, nullptr, 0x2C, &findHandle, &found));
  ASSERT_NE(nullptr, found);
  EXPECT_EQ(store.Get(), found->hCertStore);
  EXPECT_EQ(reinterpret_cast<void*>(7), findHandle);
  // The previous context is taken along; nothing more is TRUE all the same.
  EXPECT_EQ(1, function(store.Get(), &find, found, 0, nullptr, &found));
  EXPECT_EQ(nullptr, found);
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : CertStoreProvFindCert [hCertStore = " + handle + "] [dwFlags = 2C]",
                  "EXT : CertStoreProvFindCert [hCertStore = " + handle + "] [dwFlags = 0]"));
}

TEST_F(StoreCallbacks, FindHandsItsArgumentsOn) {
  const ImportPatch patch(
      Module(), "CRYPT32.dll", "CertFindCertificateInStore",
      +[](HCERTSTORE, DWORD encoding, DWORD flags, DWORD type, const void* parameter,
          PCCERT_CONTEXT previous) WINAPI -> PCCERT_CONTEXT {
        EXPECT_EQ(0x11u, encoding);
        EXPECT_EQ(0x22u, flags);
        EXPECT_EQ(0x33u, type);
        EXPECT_EQ(reinterpret_cast<const void*>(0x44), parameter);
        EXPECT_EQ(reinterpret_cast<PCCERT_CONTEXT>(0x55), previous);
        return reinterpret_cast<PCCERT_CONTEXT>(0x66);
      });
  CERT_STORE_PROV_FIND_INFO find = {};
  find.dwMsgAndCertEncodingType = 0x11;
  find.dwFindFlags = 0x22;
  find.dwFindType = 0x33;
  find.pvFindPara = reinterpret_cast<const void*>(0x44);
  PCCERT_CONTEXT found = nullptr;
  EXPECT_EQ(1, Callback<FindFunction>(14)(
                   store.Get(), &find, reinterpret_cast<PCCERT_CONTEXT>(0x55), 0, nullptr, &found));
  EXPECT_EQ(reinterpret_cast<PCCERT_CONTEXT>(0x66), found);
}

TEST_F(StoreCallbacks, FindWithoutRecordOrPlaceFailsWith87) {
  CERT_STORE_PROV_FIND_INFO find = {};
  find.dwFindType = CERT_FIND_ANY;
  auto found = reinterpret_cast<PCCERT_CONTEXT>(1);
  EXPECT_EQ(0, Callback<FindFunction>(14)(store.Get(), nullptr, nullptr, 0, nullptr, &found));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(reinterpret_cast<PCCERT_CONTEXT>(1), found);
  SetLastError(0);
  EXPECT_EQ(0, Callback<FindFunction>(14)(store.Get(), &find, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(2u, trace.Messages().size());
}

TEST_F(StoreCallbacks, FreeFindOnlyTraces) {
  EXPECT_EQ(1, Callback<FreeFindFunction>(15)(nullptr, nullptr, nullptr, 0));
  EXPECT_THAT(trace.Messages(), ElementsAre("EXT : CertStoreProvFreeFindCert"));
}

TEST_F(StoreCallbacks, GetPropertyReadsTheContextsProperty) {
  BYTE hash[20] = {};
  DWORD size = sizeof hash;
  auto* const function = Callback<GetPropertyFunction>(16);
  EXPECT_EQ(1, function(store.Get(), context.Get(), CERT_SHA1_HASH_PROP_ID, 0, hash, &size));
  EXPECT_EQ(20u, size);
  BYTE expected[20] = {};
  CertGetCertificateContextProperty(context.Get(), CERT_SHA1_HASH_PROP_ID, expected, &size);
  EXPECT_EQ(0, std::memcmp(expected, hash, 20));
  size = 0;
  EXPECT_EQ(1, function(store.Get(), context.Get(), CERT_SHA1_HASH_PROP_ID, 0, nullptr, &size));
  EXPECT_EQ(20u, size);
  EXPECT_EQ(0, function(store.Get(), context.Get(), CERT_FRIENDLY_NAME_PROP_ID, 0, nullptr, &size));
  EXPECT_EQ(static_cast<DWORD>(CRYPT_E_NOT_FOUND), GetLastError());
  EXPECT_EQ("EXT : CertStoreProvGetCertProperty [hCertStore = " + handle + "] [dwPropId = 3]",
            trace.Messages()[0]);
  EXPECT_EQ("EXT : CertStoreProvGetCertProperty [hCertStore = " + handle + "] [dwPropId = B]",
            trace.Messages()[2]);
}

TEST_F(StoreCallbacks, GetPropertyWithoutContextOrLengthFailsWith87) {
  DWORD size = 0;
  EXPECT_EQ(0, Callback<GetPropertyFunction>(16)(store.Get(), nullptr, 3, 0, nullptr, &size));
  EXPECT_EQ(87u, GetLastError());
  SetLastError(0);
  EXPECT_EQ(0,
            Callback<GetPropertyFunction>(16)(store.Get(), context.Get(), 3, 0, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
}

}  // namespace
}  // namespace zarext::test
