#include "support/container_provider.h"

#include <algorithm>
#include <cstring>

namespace zarext::test {
namespace {

constexpr DWORD kNoMore = 259;
constexpr DWORD kListKeys = 45;
constexpr DWORD kListContainers = 57;
constexpr DWORD kProfile = 64;
constexpr std::size_t kProfileSize = 1456;
constexpr std::size_t kUrlOffset = 944;

std::string Hex(ULONG_PTR value) {
  char text[20] = {};
  snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string Dec(ULONG_PTR value) { return std::to_string(value); }

bool IsZero(const BYTE* data, std::size_t size) {
  return std::all_of(data, data + size, [](BYTE octet) { return octet == 0; });
}

// The length of the DER element at `data`.
std::size_t ElementSize(const BYTE* data) {
  if (data[1] < 0x80) {
    return 2U + data[1];
  }
  const std::size_t octets = data[1] & 0x7FU;
  std::size_t length = 0;
  for (std::size_t i = 0; i < octets; ++i) {
    length = length << 8 | data[2 + i];
  }
  return 2 + octets + length;
}

}  // namespace

void ContainerProvider::FailCall(const std::string& function, int count, DWORD error) {
  failures_[function][count] = error;
}

int ContainerProvider::CountCalls(const std::string& beginning) const {
  const std::vector<std::string> calls = Calls();
  return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
    return call.rfind(beginning, 0) == 0;
  }));
}

template <typename Work>
BOOL ContainerProvider::Record(const std::string& function, const std::string& detail,
                               const std::string& arguments, Work work) {
  std::string text = records ? function + "(" + arguments + ")" : std::string();
  if (onCall) {
    onCall(text);
  }
  DWORD error = ERROR_SUCCESS;
  for (const std::string& name : {function, std::string(function).append(" ").append(detail)}) {
    if (failures_.empty()) {
      break;
    }
    const int count = ++counts_[name];
    const auto found = failures_[name].find(count);
    if (found != failures_[name].end()) {
      error = found->second;
    }
  }
  if (error == ERROR_SUCCESS) {
    error = work(text);
  }
  if (records) {
    RecordEvent(EventKind::kProvider, this,
                error == ERROR_SUCCESS ? text : text + " ! " + Hex(error));
  }
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
  }
  return error == ERROR_SUCCESS;
}

TestContainer* ContainerProvider::FindContainer(const std::string& url) {
  const auto alias = aliases.find(url);
  if (alias != aliases.end()) {
    return &containers.at(alias->second);
  }
  const auto found = std::find_if(
      containers.begin(), containers.end(),
      [&](const TestContainer& container) { return url == "profile://" + container.name; });
  return found == containers.end() ? nullptr : &*found;
}

TestKey* ContainerProvider::FindKey(HCRYPTPROV provider, HCRYPTKEY key) {
  const auto context = contexts_.find(provider);
  if (context == contexts_.end() || context->second.container == nullptr) {
    return nullptr;
  }
  for (TestKey& candidate : context->second.container->keys) {
    if (candidate.handle == key) {
      return &candidate;
    }
  }
  return nullptr;
}

BOOL ContainerProvider::AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                                       void* table) {
  const std::string name = container == nullptr ? "null" : container;
  const std::string arguments =
      records ? name + ", " + Hex(flags) + (table == nullptr ? "" : ", table") : "";
  const BOOL acquired = Record("AcquireContext", "", arguments, [&](std::string& text) -> DWORD {
    TestContainer* const found = container == nullptr ? nullptr : FindContainer(container);
    if (container != nullptr && found == nullptr) {
      return static_cast<DWORD>(NTE_BAD_KEYSET);
    }
    *provider = nextContext++;
    contexts_[*provider] = {found};
    text += " = " + Dec(*provider);
    return ERROR_SUCCESS;
  });
  if (!acquired && leavesBehind != 0) {
    *provider = leavesBehind;
  }
  return acquired;
}

BOOL ContainerProvider::ReleaseContext(HCRYPTPROV provider, DWORD flags) {
  return Record(
      "ReleaseContext", "", Dec(provider) + ", " + Hex(flags), [&](std::string&) -> DWORD {
        return contexts_.erase(provider) == 1 ? ERROR_SUCCESS : static_cast<DWORD>(NTE_BAD_UID);
      });
}

DWORD ContainerProvider::NextContainer(Context& context, BYTE* data, DWORD* size,
                                       std::string& text) {
  buffersWereClean_ = buffersWereClean_ && IsZero(data, *size);
  if (context.next == containers.size() && endlessContainers) {
    context.next = 0;
  }
  if (context.next == containers.size()) {
    return kNoMore;
  }
  const std::string& name = containers[context.next++].name;
  // A name that leaves no room for its terminator fills the buffer without one.
  const std::size_t length = std::min<std::size_t>(name.size() + 1, *size);
  std::memcpy(data, name.c_str(), length);
  *size = static_cast<DWORD>(length);
  text += " = " + name;
  return ERROR_SUCCESS;
}

DWORD ContainerProvider::NextKey(Context& context, BYTE* data, DWORD* size) {
  buffersWereClean_ = buffersWereClean_ && IsZero(data, *size);
  if (context.container == nullptr) {
    return static_cast<DWORD>(NTE_BAD_UID);
  }
  std::vector<TestKey>& keys = context.container->keys;
  if (context.next == keys.size() && endlessKeys) {
    context.next = 0;
  }
  if (context.next == keys.size()) {
    return kNoMore;
  }
  const TestKey& key = keys[context.next++];
  KeyRecord record = {};
  record.handle = key.handle;
  record.algorithm = key.algorithm;
  // Whatever a provider leaves in the parts that nobody reads.
  record.word12 = 0x12121212;
  record.container = "not set by the provider";
  record.serialSize = static_cast<std::uint32_t>(key.serial.size());
  record.serial = key.serial.empty() ? nullptr : key.serial.data();
  record.certificateSize = static_cast<std::uint32_t>(key.certificate.size());
  record.certificate = key.certificate.empty() ? nullptr : key.certificate.data();
  if (key.alter) {
    key.alter(record);
  }
  std::memcpy(data, &record, std::min<std::size_t>(*size, sizeof record));
  *size = sizeof record;
  return ERROR_SUCCESS;
}

DWORD ContainerProvider::Profile(BYTE* data, std::string& text) {
  const std::string url = reinterpret_cast<const char*>(data) + kUrlOffset;
  text += " = " + url;
  buffersWereClean_ =
      buffersWereClean_ && IsZero(data, kUrlOffset) &&
      IsZero(data + kUrlOffset + url.size(), kProfileSize - kUrlOffset - url.size());
  const TestContainer* const container = FindContainer(url);
  if (container == nullptr) {
    return static_cast<DWORD>(NTE_BAD_KEYSET);
  }
  std::memcpy(data + 128, container->kind.c_str(), container->kind.size());
  std::memcpy(data + 320, container->secondText.c_str(), container->secondText.size());
  std::memcpy(data + 448, container->thirdText.c_str(), container->thirdText.size());
  if (alterProfile) {
    alterProfile(data);
  }
  return ERROR_SUCCESS;
}

BOOL ContainerProvider::GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                                     DWORD flags) {
  const std::string arguments =
      records ? Dec(provider) + ", " + Dec(parameter) + ", " + Dec(*size) + ", " + Hex(flags) : "";
  return Record("GetProvParam", Dec(parameter), arguments, [&](std::string& text) -> DWORD {
    const auto found = contexts_.find(provider);
    if (found == contexts_.end()) {
      return static_cast<DWORD>(NTE_BAD_UID);
    }
    if (flags == CRYPT_FIRST) {
      found->second.next = 0;
    }
    switch (parameter) {
      case PP_PROVTYPE:
        std::memcpy(data, &providerType, sizeof providerType);
        return ERROR_SUCCESS;
      case kListContainers:
        return NextContainer(found->second, data, size, text);
      case kListKeys:
        return NextKey(found->second, data, size);
      case kProfile:
        return Profile(data, text);
      default:
        return static_cast<DWORD>(NTE_BAD_TYPE);
    }
  });
}

BOOL ContainerProvider::GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data,
                                    DWORD* size, DWORD flags) {
  const std::string arguments = records ? Dec(provider) + ", " + Hex(key) + ", " + Dec(parameter) +
                                              ", " + Dec(*size) + ", " + Hex(flags)
                                        : "";
  return Record("GetKeyParam", Dec(parameter), arguments, [&](std::string&) -> DWORD {
    const TestKey* const found = FindKey(provider, key);
    if (found == nullptr) {
      return static_cast<DWORD>(NTE_BAD_KEY);
    }
    const bool isChain = parameter == 69;
    if (isChain ? !found->hasChain : found->ownCertificate.empty()) {
      return static_cast<DWORD>(NTE_NOT_FOUND);
    }
    const Octets& answer = isChain ? found->chain : found->ownCertificate;
    if (answer.size() > *size) {
      return ERROR_MORE_DATA;
    }
    std::copy(answer.begin(), answer.end(), data);
    *size = static_cast<DWORD>(answer.size());
    if (alterKeyParam) {
      alterKeyParam(data, size);
    }
    return ERROR_SUCCESS;
  });
}

BOOL ContainerProvider::SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter,
                                    const BYTE* data, DWORD flags) {
  const std::string arguments =
      Dec(provider) + ", " + Hex(key) + ", " + Dec(parameter) + ", " + Hex(flags);
  return Record("SetKeyParam", Dec(parameter), arguments, [&](std::string&) -> DWORD {
    TestKey* const found = FindKey(provider, key);
    if (found == nullptr) {
      return static_cast<DWORD>(NTE_BAD_KEY);
    }
    written.emplace_back(data, data + ElementSize(data));
    if (keepsWritten && parameter == KP_CERTIFICATE) {
      found->ownCertificate = written.back();
    }
    return ERROR_SUCCESS;
  });
}

}  // namespace zarext::test
