#include "support/recording_provider.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace zarext::test {
namespace {

std::string HexNumber(ULONG_PTR value) {
  char text[20] = {};
  snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string Bytes(const BYTE* data, DWORD size) {
  return data == nullptr ? "null" : "[" + HexText(Octets(data, data + size)) + "]";
}

std::string Dec(ULONG_PTR value) { return std::to_string(value); }

// Answers a size query or fills the buffer, the platform's way.
DWORD Answer(const Octets& content, BYTE* data, DWORD* size) {
  const DWORD given = *size;
  *size = static_cast<DWORD>(content.size());
  if (data == nullptr) {
    return ERROR_SUCCESS;
  }
  if (given < content.size()) {
    return ERROR_MORE_DATA;
  }
  std::copy(content.begin(), content.end(), data);
  return ERROR_SUCCESS;
}

DWORD AnswerFrom(const std::map<DWORD, Octets>& answers, DWORD number, BYTE* data, DWORD* size) {
  const auto found = answers.find(number);
  return found == answers.end() ? static_cast<DWORD>(NTE_BAD_TYPE)
                                : Answer(found->second, data, size);
}

}  // namespace

std::string HexText(const Octets& octets) {
  std::string text;
  for (const std::uint8_t octet : octets) {
    char digits[3] = {};
    snprintf(digits, sizeof digits, "%02x", octet);
    text += digits;
  }
  return text;
}

void RecordingProvider::FailCall(const std::string& function, int count, DWORD error) {
  failures_[function][count] = error;
}

std::vector<std::string> RecordingProvider::KeyCalls() const {
  std::vector<std::string> calls;
  for (const std::string& call : Calls()) {
    if (call.rfind("AcquireContext", 0) != 0 && call.rfind("ReleaseContext", 0) != 0) {
      calls.push_back(call);
    }
  }
  return calls;
}

// `work` returns an error code and adds " = handle" to the text where a handle is given out.
template <typename Work>
BOOL RecordingProvider::Record(const std::string& function, const std::string& arguments,
                               Work work) {
  std::string text = function + "(" + arguments + ")";
  const int count = ++counts_[function];
  const auto& failures = failures_[function];
  const auto failure = failures.find(count);
  const bool isScripted = failure != failures.end();
  const DWORD error = isScripted ? failure->second : work(text);
  const bool succeeded = !isScripted && error == ERROR_SUCCESS;
  RecordEvent(EventKind::kProvider, this, succeeded ? text : text + " ! " + HexNumber(error));
  if (!succeeded) {
    SetLastError(error);
  }
  return succeeded;
}

BOOL RecordingProvider::AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                                       void* /*table*/) {
  const std::string name = container == nullptr ? "null" : container;
  return Record("AcquireContext", name + ", " + HexNumber(flags), [&](std::string& text) -> DWORD {
    *provider = nextContext_++;
    openContexts_.insert(*provider);
    text += " = " + HexNumber(*provider);
    return ERROR_SUCCESS;
  });
}

BOOL RecordingProvider::ReleaseContext(HCRYPTPROV provider, DWORD flags) {
  return Record(
      "ReleaseContext", HexNumber(provider) + ", " + HexNumber(flags), [&](std::string&) -> DWORD {
        return openContexts_.erase(provider) == 1 ? ERROR_SUCCESS : static_cast<DWORD>(NTE_BAD_UID);
      });
}

BOOL RecordingProvider::GenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key) {
  const std::string arguments =
      HexNumber(provider) + ", " + HexNumber(algorithm) + ", " + HexNumber(flags);
  return Record("GenKey", arguments, [&](std::string& text) -> DWORD {
    *key = nextGeneratedKey_++;
    openKeys_.insert(*key);
    text += " = " + HexNumber(*key);
    return ERROR_SUCCESS;
  });
}

BOOL RecordingProvider::DestroyKey(HCRYPTPROV provider, HCRYPTKEY key) {
  return Record(
      "DestroyKey", HexNumber(provider) + ", " + HexNumber(key), [&](std::string&) -> DWORD {
        return openKeys_.erase(key) == 1 ? ERROR_SUCCESS : static_cast<DWORD>(NTE_BAD_KEY);
      });
}

BOOL RecordingProvider::SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter,
                                    const BYTE* /*data*/, DWORD flags) {
  const std::string arguments =
      HexNumber(provider) + ", " + HexNumber(key) + ", " + Dec(parameter) + ", " + HexNumber(flags);
  return Record("SetKeyParam", arguments, [](std::string&) -> DWORD { return ERROR_SUCCESS; });
}

BOOL RecordingProvider::GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data,
                                    DWORD* size, DWORD flags) {
  const std::string arguments = HexNumber(provider) + ", " + HexNumber(key) + ", " +
                                Dec(parameter) + ", " + Dec(*size) + ", " + HexNumber(flags);
  return Record("GetKeyParam", arguments,
                [&](std::string&) { return AnswerFrom(keyParameters, parameter, data, size); });
}

BOOL RecordingProvider::SetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data,
                                     DWORD flags) {
  // The one parameter that the module sets is a 32-bit number.
  const std::string arguments =
      HexNumber(provider) + ", " + Dec(parameter) + ", " + Bytes(data, 4) + ", " + HexNumber(flags);
  return Record("SetProvParam", arguments, [](std::string&) -> DWORD { return ERROR_SUCCESS; });
}

BOOL RecordingProvider::GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                                     DWORD flags) {
  const std::string arguments =
      HexNumber(provider) + ", " + Dec(parameter) + ", " + Dec(*size) + ", " + HexNumber(flags);
  return Record("GetProvParam", arguments, [&](std::string&) {
    if (parameter == PP_PROVTYPE) {
      Octets type(sizeof providerType);
      std::memcpy(type.data(), &providerType, sizeof providerType);
      return Answer(type, data, size);
    }
    return AnswerFrom(providerParameters, parameter, data, size);
  });
}

BOOL RecordingProvider::ExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY exchangeKey,
                                  DWORD blobType, DWORD flags, BYTE* data, DWORD* size) {
  const std::string arguments = HexNumber(provider) + ", " + HexNumber(key) + ", " +
                                HexNumber(exchangeKey) + ", " + Dec(blobType) + ", " +
                                HexNumber(flags) + ", " + (data == nullptr ? "null" : Dec(*size));
  return Record("ExportKey", arguments, [&](std::string&) {
    const DWORD error = AnswerFrom(blobs, blobType, data, size);
    if (error == ERROR_SUCCESS && claimedExportSize != 0) {
      *size = claimedExportSize;
    }
    return error;
  });
}

BOOL RecordingProvider::ImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size,
                                  HCRYPTKEY exchangeKey, DWORD flags, HCRYPTKEY* key) {
  const std::string arguments = HexNumber(provider) + ", " + Bytes(data, size) + ", " +
                                HexNumber(exchangeKey) + ", " + HexNumber(flags);
  return Record("ImportKey", arguments, [&](std::string& text) -> DWORD {
    *key = importsNullKey ? 0 : nextImportedKey_++;
    if (*key != 0) {
      openKeys_.insert(*key);
    }
    text += " = " + HexNumber(*key);
    return ERROR_SUCCESS;
  });
}

BOOL RecordingProvider::GetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) {
  return Record("GetUserKey", HexNumber(provider) + ", " + Dec(keySpec),
                [&](std::string& text) -> DWORD {
                  *key = nextUserKey_++;
                  openKeys_.insert(*key);
                  text += " = " + HexNumber(*key);
                  return ERROR_SUCCESS;
                });
}

}  // namespace zarext::test
