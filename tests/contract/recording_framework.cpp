#include "contract/recording_framework.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/module_under_test.h"
#include "support/utf8.h"

namespace zarext::test {
namespace {

RecordingFramework* current = nullptr;

const HMODULE kCrypt32 = reinterpret_cast<HMODULE>(0x43525950);  // no module of this process
constexpr DWORD kError = 0x1234;
constexpr DWORD kPathSize = 260;

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lX", number);
  return text;
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// Joins the parts to "function(first, second, ...)".
std::string Call(const std::string& function, std::initializer_list<std::string> arguments) {
  std::string text;
  for (const std::string& argument : arguments) {
    text += (text.empty() ? "" : ", ") + argument;
  }
  return function + "(" + text + ")";
}

BOOL Result(bool succeeds) {
  SetLastError(succeeds ? 0 : kError);
  return succeeds ? TRUE : FALSE;
}

}  // namespace

std::string RecordCallText(const std::string& function, const std::string& oid, DWORD group,
                           const std::string& name, DWORD algorithm, const DWORD* extra) {
  return Call(function, {oid, std::to_string(group), Quoted(name), Hex(algorithm),
                         "[" + Hex(extra[0]) + " " + Hex(extra[1]) + " " + Hex(extra[2]) + "]"});
}

struct Fakes {
  static HMODULE WINAPI LoadLibrary(LPCSTR name) {
    if (std::strcmp(name, "crypt32") != 0) {
      return current->loadLibrary_.Original<decltype(LoadLibraryA)>()(name);
    }
    return Result(current->Record(Call("LoadLibraryA", {name}))) ? kCrypt32 : nullptr;
  }

  // A module that could not be loaded would be null.
  static FARPROC WINAPI GetAddress(HMODULE module, LPCSTR name) {
    if (module != kCrypt32 && module != nullptr) {
      return current->getProcAddress_.Original<decltype(GetProcAddress)>()(module, name);
    }
    return Result(current->Record(Call("GetProcAddress", {name}))) ? AddressOf(name) : nullptr;
  }

  static BOOL WINAPI Free(HMODULE module) {
    if (module != kCrypt32 && module != nullptr) {
      return current->freeLibrary_.Original<decltype(FreeLibrary)>()(module);
    }
    return Result(current->Record("FreeLibrary()"));
  }

  static DWORD WINAPI GetModulePath(HMODULE module, LPSTR path, DWORD size) {
    const char* const which = module == Module() ? "ZAREXT" : "?";
    if (!Result(current->Record(Call("GetModuleFileNameA", {which, std::to_string(size)})))) {
      return 0;
    }
    current->narrowPath_ = path;
    const std::string& set = current->modulePath_;
    if (set.empty()) {
      return current->getModuleFileName_.Original<decltype(GetModuleFileNameA)>()(module, path,
                                                                                  size);
    }
    const std::size_t length = std::min<std::size_t>(set.size() + 1, size);
    std::memcpy(path, set.c_str(), length);
    return static_cast<DWORD>(std::min<std::size_t>(set.size(), size));
  }

  static int WINAPI Widen(UINT page, DWORD flags, LPCSTR text, int length, LPWSTR wide, int size) {
    // The C runtime's own conversions pass.
    if (text == current->narrowPath_) {
      const std::string call =
          Call("MultiByteToWideChar", {std::to_string(page), std::to_string(flags),
                                       std::to_string(length), std::to_string(size)});
      if (!Result(current->Record(call))) {
        return 0;
      }
    }
    return current->multiByteToWideChar_.Original<decltype(MultiByteToWideChar)>()(
        page, flags, text, length, wide, size);
  }

  static void* __cdecl Allocate(std::size_t size) {
    const auto original = current->malloc_.Original<decltype(std::malloc)>();
    if (size != kPathSize) {
      return original(size);
    }
    void* const block = current->allocationFails_ ? nullptr : original(size);
    if (block != nullptr) {
      // A path that its maker leaves without a zero is to run on.
      std::memset(block, '#', size);
      ++current->allocations_;
      current->held_.insert(block);
    }
    return block;
  }

  static void __cdecl Release(void* block) {
    current->held_.erase(block);
    current->free_.Original<decltype(std::free)>()(block);
  }

  static BOOL RecordCall(const char* function, PCCRYPT_OID_INFO info, const std::string& flags) {
    const auto extra = reinterpret_cast<const DWORD*>(info->ExtraInfo.pbData);
    current->recordMemory_.insert({info, extra});
    current->recordNames_.emplace_back(info->pwszName);
    const std::string sizes =
        info->cbSize == 48 && info->ExtraInfo.cbData == 12 ? "" : " with other sizes";
    return Result(current->Record(RecordCallText(function, info->pszOID, info->dwGroupId,
                                                 Utf8(info->pwszName), info->Algid, extra) +
                                  flags + sizes));
  }

  static BOOL WINAPI RegisterInfo(PCCRYPT_OID_INFO info, DWORD flags) {
    return RecordCall("CryptRegisterOIDInfo", info, " " + std::to_string(flags));
  }

  static BOOL WINAPI UnregisterInfo(PCCRYPT_OID_INFO info) {
    return RecordCall("CryptUnregisterOIDInfo", info, "");
  }

  static BOOL WINAPI RegisterFunction(DWORD type, LPCSTR function, LPCSTR oid, LPCWSTR path,
                                      LPCSTR exportName) {
    current->lastPath_ = path;
    return Result(current->Record(
        Call("CryptRegisterOIDFunction", {Hex(type), function, oid, Utf8(path), exportName})));
  }

  static BOOL WINAPI UnregisterFunction(DWORD type, LPCSTR function, LPCSTR oid) {
    return Result(current->Record(Call("CryptUnregisterOIDFunction", {Hex(type), function, oid})));
  }

  static BOOL WINAPI RegisterStore(const void* system, DWORD flags, LPCWSTR name,
                                   PCERT_PHYSICAL_STORE_INFO info, void* reserved) {
    const std::string parameters(reinterpret_cast<const char*>(info->OpenParameters.pbData),
                                 info->OpenParameters.cbData);
    return Result(current->Record(
        Call("CertRegisterPhysicalStore",
             {Utf8(static_cast<const wchar_t*>(system)), Hex(flags), Utf8(name),
              std::to_string(info->cbSize), Quoted(info->pszOpenStoreProvider),
              Hex(info->dwOpenEncodingType), Hex(info->dwOpenFlags), Quoted(parameters),
              std::to_string(info->dwFlags), std::to_string(info->dwPriority),
              reserved == nullptr ? "null" : "?"})));
  }

  static BOOL WINAPI UnregisterStore(const void* system, DWORD flags, LPCWSTR name) {
    return Result(
        current->Record(Call("CertUnregisterPhysicalStore",
                             {Utf8(static_cast<const wchar_t*>(system)), Hex(flags), Utf8(name)})));
  }

  static FARPROC AddressOf(const std::string& name) {
    const auto address = [](auto* function) {
      return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
    };
    const std::map<std::string, FARPROC> functions = {
        {"CryptRegisterOIDInfo", address(&RegisterInfo)},
        {"CryptRegisterOIDFunction", address(&RegisterFunction)},
        {"CertRegisterPhysicalStore", address(&RegisterStore)},
        {"CryptUnregisterOIDInfo", address(&UnregisterInfo)},
        {"CryptUnregisterOIDFunction", address(&UnregisterFunction)},
        {"CertUnregisterPhysicalStore", address(&UnregisterStore)}};
    const auto found = functions.find(name);
    return found == functions.end() ? nullptr : found->second;
  }
};

RecordingFramework::RecordingFramework()
    : loadLibrary_(Module(), "KERNEL32.dll", "LoadLibraryA", &Fakes::LoadLibrary),
      getProcAddress_(Module(), "KERNEL32.dll", "GetProcAddress", &Fakes::GetAddress),
      freeLibrary_(Module(), "KERNEL32.dll", "FreeLibrary", &Fakes::Free),
      getModuleFileName_(Module(), "KERNEL32.dll", "GetModuleFileNameA", &Fakes::GetModulePath),
      multiByteToWideChar_(Module(), "KERNEL32.dll", "MultiByteToWideChar", &Fakes::Widen),
      malloc_(Module(), "msvcrt.dll", "malloc", &Fakes::Allocate),
      free_(Module(), "msvcrt.dll", "free", &Fakes::Release) {
  current = this;
}

RecordingFramework::~RecordingFramework() { current = nullptr; }

void RecordingFramework::FailNothing() {
  failingPosition_ = 0;
  failingTexts_.clear();
}

bool RecordingFramework::Record(const std::string& call) {
  if (onCall) {
    onCall(call);
  }
  RecordEvent(EventKind::kPlatform, this, call);
  return CallCount() != failingPosition_ &&
         std::ranges::none_of(failingTexts_,
                              [&](const std::string& text) { return call.starts_with(text); });
}

}  // namespace zarext::test
