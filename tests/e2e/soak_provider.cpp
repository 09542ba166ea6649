#include "e2e/soak_provider.h"

#include <algorithm>
#include <cstring>

#include "support/container_provider.h"

namespace zarext::test {
namespace {

struct Walk {
  int shown = 0;
};

bool Fails(const char* function) {
  const SoakFailure& next = NextFailure();
  if (next.function == nullptr || std::strcmp(function, next.function) != 0) return false;
  SetLastError(next.code);
  return true;
}

BOOL Answer(const Octets& content, BYTE* data, DWORD* size) {
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

BOOL NoMore() {
  SetLastError(259);
  return FALSE;
}

}  // namespace

SoakFailure& NextFailure() {
  static thread_local SoakFailure failure;
  return failure;
}

BOOL LoadProvider::AcquireContext(HCRYPTPROV* provider, const char*, DWORD, void*) {
  ++contexts;
  *provider = reinterpret_cast<HCRYPTPROV>(new Walk);
  return TRUE;
}

BOOL LoadProvider::ReleaseContext(HCRYPTPROV provider, DWORD) {
  --contexts;
  delete reinterpret_cast<Walk*>(provider);
  return TRUE;
}

BOOL LoadProvider::GenKey(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY* key) { return Give("GenKey", key); }

BOOL LoadProvider::GetUserKey(HCRYPTPROV, DWORD, HCRYPTKEY* key) { return Give("GetUserKey", key); }

BOOL LoadProvider::ImportKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY* key) {
  return Give("ImportKey", key);
}

BOOL LoadProvider::DestroyKey(HCRYPTPROV, HCRYPTKEY) {
  --keys;
  return TRUE;
}

BOOL LoadProvider::SetProvParam(HCRYPTPROV, DWORD, const BYTE*, DWORD) { return TRUE; }

BOOL LoadProvider::ExportKey(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD type, DWORD, BYTE* data,
                             DWORD* size) {
  static const Octets simple(60, 0x11);
  static const Octets open = {0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00, 0x01, 0x02};
  return Fails("ExportKey") ? FALSE
                            : Answer(type == 0x30         ? kSoakDocument
                                     : type == SIMPLEBLOB ? simple
                                                          : open,
                                     data, size);
}

BOOL LoadProvider::GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                                DWORD flags) {
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

BOOL LoadProvider::GetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD parameter, BYTE* data, DWORD* size,
                               DWORD) {
  return Answer(parameter == KP_CERTIFICATE ? certificate : Octets(), data, size);
}

BOOL LoadProvider::SetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD) { return TRUE; }

BOOL LoadProvider::Give(const char* function, HCRYPTKEY* key) {
  if (Fails(function)) return FALSE;
  ++keys;
  *key = ++next_;
  return TRUE;
}

Octets LoadProvider::Record() const {
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

}  // namespace zarext::test
