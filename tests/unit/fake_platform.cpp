#include "unit/fake_platform.h"

#include <sys/mman.h>
#include <wincrypt.h>
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>

#include "frame/guarded.h"
#include "frame/provider_binding.h"
#include "frame/text.h"
#include "frame/trace.h"
#include "store/provider_records.h"

namespace zarext::test {
namespace {

FakePlatform* current = nullptr;
DWORD lastError = 0;
constexpr std::size_t kSectionSize = 0x40000;

// What the provider's pointers lead to: two readable pages, and nothing behind them.
struct Arena {
  static constexpr std::size_t kSize = 8192;
  Arena()
      : start(static_cast<std::uint8_t*>(
            mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    if (mprotect(start + kSize, kSize, PROT_NONE) != 0) {
      std::abort();
    }
    // A certificate to be, at the end too.
    std::memset(start, 0x30, kSize);
  }
  std::uint8_t* const start;
};
const Arena& ProviderMemory() {
  static const Arena arena;
  return arena;
}

BOOL Fail(DWORD code) {
  lastError = code;
  return FALSE;
}

// One call in eight fails, with a code from the octets.
bool CallFails() {
  if (Platform().input.Octet() % 8 != 7) {
    return false;
  }
  lastError = Platform().input.Word();
  return true;
}

// Writes octets from the input, at most as many as there is room for, and claims any length.
BOOL Answer(BYTE* data, DWORD* size) {
  const std::vector<std::uint8_t> octets = Platform().input.Octets(data == nullptr ? 0 : *size);
  std::copy(octets.begin(), octets.end(), data);
  const std::uint8_t claim = Platform().input.Octet();
  *size = claim == 0xFF ? Platform().input.Word() : static_cast<DWORD>(octets.size());
  return TRUE;
}

// A pointer as a provider might return it.
std::uint8_t* AnyPointer() {
  std::uint8_t* const start = ProviderMemory().start;
  switch (Platform().input.Octet() % 6) {
    case 0:
      return nullptr;
    case 1:
      return reinterpret_cast<std::uint8_t*>(std::uintptr_t{0x10});
    case 2:
      return start + Arena::kSize - 1 - Platform().input.Octet();
    case 3:
      return start + Arena::kSize;
    default:
      return start + Platform().input.Octet();
  }
}

// A store is its certificates' number: how many an enumeration still gives.
struct Store {
  int left;
};

struct Certificate : CERT_CONTEXT {
  CERT_INFO info = {};
};

PCCERT_CONTEXT NewCertificate(const BYTE* encoded, DWORD size) {
  FakePlatform& platform = Platform();
  auto certificate = std::make_unique<Certificate>();
  certificate->dwCertEncodingType = X509_ASN_ENCODING;
  certificate->pbCertEncoded = platform.Keep({encoded, encoded + size});
  certificate->cbCertEncoded = size;
  certificate->pCertInfo = &certificate->info;
  certificate->hCertStore = nullptr;
  CERT_INFO& info = certificate->info;
  const auto blob = [&](std::size_t most) -> CRYPT_DATA_BLOB {
    const std::vector<std::uint8_t> octets = platform.input.Octets(most);
    return {static_cast<DWORD>(octets.size()), platform.Keep(octets)};
  };
  info.SerialNumber = blob(20);
  info.Issuer = blob(30);
  info.Subject = platform.input.Octet() % 2 == 0 ? info.Issuer : blob(30);
  info.SignatureAlgorithm.pszObjId = platform.input.Oid();
  info.SubjectPublicKeyInfo.Algorithm.pszObjId = platform.input.Oid();
  ++platform.certificates;
  return certificate.release();
}

BOOL WINAPI AcquireContext(HCRYPTPROV* context, LPSTR container, DWORD /*flags*/, PVOID /*table*/) {
  if (CallFails()) {
    return FALSE;
  }
  if (container != nullptr) {
    (void)std::strlen(container);
  }
  ++Platform().providerContexts;
  *context = 0x1001;
  return TRUE;
}

BOOL WINAPI ReleaseContext(HCRYPTPROV /*context*/, DWORD /*flags*/) {
  --Platform().providerContexts;
  return TRUE;
}

void FillProfile(CNT_PROFILE* profile) {
  Input& input = Platform().input;
  static constexpr std::string_view kKinds[] = {"file", "kztoken", "idcard", "other"};
  const std::uint8_t form = input.Octet();
  const std::string_view kind = kKinds[form % std::size(kKinds)];
  kind.copy(profile->tokenKind, kind.size());
  profile->secondText[0] = static_cast<char>(form / 4 % 2);
  if (form >= 0xC0) {
    // Anything, anywhere: also texts that do not end.
    auto* const octets = reinterpret_cast<std::uint8_t*>(profile);
    const std::size_t start = input.Word() % sizeof *profile;
    const std::size_t length = input.Word() % (sizeof *profile - start);
    std::memset(octets + start, input.Octet(), length);
  }
}

void FillRecord(CNT_KEY_INFO* record) {
  Input& input = Platform().input;
  record->hKey = input.Octet();
  record->algId = input.Word();
  record->pszContainer = reinterpret_cast<char*>(AnyPointer());
  record->cbSerial = input.Length();
  record->pbSerial = AnyPointer();
  record->cbCert = input.Length();
  record->pbCert = AnyPointer();
}

BOOL WINAPI GetProvParam(HCRYPTPROV /*context*/, DWORD parameter, BYTE* data, DWORD* size,
                         DWORD /*flags*/) {
  // A list ends with the octets at the latest.
  if (Platform().input.IsAtEnd() || CallFails()) {
    return FALSE;
  }
  switch (parameter) {
    case PP_CNT_PROFILE:
      FillProfile(reinterpret_cast<CNT_PROFILE*>(data));
      return TRUE;
    case PP_ENUM_CNT_KEYS:
      FillRecord(reinterpret_cast<CNT_KEY_INFO*>(data));
      *size = Platform().input.Length();
      return TRUE;
    case PP_ENUM_CNT:
      if (Platform().input.Octet() == 0xFF) {
        std::memset(data, 'n', *size);
        return TRUE;
      }
      return Answer(data, size);
    default:
      return Answer(data, size);
  }
}

BOOL WINAPI GetKeyParam(HCRYPTPROV /*context*/, HCRYPTKEY /*key*/, DWORD /*parameter*/, BYTE* data,
                        DWORD* size, DWORD /*flags*/) {
  return CallFails() ? FALSE : Answer(data, size);
}

BOOL WINAPI SetKeyParam(HCRYPTPROV /*context*/, HCRYPTKEY /*key*/, DWORD /*parameter*/,
                        BYTE* /*data*/, DWORD /*flags*/) {
  return CallFails() ? FALSE : TRUE;
}

BOOL WINAPI GetUserKey(HCRYPTPROV /*context*/, DWORD /*keySpec*/, HCRYPTKEY* /*key*/) {
  return Fail(0x80090020);
}

BOOL NewKey(HCRYPTKEY* key) {
  if (CallFails()) {
    return FALSE;
  }
  ++Platform().keys;
  *key = 0x2001;
  return TRUE;
}

std::span<std::uint8_t> Section() {
  alignas(8) static std::uint8_t octets[kSectionSize];
  return octets;
}

volatile std::uint8_t readOctet;

void ReadAll(const BYTE* data, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    readOctet = data[i];
  }
}

}  // namespace

std::uint8_t Input::Octet() {
  if (octets_.empty()) {
    return 0;
  }
  const std::uint8_t octet = octets_.front();
  octets_ = octets_.subspan(1);
  return octet;
}

std::uint32_t Input::Word() {
  std::uint32_t word = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    word |= std::uint32_t{Octet()} << shift;
  }
  return word;
}

std::uint32_t Input::Length() {
  const std::uint8_t length = Octet();
  return length == 0xFF ? Word() : length;
}

std::vector<std::uint8_t> Input::Octets(std::size_t most) {
  const auto count = std::min<std::size_t>({Length(), most, octets_.size()});
  const std::span<const std::uint8_t> taken = octets_.first(count);
  octets_ = octets_.subspan(count);
  return {taken.begin(), taken.end()};
}

char* Input::Oid() {
  static constexpr const char* kKnown[] = {
      "1.3.6.1.4.1.32473.1.5.8",
      "1.2.643.2.2.19",
      "1.2.398.3.10.1.1.1.1",
      "1.2.840.113549.1.1.1",
      "1.3.6.1.4.1.32473.1.4.4",
      "1.3.6.1.4.1.32473.1.2.4",
      "2.5.4.3",
      "1.2.398.3.10.1.1.2.2.1",
      "1.3.6.1.4.1.32473.1.3.4",
      "1.2.643.2.2.21",
      "2.16.840.1.101.3.4.1.2",
      "1.3.6.1.4.1.32473.1.8.8",
  };
  const std::uint8_t choice = Octet();
  if (choice == 0xFF) {
    return nullptr;
  }
  std::vector<std::uint8_t> text;
  if (choice >= 0x80) {
    text = Octets(80);
  } else {
    const std::string_view known = kKnown[choice % std::size(kKnown)];
    text.assign(known.begin(), known.end());
  }
  text.push_back(0);
  return reinterpret_cast<char*>(Platform().Keep(text));
}

FakePlatform::FakePlatform(std::span<const std::uint8_t> octets) : input(octets) {
  current = this;
  lastError = 0;
}

FakePlatform::~FakePlatform() {
  for (void* block : blocks_) {
    std::free(block);
  }
  current = nullptr;
}

std::uint8_t* FakePlatform::Keep(const std::vector<std::uint8_t>& octets) {
  auto* const copy = static_cast<std::uint8_t*>(Allocate(octets.size()));
  std::copy(octets.begin(), octets.end(), copy);
  return copy;
}

void* FakePlatform::Allocate(std::size_t size) {
  blocks_.push_back(std::calloc(size, 1));
  return blocks_.back();
}

FakePlatform& Platform() { return *current; }

std::span<std::uint8_t> SharedSection() { return Section(); }

}  // namespace zarext::test

namespace zarext {

// In place of the module's own trace, which writes to the platform's debugger output: the text is
// formatted, so that every argument is read.
void Trace(const char* format, ...) {
  char text[4096];
  std::va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
}

// Nothing of another compiler is raised here.
void CallTranslatingExceptions(const Callback<>& work) { work(); }

// In place of the module's binding.
void BindProvider() {}
HMODULE ProviderModule() noexcept { return reinterpret_cast<HMODULE>(0x10000); }
const ProviderFunctions& Provider() noexcept {
  static constexpr ProviderFunctions kFunctions = {test::AcquireContext, test::ReleaseContext,
                                                   test::GetProvParam,   test::GetKeyParam,
                                                   test::SetKeyParam,    test::GetUserKey};
  return kFunctions;
}

}  // namespace zarext

using zarext::test::Platform;

DWORD GetLastError() { return zarext::test::lastError; }
void SetLastError(DWORD code) { zarext::test::lastError = code; }
DWORD GetCurrentThreadId() { return 1; }

HLOCAL LocalAlloc(DWORD /*flags*/, SIZE_T size) { return Platform().Allocate(size); }
// Freed with the platform.
HLOCAL LocalFree(HLOCAL /*block*/) { return nullptr; }
BOOL CloseHandle(HANDLE /*handle*/) { return TRUE; }
BOOL FreeLibrary(HMODULE /*library*/) { return TRUE; }
LONG RegCloseKey(HKEY /*key*/) { return 0; }
HANDLE CreateMutexA(void* /*security*/, BOOL /*owned*/, LPCSTR /*name*/) {
  return reinterpret_cast<HANDLE>(0x100);
}
HANDLE CreateFileMappingA(HANDLE /*file*/, void* /*security*/, DWORD /*protection*/,
                          DWORD /*sizeHigh*/, DWORD /*sizeLow*/, LPCSTR /*name*/) {
  return reinterpret_cast<HANDLE>(0x104);
}
void* MapViewOfFile(HANDLE /*mapping*/, DWORD /*access*/, DWORD /*offsetHigh*/, DWORD /*offsetLow*/,
                    SIZE_T /*size*/) {
  ++Platform().views;
  return zarext::test::Section().data();
}
BOOL UnmapViewOfFile(const void* /*view*/) {
  --Platform().views;
  return TRUE;
}
DWORD WaitForSingleObject(HANDLE /*handle*/, DWORD /*milliseconds*/) {
  ++Platform().turns;
  return 0;
}
BOOL ReleaseMutex(HANDLE /*mutex*/) {
  --Platform().turns;
  return TRUE;
}

// Of the section alone, which is all there.
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
BOOL ReadProcessMemory(HANDLE /*process*/, const void* address, void* buffer, SIZE_T size,
                       SIZE_T* copied) {
  std::memcpy(buffer, address, size);
  *copied = size;
  return TRUE;
}
BOOL WriteProcessMemory(HANDLE /*process*/, void* address, const void* buffer, SIZE_T size,
                        SIZE_T* copied) {
  std::memcpy(address, buffer, size);
  *copied = size;
  return TRUE;
}

// The provider's memory and the section; everything else is nothing that a provider may point to.
SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size) {
  *information = {};
  const std::span<std::uint8_t> regions[] = {
      {zarext::test::ProviderMemory().start, zarext::test::Arena::kSize}, zarext::test::Section()};
  for (const auto& region : regions) {
    if (address >= region.data() && address < region.data() + region.size()) {
      information->BaseAddress = region.data();
      information->RegionSize = region.size();
      information->State = MEM_COMMIT;
      information->Protect = PAGE_READWRITE;
    }
  }
  return size;
}

void InitializeCriticalSection(CRITICAL_SECTION* /*section*/) {}
void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}
void EnterCriticalSection(CRITICAL_SECTION* /*section*/) {}
void LeaveCriticalSection(CRITICAL_SECTION* /*section*/) {}
DWORD GetModuleFileNameA(HMODULE /*module*/, LPSTR /*path*/, DWORD /*size*/) { return 0; }
HMODULE GetModuleHandleA(LPCSTR /*name*/) { return nullptr; }

int MultiByteToWideChar(DWORD /*codePage*/, DWORD /*flags*/, LPCSTR text, int /*length*/,
                        LPWSTR wide, int size) {
  const std::size_t count = std::strlen(text) + 1;
  if (count > static_cast<std::size_t>(size)) {
    return 0;
  }
  std::copy_n(reinterpret_cast<const std::uint8_t*>(text), count, wide);
  return static_cast<int>(count);
}

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

HCERTSTORE CertOpenStore(LPCSTR /*provider*/, DWORD /*encodingType*/, HCRYPTPROV /*context*/,
                         DWORD /*flags*/, const void* /*parameter*/) {
  if (zarext::test::CallFails()) {
    return nullptr;
  }
  ++Platform().stores;
  return new zarext::test::Store{0};
}
BOOL CertCloseStore(HCERTSTORE store, DWORD /*flags*/) {
  delete static_cast<zarext::test::Store*>(store);
  --Platform().stores;
  return TRUE;
}
HCERTSTORE CryptGetMessageCertificates(DWORD /*encodingType*/, HCRYPTPROV /*context*/,
                                       DWORD /*flags*/, const BYTE* message, DWORD size) {
  zarext::test::ReadAll(message, size);
  if (zarext::test::CallFails()) {
    return nullptr;
  }
  ++Platform().stores;
  return new zarext::test::Store{Platform().input.Octet() % 4};
}
PCCERT_CONTEXT CertCreateCertificateContext(DWORD /*encodingType*/, const BYTE* encoded,
                                            DWORD size) {
  return zarext::test::CallFails() ? nullptr : zarext::test::NewCertificate(encoded, size);
}
PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous) {
  if (previous != nullptr) {
    CertFreeCertificateContext(previous);
  }
  int& left = static_cast<zarext::test::Store*>(store)->left;
  if (left == 0) {
    return nullptr;
  }
  --left;
  const std::vector<std::uint8_t> encoded = Platform().input.Octets(100);
  return zarext::test::NewCertificate(encoded.data(), static_cast<DWORD>(encoded.size()));
}
BOOL CertFreeCertificateContext(PCCERT_CONTEXT context) {
  delete static_cast<const zarext::test::Certificate*>(context);
  --Platform().certificates;
  return TRUE;
}
BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT /*context*/, DWORD /*property*/,
                                       DWORD /*flags*/, const void* data) {
  const auto& info = *static_cast<const CRYPT_KEY_PROV_INFO*>(data);
  for (const wchar_t* text : {info.pwszContainerName, info.pwszProvName}) {
    while (text != nullptr && *text != 0) {
      ++text;
    }
  }
  return TRUE;
}
BOOL CertAddCertificateContextToStore(HCERTSTORE /*store*/, PCCERT_CONTEXT context,
                                      DWORD /*disposition*/, PCCERT_CONTEXT* /*added*/) {
  zarext::test::ReadAll(context->pbCertEncoded, context->cbCertEncoded);
  return zarext::test::CallFails() ? FALSE : TRUE;
}
BOOL CertAddEncodedCertificateToStore(HCERTSTORE /*store*/, DWORD /*encodingType*/,
                                      const BYTE* encoded, DWORD size, DWORD /*disposition*/,
                                      PCCERT_CONTEXT* /*added*/) {
  zarext::test::ReadAll(encoded, size);
  return zarext::test::CallFails() ? FALSE : TRUE;
}
