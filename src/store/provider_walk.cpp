#include "store/provider_walk.h"

#include <algorithm>

#include "frame/export_frame.h"

namespace zarext {
namespace {

constexpr DWORD kReadableProtections = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY |
                                       PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE |
                                       PAGE_EXECUTE_WRITECOPY;

bool Acquire(char* container, DWORD flags, UniqueProviderContext* context) {
  HCRYPTPROV acquired = 0;
  if (!Provider().CPAcquireContext(&acquired, container, flags, nullptr)) {
    // Whatever a refusal leaves behind is no context, and is not released as one.
    return false;
  }
  context->Reset(acquired);
  return true;
}

}  // namespace

void RequireProvider() {
  BindProvider();
  if (ProviderModule() == nullptr) {
    ThrowLastError();
  }
}

bool AcquireVerifyContext(UniqueProviderContext* context) {
  return Acquire(nullptr, CRYPT_VERIFYCONTEXT, context);
}

bool OpenContainer(char* url, UniqueProviderContext* context) {
  return Acquire(url, CRYPT_SILENT, context);
}

bool QueryProfile(HCRYPTPROV provider, std::string_view url, CNT_PROFILE* profile) {
  DWORD size = sizeof *profile;
  return PrepareProfile(url, profile) &&
         Provider().CPGetProvParam(provider, PP_CNT_PROFILE, reinterpret_cast<BYTE*>(profile),
                                   &size, 0) &&
         IsProfileWellFormed(*profile);
}

bool IsReadable(const void* start, std::size_t length) {
  const auto* position = static_cast<const BYTE*>(start);
  while (length != 0) {
    MEMORY_BASIC_INFORMATION region = {};
    if (VirtualQuery(position, &region, sizeof region) == 0 || region.State != MEM_COMMIT ||
        (region.Protect & kReadableProtections) == 0 || (region.Protect & PAGE_GUARD) != 0) {
      return false;
    }
    const auto* const end = static_cast<const BYTE*>(region.BaseAddress) + region.RegionSize;
    const std::size_t covered = std::min(length, static_cast<std::size_t>(end - position));
    position += covered;
    length -= covered;
  }
  return true;
}

KeyBlob::Outcome KeyBlob::Read(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter) {
  size_ = sizeof data_;
  if (!Provider().CPGetKeyParam(container, key, parameter, data_, &size_, 0)) {
    size_ = 0;
    return Outcome::kFailed;
  }
  return size_ <= sizeof data_ ? Outcome::kRead : Outcome::kUnusable;
}

UniqueMessageStore OpenChain(const KeyBlob& chain) {
  return chain.Size() == 0 ? UniqueMessageStore()
                           : UniqueMessageStore(CryptGetMessageCertificates(
                                 kEncodingType, 0, 0, chain.Data(), chain.Size()));
}

unsigned int SerialOctet(const CERT_INFO& certificate, DWORD index) noexcept {
  const CRYPT_INTEGER_BLOB& serial = certificate.SerialNumber;
  return index < serial.cbData ? serial.pbData[index] : 0;
}

bool IsSameBlob(const CRYPT_DATA_BLOB& left, const CRYPT_DATA_BLOB& right) noexcept {
  return left.cbData == right.cbData &&
         std::equal(left.pbData, left.pbData + left.cbData, right.pbData);
}

}  // namespace zarext
