// Eight threads that mix all exports. Every call's result and last error are known beforehand; at
// the end handles, keys, contexts and memory are as they were.
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <random>

#include "contract/store_fixture.h"
#include "e2e/soak_support.h"
#include "support/provider_handle_as_key.h"

namespace zarext::test {
namespace {

constexpr int kThreads = 8;
constexpr char kMakersOid[] = "1.3.6.1.4.1.32473.1.5.8";
constexpr char kNationalOid[] = "1.2.398.3.10.1.1.2.1.1";
constexpr char kExchangeOid[] = "1.3.6.1.4.1.32473.1.4.4";
constexpr char kContentOid[] = "1.3.6.1.4.1.32473.1.2.4";

// SEQUENCE { 0, SEQUENCE { 1.2.643.2.2.19, NULL }, OCTET STRING of 4 }
const Octets kDocument = {0x30, 0x15, 0x02, 0x01, 0x00, 0x30, 0x0A, 0x06, 0x06, 0x2A, 0x85, 0x03,
                          0x02, 0x02, 0x13, 0x05, 0x00, 0x04, 0x04, 0x5E, 0xC1, 0xE7, 0x0D};

// The provider function that is to fail in this thread's call, and its code.
thread_local const char* failingFunction = nullptr;
thread_local DWORD failingCode = 0;

// A provider for many threads: it counts and answers, and fails where the calling thread says so.
class LoadProvider : public ProviderScript {
 public:
  std::atomic<long> keys{0};
  std::atomic<long> contexts{0};
  const Octets certificate = MakeCertificate({.serial = {0x0A, 0x1B}});
  const Octets serial = {0x0A, 0x1B};

  BOOL AcquireContext(HCRYPTPROV* provider, const char*, DWORD, void*) override {
    ++contexts;
    *provider = reinterpret_cast<HCRYPTPROV>(new Walk);
    return TRUE;
  }
  BOOL ReleaseContext(HCRYPTPROV provider, DWORD) override {
    --contexts;
    delete reinterpret_cast<Walk*>(provider);
    return TRUE;
  }
  BOOL GenKey(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY* key) override { return Give("GenKey", key); }
  BOOL GetUserKey(HCRYPTPROV, DWORD, HCRYPTKEY* key) override { return Give("GetUserKey", key); }
  BOOL ImportKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY* key) override {
    return Give("ImportKey", key);
  }
  BOOL DestroyKey(HCRYPTPROV, HCRYPTKEY) override {
    --keys;
    return TRUE;
  }
  BOOL SetProvParam(HCRYPTPROV, DWORD, const BYTE*, DWORD) override { return TRUE; }
  BOOL ExportKey(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD type, DWORD, BYTE* data,
                 DWORD* size) override {
    static const Octets simple(60, 0x11);
    static const Octets open = {0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00, 0x01, 0x02};
    return Fails("ExportKey") ? FALSE
                              : Answer(type == 0x30         ? kDocument
                                       : type == SIMPLEBLOB ? simple
                                                            : open,
                                       data, size);
  }
  BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override {
    auto& walk = *reinterpret_cast<Walk*>(provider);
    if (flags == CRYPT_FIRST) walk.shown = 0;
    switch (parameter) {
      case PP_PROVTYPE: {
        const DWORD type = 25;
        std::memcpy(data, &type, sizeof type);
        return Fails("GetProvParam") ? FALSE : TRUE;
      }
      case 57:
        return walk.shown++ == 0 ? Answer({'l', 'o', 'a', 'd', 0}, data, size) : NoMore();
      case 64:
        std::memcpy(data + 128, "file", 5);
        return TRUE;
      case 45:
        return walk.shown++ == 0 ? Answer(Record(), data, size) : NoMore();
      default:
        return Answer({'x', 0}, data, size);
    }
  }
  BOOL GetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD) override {
    return Answer(parameter == KP_CERTIFICATE ? certificate : Octets(), data, size);
  }
  BOOL SetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD) override { return TRUE; }

 private:
  struct Walk {
    int shown = 0;
  };
  static bool Fails(const char* function) {
    if (failingFunction == nullptr || std::strcmp(function, failingFunction) != 0) return false;
    SetLastError(failingCode);
    return true;
  }
  BOOL Give(const char* function, HCRYPTKEY* key) {
    if (Fails(function)) return FALSE;
    ++keys;
    *key = ++next_;
    return TRUE;
  }
  static BOOL Answer(const Octets& content, BYTE* data, DWORD* size) {
    if (data != nullptr) {
      if (*size < content.size()) {
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
      }
      std::copy(content.begin(), content.end(), data);
    }
    *size = static_cast<DWORD>(content.size());
    return TRUE;
  }
  static BOOL NoMore() {
    SetLastError(259);
    return FALSE;
  }
  Octets Record() const {
    KeyRecord record = {};
    record.handle = 0x11;
    record.algorithm = 0xAA3A;
    record.serialSize = static_cast<std::uint32_t>(serial.size());
    record.serial = serial.data();
    record.certificateSize = static_cast<std::uint32_t>(certificate.size());
    record.certificate = certificate.data();
    Octets octets(sizeof record);
    std::memcpy(octets.data(), &record, sizeof record);
    return octets;
  }
  std::atomic<HCRYPTKEY> next_{0x1000};
};

// The trace goes on in all threads: each line names the thread that wrote it, and leaves a wrong
// last error behind.
std::atomic<long> traceLines{0};
std::atomic<long> wrongLines{0};
LONG CALLBACK OnTrace(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception->ExceptionRecord;
  if (record->ExceptionCode != 0x40010006) return EXCEPTION_CONTINUE_SEARCH;
  const auto* const text = reinterpret_cast<const char*>(record->ExceptionInformation[1]);
  unsigned long thread = 0;
  int read = 0;
  if (std::sscanf(text, "id=%lu : tm=%n", &thread, &read) != 1 || read == 0 ||
      thread != GetCurrentThreadId() || std::strstr(text, " : EXT : ") == nullptr) {
    ++wrongLines;
  }
  ++traceLines;
  SetLastError(kLastErrorAfterOutput);
  return EXCEPTION_CONTINUE_EXECUTION;
}

// The key that the module imported last in this thread; two exports keep it to themselves.
thread_local HCRYPTKEY lastImported = 0;
decltype(CryptImportKey)* realImport = nullptr;
BOOL WINAPI SpyImport(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY other,
                      DWORD flags, HCRYPTKEY* key) {
  const BOOL done = realImport(provider, data, size, other, flags, key);
  lastImported = done ? *key : 0;
  return done;
}

// The caller's allocator; what it gave out in this thread.
thread_local std::vector<void*> blocks;
void* WINAPI Allocate(size_t size) {
  blocks.push_back(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
  return blocks.back();
}

std::atomic<long> wrongCalls{0};

// The language library's mutex makes a handle when it is first waited for, and keeps it.
class Turn {
 public:
  explicit Turn(SRWLOCK& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
  ~Turn() { ReleaseSRWLockExclusive(&lock_); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  SRWLOCK& lock_;
};
SRWLOCK registrationTurn = SRWLOCK_INIT;
SRWLOCK systemStoreTurn = SRWLOCK_INIT;

// One thread's calls. Each returns how many calls of exports it made.
class Worker {
 public:
  explicit Worker(unsigned seed)
      : random_(seed), mine_(MakeCertificate({.serial = {0x5A, static_cast<std::uint8_t>(seed)}})) {
    Key(&contentKey_);
    bits_.resize(80, 0x22);
    octetString_.assign(66, 0x33);
    octetString_[0] = 0x04;
    octetString_[1] = 0x40;
    wrapped_.assign(180, 0x44);
    block_.resize(4096);
  }
  ~Worker() { CryptDestroyKey(contentKey_); }

  void Run(long calls, std::array<std::atomic<long>, 32>& counts) {
    for (long done = 0; done < calls;) {
      const unsigned choice = random_() % 20000;
      const std::size_t operation = choice == 0     ? 23
                                    : choice <= 10  ? 22
                                    : choice <= 600 ? 21
                                                    : choice % 21;
      const int made = Operate(operation);
      counts[operation] += made;
      done += made;
      failingFunction = nullptr;
      for (void* block : blocks) HeapFree(GetProcessHeap(), 0, block);
      blocks.clear();
    }
  }

 private:
  void Key(HCRYPTKEY* key) const { CryptGenKey(context_.Get(), 0x681F, CRYPT_EXPORTABLE, key); }
  bool Sometimes() { return random_() % 4 == 0; }
  // From here on this function fails, now and then.
  bool Fail(const char* function) {
    if (!Sometimes()) return false;
    failingFunction = function;
    // Above the platform's own codes: one of those has a meaning.
    failingCode = 0x80091000U + random_() % 0x7000;
    return true;
  }
  // Counts a call that gave anything else than it should.
  template <typename Call>
  bool Check(bool fails, DWORD code, Call call) {
    SetLastError(0x12345678);
    const long result = call();
    const DWORD error = GetLastError();
    const bool right = fails ? result == FALSE && error == code : result == TRUE;
    if (!right) {
      ++wrongCalls;
      std::printf("wrong: result %ld, error %lx, expected %s %lx\n", result, error,
                  fails ? "failure" : "success", code);
    }
    return result == TRUE;
  }
  template <typename T>
  T* Block() {
    return reinterpret_cast<T*>(block_.data());
  }
  static CERT_PUBLIC_KEY_INFO Info(const char* oid, Octets& bits) {
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(oid);
    info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), 0};
    return info;
  }
  // A message for one recipient.
  struct Message {
    explicit Message(Octets& bits) {
      keyTrans.KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(kNationalOid);
      keyTrans.RecipientPublicKey = {static_cast<DWORD>(bits.size()), bits.data(), 0};
      recipient.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
      recipient.pKeyTrans = &keyTrans;
      info.cbSize = sizeof info;
      info.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(kContentOid);
      info.cRecipients = 1;
      info.rgCmsRecipients = &recipient;
      info.pfnAlloc = &Allocate;
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
    CMSG_RECIPIENT_ENCODE_INFO recipient = {};
    CMSG_CONTENT_ENCRYPT_INFO info = {};
  };

  int Operate(std::size_t operation) {
    switch (operation) {
      case 0:
        return PassThrough("ZarCryptEncodeObject");
      case 1:
        return PassThrough("ZarCryptEncodeObjectEx");
      case 2:
        return PassThrough("ZarCryptDecodeObject");
      case 3:
        return PassThrough("ZarCryptFormatObject");
      case 4:
        return PassThrough("ZarCertVerifyRevocation");
      case 5:
        return PassThrough("ZarCertVerifyCTLUsage");
      case 6:
        return LocalizedName();
      case 7:
        return ExportPublic();
      case 8:
        return ExportPublicEx();
      case 9:
        return ImportPublic();
      case 10:
        return ImportPublicEx();
      case 11:
        return Convert();
      case 12:
        return Encode();
      case 13:
        return ExportPrivate();
      case 14:
        return ImportPrivate();
      case 15:
        return GenerateForMessage();
      case 16:
        return Generate();
      case 17:
        return ExportForMessage();
      case 18:
        return ExportForKey();
      case 19:
        return ImportEncoded();
      case 20:
        return ImportForMessage();
      case 21:
        return UseStore();
      case 22:
        return UseSystemStores();
      default:
        return Registration();
    }
  }

  int PassThrough(const char* name) {
    Check(false, 0, [&] {
      return Export<BOOL WINAPI(DWORD, const void*, DWORD, DWORD, void*, void*, DWORD, void*,
                                void*)>(name)(1, nullptr, 0, 0, nullptr, nullptr, 0, nullptr,
                                              nullptr);
    });
    return 1;
  }
  int LocalizedName() {
    Check(false, 0, [] {
      return static_cast<long>(
          *Export<const char * WINAPI(const wchar_t*)>("ZarCryptFindLocalizedName")(L"MY") == '\0');
    });
    return 1;
  }
  int ExportPublic() {
    const bool fails = Fail(Sometimes() ? "GetUserKey" : "ExportKey");
    Check(fails, failingCode, [&] {
      DWORD size = 4096;
      return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, void*, DWORD*)>("ZarExportPublicKeyInfo")(
          context_.Get(), 2, 1, block_.data(), &size);
    });
    return 1;
  }
  int ExportPublicEx() {
    const bool fails = Fail(Sometimes() ? "GetProvParam" : "ExportKey");
    Check(fails, failingCode, [&] {
      DWORD size = 0;
      return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*, void*, DWORD*)>(
          "ZarExportPublicKeyInfoEx")(context_.Get(), 2, 1, nullptr, 0, nullptr, nullptr, &size);
    });
    return 1;
  }
  int ImportPublic() {
    CERT_PUBLIC_KEY_INFO info = Info(kMakersOid, bits_);
    HCRYPTKEY key = 0;
    const bool fails = Fail("ImportKey");
    if (Check(fails, failingCode, [&] {
          return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*)>(
              "ZarImportPublicKeyInfo")(context_.Get(), 1, &info, &key);
        })) {
      CryptDestroyKey(key);
    }
    return 1;
  }
  int ImportPublicEx() {
    CERT_PUBLIC_KEY_INFO info = Info(kNationalOid, octetString_);
    HCRYPTKEY key = 0;
    const bool fails = Fail("ImportKey");
    if (Check(fails, failingCode, [&] {
          return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID, DWORD, void*,
                                    HCRYPTKEY*)>("ZarImportPublicKeyInfoEx")(
              context_.Get(), 1, &info, 0x201D, 0, nullptr, &key);
        })) {
      CryptDestroyKey(key);
    }
    return 1;
  }
  int Convert() {
    CERT_PUBLIC_KEY_INFO info = Info(kNationalOid, octetString_);
    BYTE* copy = nullptr;
    DWORD size = 0;
    const bool fails = Sometimes();
    Check(fails, ERROR_INVALID_PARAMETER, [&] {
      return Export<BOOL WINAPI(DWORD, CERT_PUBLIC_KEY_INFO*, DWORD, DWORD, BYTE**, DWORD*)>(
          "ZarConvertPublicKeyInfo")(fails ? 2 : 1, &info, 0, 0, &copy, &size);
    });
    LocalFree(copy);
    return 1;
  }
  int Encode() {
    Octets blob = {0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00, 0x01, 0x02};
    BYTE* copy = nullptr;
    DWORD size = 0;
    const bool fails = Sometimes();
    Check(fails, static_cast<DWORD>(NTE_BAD_ALGID), [&] {
      return Export<BOOL WINAPI(DWORD, const char*, BYTE*, DWORD, DWORD, void*, BYTE**, DWORD*,
                                BYTE**, DWORD*)>("ZarEncodePublicKeyAndParameters")(
          1, fails ? "1.2.840.113549.1.1.1" : kMakersOid, blob.data(),
          static_cast<DWORD>(blob.size()), 0, nullptr, &copy, &size, nullptr, nullptr);
    });
    LocalFree(copy);
    return 1;
  }
  int ExportPrivate() {
    std::memset(block_.data(), 0, block_.size());
    const bool fails = Fail("ExportKey");
    Check(fails, failingCode, [&] {
      DWORD size = 4096;
      return Export<BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, void*, DWORD*)>(
          "ZarExportPrivKeyFunc")(context_.Get(), 1, nullptr, 0, nullptr, block_.data(), &size);
    });
    return 1;
  }
  int ImportPrivate() {
    Octets key = Sometimes() ? kDocument : Octets{1, 2, 3, 4};
    CRYPT_PRIVATE_KEY_INFO info = {};
    info.Algorithm.pszObjId = const_cast<char*>(kMakersOid);
    info.PrivateKey = {static_cast<DWORD>(key.size()), key.data()};
    const bool fails = Fail("ImportKey");
    if (Check(fails, failingCode, [&] {
          return Export<BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*)>(
              "ZarImportPrivKeyFunc")(context_.Get(), &info, 0, nullptr);
        })) {
      CryptDestroyKey(lastImported);
    }
    return 1;
  }
  int GenerateForMessage() {
    Message message(bits_);
    CMSG_CONTENT_ENCRYPT_INFO& info = message.info;
    if (Sometimes()) info.hCryptProv = context_.Get();
    const char* const function = Sometimes() ? "GenKey" : Sometimes() ? "ExportKey" : "ImportKey";
    const bool fails = Fail(function);
    lastImported = 0;
    Check(fails, failingCode, [&] {
      return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, DWORD, void*)>(
          "ZarMsgGenContentEncryptKey")(&info, 0, nullptr);
    });
    if (lastImported != 0) CryptDestroyKey(lastImported);
    if (info.hContentEncryptKey != 0) CryptDestroyKey(info.hContentEncryptKey);
    if (info.dwFlags == 0x8000) CryptReleaseContext(info.hCryptProv, 0);
    return 1;
  }
  int Generate() {
    CERT_PUBLIC_KEY_INFO info = Info(kExchangeOid, bits_);
    CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
    algorithm.pszObjId = const_cast<char*>(kContentOid);
    const bool own = Sometimes();
    HCRYPTPROV provider = own ? context_.Get() : 0;
    HCRYPTKEY key = 0;
    BYTE* parameters = nullptr;
    DWORD size = 0;
    const bool fails = Fail(Sometimes() ? "GenKey" : "ExportKey");
    Check(fails, failingCode, [&] {
      return Export<BOOL WINAPI(HCRYPTPROV*, CRYPT_ALGORITHM_IDENTIFIER*, void*,
                                CERT_PUBLIC_KEY_INFO*, PFN_CMSG_ALLOC, HCRYPTKEY*, BYTE**, DWORD*)>(
          "ZarGenEncryptKey")(&provider, &algorithm, nullptr, &info, &Allocate, &key, &parameters,
                              &size);
    });
    if (key != 0) CryptDestroyKey(key);
    if (!own && provider != 0) CryptReleaseContext(provider, 0);
    return 1;
  }
  int ExportForMessage() {
    Message message(bits_);
    message.info.hCryptProv = context_.Get();
    message.info.hContentEncryptKey = contentKey_;
    CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
    const bool fails = Fail(Sometimes() ? "ImportKey" : "ExportKey");
    Check(fails, failingCode, [&] {
      return Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                                CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*)>(
          "ZarMsgExportKeyTrans")(&message.info, &message.keyTrans, &output, 0, nullptr);
    });
    return 1;
  }
  int ExportForKey() {
    CERT_PUBLIC_KEY_INFO info = Info(kExchangeOid, bits_);
    const bool fails = Fail(Sometimes() ? "ImportKey" : "ExportKey");
    Check(fails, failingCode, [&] {
      DWORD size = 4096;
      return Export<BOOL WINAPI(HCRYPTPROV, HCRYPTKEY, CERT_PUBLIC_KEY_INFO*, BYTE*, DWORD*)>(
          "ZarExportEncryptKey")(context_.Get(), contentKey_, &info, block_.data(), &size);
    });
    return 1;
  }
  int ImportEncoded() {
    CRYPT_ALGORITHM_IDENTIFIER content = {};
    content.pszObjId = const_cast<char*>(kContentOid);
    CRYPT_ALGORITHM_IDENTIFIER keyAlgorithm = {};
    keyAlgorithm.pszObjId = const_cast<char*>(kExchangeOid);
    HCRYPTKEY key = 0;
    const bool fails = Fail("ImportKey");
    if (Check(fails, failingCode, [&] {
          return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CRYPT_ALGORITHM_IDENTIFIER*,
                                    CRYPT_ALGORITHM_IDENTIFIER*, BYTE*, DWORD, HCRYPTKEY*)>(
              "ZarImportEncryptKey")(context_.Get(), 1, &content, &keyAlgorithm, wrapped_.data(),
                                     60, &key);
        })) {
      CryptDestroyKey(key);
    }
    return 1;
  }
  int ImportForMessage() {
    CRYPT_ALGORITHM_IDENTIFIER content = {};
    content.pszObjId = const_cast<char*>(kContentOid);
    CMSG_KEY_TRANS_RECIPIENT_INFO keyTrans = {};
    keyTrans.KeyEncryptionAlgorithm.pszObjId = const_cast<char*>(kNationalOid);
    keyTrans.EncryptedKey = {180, wrapped_.data()};
    CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = context_.Get();
    para.pKeyTrans = &keyTrans;
    HCRYPTKEY key = 0;
    const bool fails = Fail("ImportKey");
    if (Check(fails, failingCode, [&] {
          return Export<BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                                    DWORD, void*, HCRYPTKEY*)>("ZarMsgImportKeyTrans")(
              &content, &para, 0, nullptr, &key);
        })) {
      CryptDestroyKey(key);
    }
    return 1;
  }

  // An open, and every callback of the store.
  int UseStore() {
    ModuleClock::Advance(2);
    const MemoryStore store;
    CERT_STORE_PROV_INFO info = {};
    const bool fails = Fail("GetProvParam");
    const bool isOpen = Check(fails, failingCode, [&] {
      return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0x10000, context_.Get(),
                                                           0, nullptr, store.Get(), &info);
    });
    failingFunction = nullptr;
    if (!isOpen) return 1;
    const auto callback = [&]<typename Function>(Function*, int slot) {
      return reinterpret_cast<Function*>(info.rgpvStoreProvFunc[slot]);
    };
    CERT_STORE_PROV_FIND_INFO what = {};
    what.dwMsgAndCertEncodingType = X509_ASN_ENCODING;
    what.dwFindType = CERT_FIND_ANY;
    PCCERT_CONTEXT found = nullptr;
    using Find = BOOL WINAPI(HCERTSTOREPROV, PCCERT_STORE_PROV_FIND_INFO, PCCERT_CONTEXT, DWORD,
                             void**, PCCERT_CONTEXT*);
    Check(false, 0, [&] {
      return callback(static_cast<Find*>(nullptr), 14)(store.Get(), &what, nullptr, 0, nullptr,
                                                       &found);
    });
    if (found == nullptr) {
      ++wrongCalls;
      return 2;
    }
    using Property = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD, DWORD, void*, DWORD*);
    Check(false, 0, [&] {
      DWORD size = 4096;
      return callback(static_cast<Property*>(nullptr), 16)(
          store.Get(), found, CERT_KEY_PROV_INFO_PROP_ID, 0, block_.data(), &size);
    });
    using Write = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD);
    Check(false, 0,
          [&] { return callback(static_cast<Write*>(nullptr), 2)(store.Get(), found, 1); });
    Check(true, 0x12345678,
          [&] { return callback(static_cast<Write*>(nullptr), 3)(store.Get(), found, 0); });
    CertFreeCertificateContext(found);
    return 5;
  }

  // In turn: the platform of the tests loses registry handles when threads write a system store at
  // the same time, also without the module.
  int UseSystemStores() {
    const Turn turn(systemStoreTurn);
    using Set = BOOL WINAPI(int, DWORD, const BYTE*, DWORD);
    const auto size = static_cast<DWORD>(mine_.size());
    const DWORD index = random_() % 4 + 1;
    Check(false, 0, [&] { return Export<Set>("SetOtherCert")(0, index, mine_.data(), size); });
    Check(false, 0, [&] { return Export<Set>("DelOtherCert")(0, index, mine_.data(), size); });
    Check(false, 0, [&] {
      return Export<BOOL WINAPI(int, const char*, DWORD, const BYTE*, DWORD)>("SetSelfCert")(
          0, "c", 1, mine_.data(), size);
    });
    Check(false, 0, [&] { return Export<Set>("DelOtherCert")(0, 4, mine_.data(), size); });
    return 4;
  }

  // Not at the same time, as the interface has it. The platform of the tests refuses the records,
  // so that registering ends with the first.
  int Registration() {
    const Turn turn(registrationTurn);
    const HRESULT registered = Export<HRESULT WINAPI()>("DllRegisterServer")();
    const HRESULT removed = Export<HRESULT WINAPI()>("DllUnregisterServer")();
    if ((registered != S_OK && registered != E_UNEXPECTED) || removed != S_OK) ++wrongCalls;
    return 2;
  }

  std::mt19937 random_;
  ProviderContext context_;
  HCRYPTKEY contentKey_ = 0;
  Octets bits_, octetString_, wrapped_, block_, mine_;
};

const char* const kNames[] = {"ZarCryptEncodeObject",
                              "ZarCryptEncodeObjectEx",
                              "ZarCryptDecodeObject",
                              "ZarCryptFormatObject",
                              "ZarCertVerifyRevocation",
                              "ZarCertVerifyCTLUsage",
                              "ZarCryptFindLocalizedName",
                              "ZarExportPublicKeyInfo",
                              "ZarExportPublicKeyInfoEx",
                              "ZarImportPublicKeyInfo",
                              "ZarImportPublicKeyInfoEx",
                              "ZarConvertPublicKeyInfo",
                              "ZarEncodePublicKeyAndParameters",
                              "ZarExportPrivKeyFunc",
                              "ZarImportPrivKeyFunc",
                              "ZarMsgGenContentEncryptKey",
                              "ZarGenEncryptKey",
                              "ZarMsgExportKeyTrans",
                              "ZarExportEncryptKey",
                              "ZarImportEncryptKey",
                              "ZarMsgImportKeyTrans",
                              "ZarOpenStoreProv and callbacks",
                              "SetOtherCert, SetSelfCert, DelOtherCert",
                              "DllRegisterServer, DllUnregisterServer"};

TEST(SoakThreads, EightThreadsMixAllExports) {
  const long calls = SoakNumber("ZAREXT_SOAK_CALLS", 24000);
  LoadProvider provider;
  UseScript(&provider);
  const StoreFixes fixes(Module());
  const ModuleClock clock(Module(), 1700000000);
  const ProviderHandleAsKey handleAsKey;
  const ImportPatch spy(Module(), "ADVAPI32.dll", "CryptImportKey", &SpyImport);
  realImport = spy.Original<decltype(CryptImportKey)>();
  // Without a log file a refusal would close a descriptor of the process.
  { const UniqueFile log(fopen("c:\\zarext.log", "wb")); }
  void* const handler = AddVectoredExceptionHandler(1, &OnTrace);
  std::array<std::atomic<long>, 32> counts{};
  const auto run = [&](long all) {
    struct Start {
      unsigned seed;
      long calls;
      std::array<std::atomic<long>, 32>* counts;
    };
    std::vector<Start> starts;
    for (unsigned seed = 1; seed <= kThreads; ++seed) {
      starts.push_back({seed, all / kThreads, &counts});
    }
    // Threads of the system's: those of the language library keep handles for the next.
    std::vector<UniqueKernelObject> threads;
    for (Start& one : starts) {
      threads.emplace_back(CreateThread(
          nullptr, 0,
          [](void* parameter) WINAPI -> DWORD {
            const auto& start = *static_cast<const Start*>(parameter);
            Worker(start.seed).Run(start.calls, *start.counts);
            return 0;
          },
          &one, 0, nullptr));
    }
    for (const UniqueKernelObject& thread : threads) WaitForSingleObject(thread.Get(), INFINITE);
  };
  run(calls / 5);
  const SoakUsage start;
  const auto begin = GetTickCount64();
  run(calls - calls / 5);
  const auto milliseconds = GetTickCount64() - begin;
  const SoakUsage end;
  RemoveVectoredExceptionHandler(handler);
  DeleteFileA("c:\\zarext.log");

  EXPECT_EQ(0, wrongCalls);
  EXPECT_EQ(0, wrongLines);
  EXPECT_EQ(0, provider.keys);
  EXPECT_EQ(0, provider.contexts);
  EXPECT_EQ(start.handles, end.handles);
  EXPECT_LE(end.memory, start.memory + 1048576);
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    std::printf("%8ld %s\n", counts[i].load(), kNames[i]);
    EXPECT_TRUE(calls < 1000000 || counts[i] > 0) << kNames[i];
  }
  std::printf(
      "%ld calls by %d threads, the last %ld in %llu ms; %ld trace lines; handles %zu -> "
      "%zu, memory %zu KiB -> %zu KiB\n",
      calls, kThreads, calls - calls / 5, static_cast<unsigned long long>(milliseconds),
      traceLines.load(), start.handles, end.handles, static_cast<std::size_t>(start.memory / 1024),
      static_cast<std::size_t>(end.memory / 1024));
  UseScript(nullptr);
}

}  // namespace
}  // namespace zarext::test
