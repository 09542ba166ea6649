// What the store tests share: the module with its clock and its store fixes, a provider of
// containers, memory stores, and the section as another process sees it.
#ifndef ZAREXT_TESTS_CONTRACT_STORE_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_STORE_FIXTURE_H_

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "support/certificates.h"
#include "support/container_provider.h"
#include "support/import_patch.h"
#include "support/module_under_test.h"
#include "support/recording_test.h"
#include "support/store_fixes.h"
#include "support/trace_capture.h"

namespace zarext::test {

using OpenStoreFunction = BOOL WINAPI(LPCSTR, DWORD, HCRYPTPROV, DWORD, const void*, HCERTSTORE,
                                      CERT_STORE_PROV_INFO*);

inline constexpr char kProviderStore[] = "Zarvel Store Provider";

// A store as the framework hands it to the open.
class MemoryStore {
 public:
  MemoryStore() : store_(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)) {}
  [[nodiscard]] HCERTSTORE Get() const { return store_.Get(); }

 private:
  UniqueCertStore<0> store_;
};

// A certificate of a store with its key-provider property.
struct StoredCertificate {
  Octets encoded;
  bool hasProperty = false;
  std::wstring container;
  std::wstring provider;  // "(null)" for none
  DWORD providerType = 0;
  DWORD flags = 0;
  DWORD parameterCount = 0;
  DWORD keySpec = 0;
};

inline StoredCertificate Describe(PCCERT_CONTEXT context) {
  StoredCertificate result;
  result.encoded.assign(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
  DWORD size = 0;
  if (CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) {
    std::vector<BYTE> buffer(size);
    CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, buffer.data(), &size);
    const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(buffer.data());
    result.hasProperty = true;
    result.container = info.pwszContainerName == nullptr ? L"(null)" : info.pwszContainerName;
    result.provider = info.pwszProvName == nullptr ? L"(null)" : info.pwszProvName;
    result.providerType = info.dwProvType;
    result.flags = info.dwFlags;
    result.parameterCount = info.cProvParam;
    result.keySpec = info.dwKeySpec;
  }
  return result;
}

inline std::vector<StoredCertificate> Content(HCERTSTORE store) {
  std::vector<StoredCertificate> all;
  PCCERT_CONTEXT context = nullptr;
  while ((context = CertEnumCertificatesInStore(store, context)) != nullptr) {
    all.push_back(Describe(context));
  }
  return all;
}

// The encodings, in the store's order.
inline std::vector<Octets> Encodings(HCERTSTORE store) {
  std::vector<Octets> all;
  for (const StoredCertificate& certificate : Content(store)) {
    all.push_back(certificate.encoded);
  }
  return all;
}

inline UniqueCertContext MakeContext(const Octets& encoded) {
  return UniqueCertContext(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                        static_cast<DWORD>(encoded.size())));
}

// The shared section, mapped beside the module.
class SharedSection {
 public:
  SharedSection()
      : mapping_(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "$zarvel_csp_store_map_name")),
        view_(MapViewOfFile(mapping_.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)) {}
  [[nodiscard]] BYTE* Data() const { return static_cast<BYTE*>(view_.Get()); }
  [[nodiscard]] DWORD Stamp() const { return Word(0); }
  [[nodiscard]] DWORD Size() const { return Word(4); }
  [[nodiscard]] Octets Block() const { return {Data() + 8, Data() + 8 + Size()}; }
  void Put(DWORD stamp, const Octets& block) const {
    Put(stamp, static_cast<DWORD>(block.size()), block);
  }
  void Put(DWORD stamp, DWORD size, const Octets& block) const {
    std::memcpy(Data(), &stamp, 4);
    std::memcpy(Data() + 4, &size, 4);
    std::copy(block.begin(), block.end(), Data() + 8);
  }
  void Wipe() const { std::memset(Data(), 0, kSize); }
  static constexpr std::size_t kSize = 262144;

 private:
  [[nodiscard]] DWORD Word(std::size_t offset) const {
    DWORD word = 0;
    std::memcpy(&word, Data() + offset, sizeof word);
    return word;
  }
  UniqueKernelObject mapping_;
  UniqueView view_;
};

// Where the module opens a system store, with these flags and by this name: the open is refused
// with `error`. One at a time.
class RefusedSystemStore {
 public:
  RefusedSystemStore(DWORD flags, const wchar_t* name, DWORD error) {
    flags_ = flags;
    name_ = name;
    error_ = error;
  }

 private:
  static HCERTSTORE WINAPI Open(LPCSTR provider, DWORD encoding, HCRYPTPROV_LEGACY context,
                                DWORD flags, const void* name) {
    EXPECT_EQ(CERT_STORE_PROV_SYSTEM_W, provider);
    EXPECT_EQ(0u, encoding);
    EXPECT_EQ(0u, context);
    EXPECT_EQ(flags_, flags);
    EXPECT_STREQ(name_, static_cast<const wchar_t*>(name));
    SetLastError(error_);
    return nullptr;
  }
  inline static DWORD flags_ = 0;
  inline static const wchar_t* name_ = nullptr;
  inline static DWORD error_ = 0;
  ImportPatch patch_{Module(), "CRYPT32.dll", "CertOpenStore", &Open};
};

// Every test starts far behind the others in time, so that no listing of theirs is fresh.
class StoreTest : public RecordingTest {
 public:
  StoreTest() : fixes(Module()), clock(Module(), NextStart()), now(lastStart_) {
    UseScript(&provider);
    SharedSection().Wipe();
  }
  ~StoreTest() override {
    UseScript(nullptr);
    EXPECT_EQ(0u, provider.OpenContexts());
    EXPECT_TRUE(provider.BuffersWereClean());
  }

  // The open as the framework calls it.
  BOOL Open(const MemoryStore& store, HCRYPTPROV hCryptProv = 0) {
    info = {};
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0x10000, hCryptProv, 0,
                                                         nullptr, store.Get(), &info);
  }

  // A callback of the table that the last open described.
  template <typename Function>
  Function* Callback(int slot) const {
    return reinterpret_cast<Function*>(info.rgpvStoreProvFunc[slot]);
  }

  void AddContainer(const std::string& name, const std::vector<TestKey>& keys) {
    TestContainer container;
    container.name = name;
    container.keys = keys;
    provider.containers.push_back(container);
  }

  // The module's clock moves on by seconds.
  void Advance(long long seconds) {
    ModuleClock::Advance(seconds);
    now += seconds;
  }

  StoreFixes fixes;
  ModuleClock clock;
  long long now;
  ContainerProvider provider;
  TraceCapture trace;
  CERT_STORE_PROV_INFO info = {};

 private:
  static long long NextStart() { return lastStart_ += 1000000; }
  static inline long long lastStart_ = 1700000000;
};

// A key whose record holds the certificate, in which the serial number stands as given.
inline TestKey KeyWith(std::uint64_t handle, const Octets& certificate, const Octets& serial,
                       std::uint32_t algorithm = 0xAA3A) {
  TestKey key;
  key.handle = handle;
  key.algorithm = algorithm;
  key.certificate = certificate;
  key.serial = serial;
  return key;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_STORE_FIXTURE_H_
