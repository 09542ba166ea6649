#include "unit/fake_provider.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "frame/provider_binding.h"
#include "store/provider_records.h"
#include "unit/fake_answers.h"
#include "unit/fake_platform.h"

namespace zarext::test {
namespace {

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

// A pointer as a provider might return it.
std::uint8_t* AnyPointer() {
  std::uint8_t* const start = ProviderMemory().data();
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

}  // namespace

std::span<std::uint8_t> ProviderMemory() {
  static const Arena arena;
  return {arena.start, Arena::kSize};
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

}  // namespace zarext::test

namespace zarext {

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
